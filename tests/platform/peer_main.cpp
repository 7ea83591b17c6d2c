// SPDX-License-Identifier: Apache-2.0
// The other process of the tests: serves one object under the name it is given, says "ready", and
// lives until it is killed or its input ends.
#include <android/binder_auto_utils.h>
#include <unistd.h>

#include <atomic>
#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <string>
#include <vector>

#include "tests/platform/PeerInterface.h"

namespace {

std::atomic<int32_t> gTokensEnded{0};

AIBinder_Class* tokenClass() {
    static AIBinder_Class* const clazz =
        plainClass("lum.test.IToken", [](void*) { ++gTokensEnded; });
    return clazz;
}

// The next argument.
template <typename Value>
Value next(const AParcel* in) {
    Value value{};
    get(in, &value);
    return value;
}

template <typename... Values>
binder_status_t reply(AParcel* out, const Values&... values) {
    (put(out, values), ...);
    return STATUS_OK;
}

class Peer {
  public:
    binder_status_t handle(transaction_code_t code, const AParcel* in, AParcel* out) {
        switch (code) {
            case kAdd: {
                const int32_t first = next<int32_t>(in);
                return reply(out, first + next<int32_t>(in));
            }
            case kNote: {
                const std::lock_guard<std::mutex> guard(mLock);
                mNotes.push_back(next<int32_t>(in));
                return STATUS_OK;
            }
            case kNoted: return noted(out);
            case kCallBack: return callBack(in, out);
            case kKeep: keep(next<ndk::SpAIBinder>(in)); return STATUS_OK;
            case kGetKept: return reply(out, kept());
            case kMakeObject:
                return reply(out, ndk::SpAIBinder(AIBinder_new(tokenClass(), nullptr)));
            case kObjectsEnded: return reply(out, gTokensEnded.load());
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
                return reply(out, mHolding);
            }
            case kWho: return reply(out, callingUid(), AIBinder_getCallingPid());
            case kNoteWho: {
                const std::lock_guard<std::mutex> guard(mLock);
                mUid = callingUid();
                mPid = AIBinder_getCallingPid();
                return STATUS_OK;
            }
            case kGetNotedWho: {
                const std::lock_guard<std::mutex> guard(mLock);
                return reply(out, mUid, mPid);
            }
            case kBig:
                return reply(out, std::vector<int8_t>(static_cast<size_t>(next<int32_t>(in)), 7));
            case kRelay: return relay(in, out);
            case kOnewayAddToKept: return onewayAddToKept(in);
            case kPassOn: return passOn(in, out);
            case kReturn: return next<int32_t>(in);
            case kServe:
                return reply(out,
                             AServiceManager_addService(self.get(), next<std::string>(in).c_str()));
            default: return STATUS_UNKNOWN_TRANSACTION;
        }
    }

    ndk::SpAIBinder self;

  private:
    static int32_t callingUid() { return static_cast<int32_t>(AIBinder_getCallingUid()); }

    ndk::SpAIBinder kept() {
        const std::lock_guard<std::mutex> guard(mLock);
        return mKept;
    }

    void keep(ndk::SpAIBinder binder) {
        // The old one ends after the lock is let go.
        const std::lock_guard<std::mutex> guard(mLock);
        std::swap(mKept, binder);
    }

    binder_status_t noted(AParcel* out) {
        const std::lock_guard<std::mutex> guard(mLock);
        bool inOrder = true;
        for (size_t i = 0; i < mNotes.size(); ++i) inOrder &= mNotes[i] == static_cast<int32_t>(i);
        return reply(out, static_cast<int32_t>(mNotes.size()), inOrder ? 1 : 0);
    }

    static binder_status_t callBack(const AParcel* in, AParcel* out) {
        const auto object = next<ndk::SpAIBinder>(in);
        int32_t sum = 0;
        const binder_status_t status =
            callPeer(object, kAdd, args(next<int32_t>(in), 1), into(&sum));
        return status == STATUS_OK ? reply(out, sum) : status;
    }

    binder_status_t isOwnObject(const AParcel* in, AParcel* out) const {
        const auto object = next<ndk::SpAIBinder>(in);
        if (object == self) return reply(out, 2);
        const bool own = object.get() != nullptr && !AIBinder_isRemote(object.get()) &&
                         AIBinder_getClass(object.get()) == tokenClass();
        return reply(out, own ? 1 : 0);
    }

    binder_status_t hold() {
        std::unique_lock<std::mutex> guard(mLock);
        const uint64_t round = mRound;
        ++mHolding;
        mLetGo.wait(guard, [&] { return mRound != round; });
        --mHolding;
        return STATUS_OK;
    }

    static binder_status_t relay(const AParcel* in, AParcel* out) {
        const auto path = next<std::string>(in);
        if (path.empty()) return reply(out, 0);
        const size_t slash = path.find('/');
        const std::string rest = slash == std::string::npos ? "" : path.substr(slash + 1);
        const ndk::SpAIBinder service(AServiceManager_checkService(path.substr(0, slash).c_str()));
        if (service.get() == nullptr) return STATUS_NAME_NOT_FOUND;
        int32_t steps = 0;
        const binder_status_t status = callPeer(service, kRelay, args(rest), into(&steps));
        return status == STATUS_OK ? reply(out, steps + 1) : status;
    }

    binder_status_t onewayAddToKept(const AParcel* in) {
        int32_t sum = -1;
        callPeer(kept(), kAdd, args(next<int32_t>(in), 1), into(&sum));
        return callOneway(kept(), kNote, args(sum));
    }

    static binder_status_t passOn(const AParcel* in, AParcel* out) {
        const auto name = next<std::string>(in);
        const ndk::SpAIBinder other(AServiceManager_checkService(name.c_str()));
        if (other.get() == nullptr) return STATUS_NAME_NOT_FOUND;
        return reply(out, callPeer(other, kKeep, args(next<ndk::SpAIBinder>(in))));
    }

    std::mutex mLock;
    std::condition_variable mLetGo;
    std::vector<int32_t> mNotes;
    ndk::SpAIBinder mKept;
    uint64_t mRound = 0;
    int32_t mHolding = 0;
    int32_t mUid = -1;
    int32_t mPid = -1;
};

// Says who writes it, and the arguments.
binder_status_t dump(AIBinder*, int fd, const char** args, uint32_t numArgs) {
    std::string text = "dump of " + std::to_string(getpid()) + ":";
    for (uint32_t i = 0; i < numArgs; ++i) text += " [" + std::string(args[i]) + "]";
    text += "\n";
    return write(fd, text.data(), text.size()) < 0 ? STATUS_UNKNOWN_ERROR : STATUS_OK;
}

}  // namespace

// Argument: the name to serve.
int main(int argc, char** argv) {
    if (argc < 2) return 2;
    AIBinder_Class_setOnDump(peerClass(), dump);
    auto* const peer = new Peer;
    peer->self = makePeerObject([peer](transaction_code_t code, const AParcel* in, AParcel* out) {
        return peer->handle(code, in, out);
    });
    ABinderProcess_startThreadPool();
    if (AServiceManager_addService(peer->self.get(), argv[1]) != EX_NONE) return 1;
    puts("ready");
    fflush(stdout);
    char byte;
    while (read(STDIN_FILENO, &byte, 1) > 0) {
    }
    return 0;
}
