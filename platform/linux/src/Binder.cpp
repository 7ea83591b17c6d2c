// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/src/Binder.h"

#include <android/binder_parcel.h>
#include <android/binder_stability.h>

#include <algorithm>
#include <cstring>
#include <new>
#include <utility>

#include "platform/linux/src/CallOut.h"
#include "platform/linux/src/LocalBinder.h"
#include "platform/linux/src/Parcel.h"
#include "platform/linux/src/RemoteBinder.h"

struct AIBinder_Weak {
    AIBinder* binder;
};

bool AIBinder::attemptIncStrong() {
    int32_t count = mStrong.load(std::memory_order_relaxed);
    while (count > 0) {
        if (mStrong.compare_exchange_weak(count, count + 1, std::memory_order_relaxed)) return true;
    }
    return false;
}

void AIBinder::decStrong() {
    // Whoever ends the object must see what every other holder did with it before letting go.
    if (mStrong.fetch_sub(1, std::memory_order_acq_rel) != 1) return;
    onLastStrong();
    decWeak();
}

void AIBinder::decWeak() {
    if (mWeak.fetch_sub(1, std::memory_order_acq_rel) == 1) delete this;
}

bool AIBinder::associateClass(const AIBinder_Class* clazz) {
    const AIBinder_Class* current = this->clazz();
    if (current == nullptr) {
        if (!isOfInterface(clazz->descriptor)) return false;
        // Another thread may have been faster; the first class stays.
        if (mClass.compare_exchange_strong(current, clazz)) return true;
    }
    if (current == clazz) return true;
    if (current->descriptor == clazz->descriptor) {
        LUM_LOGE("binder: an object of %s belongs to another class of that name",
                 clazz->descriptor.c_str());
    } else {
        LUM_LOGE("binder: an object expected to be %s is %s", clazz->descriptor.c_str(),
                 current->descriptor.c_str());
    }
    return false;
}

int32_t binderStability(AIBinder* binder) {
    const LocalBinder* const local = binder->asLocal();
    if (local != nullptr) return OwnStability::word(local->stability());
    const int32_t word = binder->asRemote()->stability();
    return word == kUndeclared ? OwnStability::word(kVendor) : word;
}

bool takeStability(AIBinder* binder, int32_t word) {
    // An object of ours may come back with the word that was written before.
    const LocalBinder* const local = binder->asLocal();
    if (local != nullptr) return isStability(word, local->stability());
    return isDeclaredStability(word) && binder->asRemote()->takeStability(word);
}

namespace {

// Calls an object, in this process or another.
binder_status_t transact(AIBinder& binder, transaction_code_t code, const AParcel& in,
                         binder_flags_t flags, std::unique_ptr<AParcel>* out) {
    if (RemoteBinder* const remote = binder.asRemote(); remote != nullptr) {
        return remote->transact(code, in, flags, out);
    }
    auto reply = std::make_unique<AParcel>();
    in.setPosition(0);
    const binder_status_t status = binder.asLocal()->transact(code, in, reply.get());
    if (status != STATUS_OK) return status;
    reply->setPosition(0);
    *out = std::move(reply);
    return STATUS_OK;
}

binder_status_t writeDump(AParcel* in, int fd, const char** args, uint32_t numArgs) {
    binder_status_t status = in->writeDescriptor(fd);
    if (status == STATUS_OK) status = in->writeValue(numArgs);
    for (uint32_t i = 0; i < numArgs && status == STATUS_OK; ++i) {
        status = in->writeString(args[i]);
    }
    return status;
}

}  // namespace

AIBinder_Class* AIBinder_Class_define(const char* interfaceDescriptor,
                                      AIBinder_Class_onCreate onCreate,
                                      AIBinder_Class_onDestroy onDestroy,
                                      AIBinder_Class_onTransact onTransact) {
    if (interfaceDescriptor == nullptr || onCreate == nullptr || onDestroy == nullptr ||
        onTransact == nullptr) {
        return nullptr;
    }
    return withoutThrowing(
        [&] {
            auto clazz = std::make_unique<AIBinder_Class>();
            clazz->descriptor = interfaceDescriptor;
            clazz->onCreate = onCreate;
            clazz->onDestroy = onDestroy;
            clazz->onTransact = onTransact;
            return clazz.release();
        },
        nullptr);
}

void AIBinder_Class_setOnDump(AIBinder_Class* clazz, AIBinder_onDump onDump) {
    clazz->onDump = onDump;
}

void AIBinder_Class_setTransactionCodeToFunctionNameMap(AIBinder_Class* clazz, const char** map,
                                                        size_t length) {
    clazz->functionNames = map;
    clazz->functionCount = map == nullptr ? 0 : length;
}

const char* AIBinder_Class_getFunctionName(AIBinder_Class* clazz, transaction_code_t code) {
    if (code < FIRST_CALL_TRANSACTION) return nullptr;
    const size_t index = code - FIRST_CALL_TRANSACTION;
    return index < clazz->functionCount ? clazz->functionNames[index] : nullptr;
}

const char* AIBinder_Class_getDescriptor(const AIBinder_Class* clazz) {
    return clazz->descriptor.c_str();
}

AIBinder* AIBinder_new(const AIBinder_Class* clazz, void* args) {
    if (clazz == nullptr) {
        LUM_LOGE("binder: AIBinder_new without a class");
        return nullptr;
    }
    // The memory first: user data made before it could not be given back.
    void* const memory = ::operator new(sizeof(LocalBinder), std::nothrow);
    if (memory == nullptr) {
        LUM_LOGE("binder: no memory");
        return nullptr;
    }
    void* userData = nullptr;
    if (!callOut("onCreate", [&] { userData = clazz->onCreate(args); })) {
        ::operator delete(memory);
        return nullptr;
    }
    return new (memory) LocalBinder(*clazz, userData);
}

bool AIBinder_isRemote(const AIBinder* binder) {
    return const_cast<AIBinder*>(binder)->asRemote() != nullptr;
}

bool AIBinder_isAlive(const AIBinder* binder) {
    RemoteBinder* const remote = const_cast<AIBinder*>(binder)->asRemote();
    return remote == nullptr || remote->isAlive();
}

binder_status_t AIBinder_ping(AIBinder* binder) {
    if (binder == nullptr) return STATUS_UNEXPECTED_NULL;
    return withoutThrowing(
        [&] {
            const AParcel nothing;
            std::unique_ptr<AParcel> reply;
            return transact(*binder, kPingTransaction, nothing, 0, &reply);
        },
        STATUS_NO_MEMORY);
}

binder_status_t AIBinder_dump(AIBinder* binder, int fd, const char** args, uint32_t numArgs) {
    if (binder == nullptr || (args == nullptr && numArgs != 0)) return STATUS_UNEXPECTED_NULL;
    if (std::find(args, args + numArgs, nullptr) != args + numArgs) return STATUS_UNEXPECTED_NULL;
    if (fd < 0 || numArgs > INT32_MAX) return STATUS_BAD_VALUE;
    LocalBinder* const local = binder->asLocal();
    if (local != nullptr) return local->dump(fd, args, numArgs);
    return withoutThrowing(
        [&] {
            AParcel in;
            const binder_status_t status = writeDump(&in, fd, args, numArgs);
            std::unique_ptr<AParcel> reply;
            return status != STATUS_OK ? status
                                       : transact(*binder, kDumpTransaction, in, 0, &reply);
        },
        STATUS_NO_MEMORY);
}

void AIBinder_incStrong(AIBinder* binder) {
    if (binder != nullptr) binder->incStrong();
}

void AIBinder_decStrong(AIBinder* binder) {
    if (binder != nullptr) binder->decStrong();
}

int32_t AIBinder_debugGetRefCount(AIBinder* binder) {
    return binder == nullptr ? -1 : binder->strongCount();
}

bool AIBinder_associateClass(AIBinder* binder, const AIBinder_Class* clazz) {
    if (binder == nullptr || clazz == nullptr) return false;
    return withoutThrowing([&] { return binder->associateClass(clazz); }, false);
}

const AIBinder_Class* AIBinder_getClass(AIBinder* binder) {
    return binder == nullptr ? nullptr : binder->clazz();
}

void* AIBinder_getUserData(AIBinder* binder) {
    if (binder == nullptr) return nullptr;
    LocalBinder* const local = binder->asLocal();
    return local == nullptr ? nullptr : local->userData();
}

binder_status_t AIBinder_prepareTransaction(AIBinder* binder, AParcel** in) {
    if (binder == nullptr || in == nullptr) return STATUS_UNEXPECTED_NULL;
    *in = nullptr;
    const AIBinder_Class* const clazz = binder->clazz();
    if (clazz == nullptr) {
        LUM_LOGE("binder: a call needs an object with a class");
        return STATUS_INVALID_OPERATION;
    }
    return withoutThrowing(
        [&] {
            auto parcel = std::make_unique<AParcel>(binder);
            const binder_status_t status = parcel->writeInterfaceToken(clazz->descriptor);
            if (status == STATUS_OK) *in = parcel.release();
            return status;
        },
        STATUS_NO_MEMORY);
}

binder_status_t AIBinder_transact(AIBinder* binder, transaction_code_t code, AParcel** in,
                                  AParcel** out, binder_flags_t flags) {
    if (in == nullptr) return STATUS_UNEXPECTED_NULL;
    const std::unique_ptr<AParcel> owned(std::exchange(*in, nullptr));
    if (out == nullptr) return STATUS_UNEXPECTED_NULL;
    *out = nullptr;
    if (binder == nullptr || owned == nullptr) return STATUS_UNEXPECTED_NULL;
    if (code < FIRST_CALL_TRANSACTION || code > LAST_CALL_TRANSACTION) {
        LUM_LOGE("binder: %u is not the code of a method", code);
        return STATUS_UNKNOWN_TRANSACTION;
    }
    if (owned->target() != binder) {
        LUM_LOGE("binder: a parcel prepared for another object");
        return STATUS_BAD_VALUE;
    }
    constexpr binder_flags_t kKnownFlags = FLAG_ONEWAY | FLAG_PRIVATE_VENDOR;
    if ((flags & ~kKnownFlags) != 0) {
        LUM_LOGE("binder: unknown flags %#x in a call", flags & ~kKnownFlags);
        return STATUS_BAD_VALUE;
    }
    return withoutThrowing(
        [&] {
            std::unique_ptr<AParcel> reply;
            const binder_status_t status = transact(*binder, code, *owned, flags, &reply);
            *out = reply.release();
            return status;
        },
        STATUS_NO_MEMORY);
}

AIBinder_Weak* AIBinder_Weak_new(AIBinder* binder) {
    if (binder == nullptr) return nullptr;
    return withoutThrowing(
        [&] {
            auto* const weak = new AIBinder_Weak{binder};
            binder->incWeak();
            return weak;
        },
        nullptr);
}

void AIBinder_Weak_delete(AIBinder_Weak* weakBinder) {
    if (weakBinder == nullptr) return;
    weakBinder->binder->decWeak();
    delete weakBinder;
}

AIBinder* AIBinder_Weak_promote(AIBinder_Weak* weakBinder) {
    if (weakBinder == nullptr || !weakBinder->binder->attemptIncStrong()) return nullptr;
    return weakBinder->binder;
}

// Every object here is the vendor's already.
void AIBinder_markVendorStability(AIBinder*) {}
