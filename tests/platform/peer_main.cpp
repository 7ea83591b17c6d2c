// SPDX-License-Identifier: Apache-2.0
// The other process of the tests: serves one object under the name it is given, says "ready", and
// lives until it is killed or its input ends.
#include <android/binder_auto_utils.h>
#include <unistd.h>

#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>
#include <vector>

#include "tests/platform/PeerInterface.h"

namespace {

class Peer {
  public:
    binder_status_t handle(transaction_code_t code, const AParcel* in, AParcel* out);

    ndk::SpAIBinder self;

  private:
    binder_status_t noted(AParcel* out);
    binder_status_t callBack(const AParcel* in, AParcel* out);
    binder_status_t makeObject(AParcel* out);
    binder_status_t isOwnObject(const AParcel* in, AParcel* out);
    binder_status_t hold();
    binder_status_t big(const AParcel* in, AParcel* out);
    binder_status_t relay(const AParcel* in, AParcel* out);
    binder_status_t noteToKept(const AParcel* in);
    binder_status_t onewayAddToKept(const AParcel* in);
    binder_status_t passOn(const AParcel* in, AParcel* out);
    ndk::SpAIBinder kept();
    void keep(ndk::SpAIBinder binder);

    std::mutex mLock;
    std::condition_variable mLetGo;
    std::vector<int32_t> mNotes;
    ndk::SpAIBinder mKept;
    uint64_t mRound = 0;
    int32_t mHolding = 0;
    int32_t mUid = -1;
    int32_t mPid = -1;
};

std::mutex gTokenLock;
int32_t gTokensEnded = 0;

AIBinder_Class* tokenClass() {
    static AIBinder_Class* const clazz = AIBinder_Class_define(
        kTokenDescriptor, [](void* args) { return args; },
        [](void*) {
            const std::lock_guard<std::mutex> guard(gTokenLock);
            ++gTokensEnded;
        },
        [](AIBinder*, transaction_code_t, const AParcel*, AParcel*) -> binder_status_t {
            return STATUS_UNKNOWN_TRANSACTION;
        });
    return clazz;
}

int32_t tokensEnded() {
    const std::lock_guard<std::mutex> guard(gTokenLock);
    return gTokensEnded;
}

int32_t intFrom(const AParcel* in) {
    int32_t value = 0;
    if (AParcel_readInt32(in, &value) != STATUS_OK) abort();
    return value;
}

ndk::SpAIBinder binderFrom(const AParcel* in) {
    ndk::SpAIBinder binder;
    if (AParcel_readStrongBinder(in, binder.getR()) != STATUS_OK) abort();
    return binder;
}

binder_status_t Peer::handle(transaction_code_t code, const AParcel* in, AParcel* out) {
    switch (code) {
        case kAdd: {
            const int32_t first = intFrom(in);
            return AParcel_writeInt32(out, first + intFrom(in));
        }
        case kNote: {
            const std::lock_guard<std::mutex> guard(mLock);
            mNotes.push_back(intFrom(in));
            return STATUS_OK;
        }
        case kNoted: return noted(out);
        case kCallBack: return callBack(in, out);
        case kKeep: keep(binderFrom(in)); return STATUS_OK;
        case kDropKept: keep(nullptr); return STATUS_OK;
        case kGetKept: return AParcel_writeStrongBinder(out, kept().get());
        case kMakeObject: return makeObject(out);
        case kObjectsEnded: return AParcel_writeInt32(out, tokensEnded());
        case kIsOwnObject: return isOwnObject(in, out);
        case kHold: return hold();
        case kLetGo: {
            const std::lock_guard<std::mutex> guard(mLock);
            ++mRound;
            mLetGo.notify_all();
            return STATUS_OK;
        }
        case kHolding: {
            const std::lock_guard<std::mutex> guard(mLock);
            return AParcel_writeInt32(out, mHolding);
        }
        case kWho:
            AParcel_writeInt32(out, static_cast<int32_t>(AIBinder_getCallingUid()));
            return AParcel_writeInt32(out, AIBinder_getCallingPid());
        case kNoteWho: {
            const std::lock_guard<std::mutex> guard(mLock);
            mUid = static_cast<int32_t>(AIBinder_getCallingUid());
            mPid = AIBinder_getCallingPid();
            return STATUS_OK;
        }
        case kGetNotedWho: {
            const std::lock_guard<std::mutex> guard(mLock);
            AParcel_writeInt32(out, mUid);
            return AParcel_writeInt32(out, mPid);
        }
        case kBig: return big(in, out);
        case kRelay: return relay(in, out);
        case kNoteToKept: return noteToKept(in);
        case kTellDeath: _exit(0);
        case kOnewayAddToKept: return onewayAddToKept(in);
        case kPassOn: return passOn(in, out);
        case kStartPool: ABinderProcess_startThreadPool(); return STATUS_OK;
        case kReturn: return intFrom(in);
        case kServe:
            return AParcel_writeInt32(out,
                                      AServiceManager_addService(self.get(), readText(in).c_str()));
        default: return STATUS_UNKNOWN_TRANSACTION;
    }
}

ndk::SpAIBinder Peer::kept() {
    const std::lock_guard<std::mutex> guard(mLock);
    return mKept;
}

void Peer::keep(ndk::SpAIBinder binder) {
    // The old one ends after the lock is let go.
    const std::lock_guard<std::mutex> guard(mLock);
    std::swap(mKept, binder);
}

binder_status_t Peer::noted(AParcel* out) {
    const std::lock_guard<std::mutex> guard(mLock);
    bool inOrder = true;
    for (size_t i = 0; i < mNotes.size(); ++i) inOrder &= mNotes[i] == static_cast<int32_t>(i);
    AParcel_writeInt32(out, static_cast<int32_t>(mNotes.size()));
    return AParcel_writeInt32(out, inOrder ? 1 : 0);
}

binder_status_t Peer::callBack(const AParcel* in, AParcel* out) {
    const ndk::SpAIBinder object = binderFrom(in);
    const int32_t number = intFrom(in);
    int32_t sum = 0;
    const binder_status_t status = callPeer(
        object, kAdd,
        [&](AParcel* arguments) {
            AParcel_writeInt32(arguments, number);
            AParcel_writeInt32(arguments, 1);
        },
        readInt(&sum));
    return status == STATUS_OK ? AParcel_writeInt32(out, sum) : status;
}

binder_status_t Peer::makeObject(AParcel* out) {
    const ndk::SpAIBinder token(AIBinder_new(tokenClass(), nullptr));
    return AParcel_writeStrongBinder(out, token.get());
}

binder_status_t Peer::isOwnObject(const AParcel* in, AParcel* out) {
    const ndk::SpAIBinder object = binderFrom(in);
    if (object == self) return AParcel_writeInt32(out, 2);
    const bool own = object.get() != nullptr && !AIBinder_isRemote(object.get()) &&
                     AIBinder_getClass(object.get()) == tokenClass();
    return AParcel_writeInt32(out, own ? 1 : 0);
}

binder_status_t Peer::hold() {
    std::unique_lock<std::mutex> guard(mLock);
    const uint64_t round = mRound;
    ++mHolding;
    mLetGo.wait(guard, [&] { return mRound != round; });
    --mHolding;
    return STATUS_OK;
}

binder_status_t Peer::big(const AParcel* in, AParcel* out) {
    const std::vector<int8_t> bytes(static_cast<size_t>(intFrom(in)), 7);
    return AParcel_writeByteArray(out, bytes.data(), static_cast<int32_t>(bytes.size()));
}

binder_status_t Peer::relay(const AParcel* in, AParcel* out) {
    const std::string path = readText(in);
    if (path.empty()) return AParcel_writeInt32(out, 0);
    const size_t slash = path.find('/');
    const std::string first = path.substr(0, slash);
    const std::string rest = slash == std::string::npos ? "" : path.substr(slash + 1);
    const ndk::SpAIBinder next(AServiceManager_checkService(first.c_str()));
    if (next.get() == nullptr) return STATUS_NAME_NOT_FOUND;
    int32_t steps = 0;
    const binder_status_t status = callPeer(
        next, kRelay,
        [&](AParcel* arguments) {
            AParcel_writeString(arguments, rest.c_str(), static_cast<int32_t>(rest.size()));
        },
        readInt(&steps));
    return status == STATUS_OK ? AParcel_writeInt32(out, steps + 1) : status;
}

binder_status_t Peer::noteToKept(const AParcel* in) {
    const int32_t count = intFrom(in);
    const ndk::SpAIBinder object = kept();
    for (int32_t i = 0; i < count; ++i) {
        const binder_status_t status = callPeer(object, kNote, writeInt(i), nullptr, FLAG_ONEWAY);
        if (status != STATUS_OK) return status;
    }
    return STATUS_OK;
}

binder_status_t Peer::onewayAddToKept(const AParcel* in) {
    const int32_t number = intFrom(in);
    int32_t sum = -1;
    const Fill arguments = [&](AParcel* parcel) {
        AParcel_writeInt32(parcel, number);
        AParcel_writeInt32(parcel, 1);
    };
    callPeer(kept(), kAdd, arguments, readInt(&sum));
    return callPeer(kept(), kNote, writeInt(sum), nullptr, FLAG_ONEWAY);
}

binder_status_t Peer::passOn(const AParcel* in, AParcel* out) {
    const std::string name = readText(in);
    const ndk::SpAIBinder object = binderFrom(in);
    const ndk::SpAIBinder other(AServiceManager_checkService(name.c_str()));
    if (other.get() == nullptr) return STATUS_NAME_NOT_FOUND;
    return AParcel_writeInt32(out, callPeer(other, kKeep, writeBinder(object)));
}

}  // namespace

// Arguments: the name to serve; "nopool" if no thread pool is to be started, "exit" to end through
// exit() when the input ends.
int main(int argc, char** argv) {
    if (argc < 2) return 2;
    const bool pool = argc < 3 || strcmp(argv[2], "nopool") != 0;
    auto* const peer = new Peer;
    peer->self = makePeerObject([peer](transaction_code_t code, const AParcel* in, AParcel* out) {
        return peer->handle(code, in, out);
    });
    if (pool) ABinderProcess_startThreadPool();
    if (AServiceManager_addService(peer->self.get(), argv[1]) != EX_NONE) {
        puts("refused");
        fflush(stdout);
        return 1;
    }
    puts("ready");
    fflush(stdout);
    char byte;
    while (read(STDIN_FILENO, &byte, 1) > 0) {
    }
    return 0;
}
