// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/src/LocalBinder.h"

#include <android/binder_parcel.h>

#include <algorithm>
#include <atomic>
#include <string>
#include <utility>
#include <vector>

#include "platform/linux/src/CallOut.h"
#include "platform/linux/src/Parcel.h"
#include "platform/linux/src/Status.h"
#include "platform/linux/src/ThreadPool.h"

namespace {
std::atomic<uint64_t> gObjects{0};
}

LocalBinder::LocalBinder(const AIBinder_Class& clazz, void* userData)
    : AIBinder(&clazz), mNumber(++gObjects), mClazz(clazz), mUserData(userData) {}

binder_status_t LocalBinder::transact(transaction_code_t code, const AParcel& in, AParcel* out) {
    if (code >= FIRST_CALL_TRANSACTION && code <= LAST_CALL_TRANSACTION) {
        if (!in.checkInterfaceToken(mClazz.descriptor)) return STATUS_BAD_TYPE;
        return knownStatus(callOut(
            "onTransact", [&] { return mClazz.onTransact(this, code, &in, out); },
            STATUS_UNKNOWN_ERROR));
    }
    switch (code) {
        case kPingTransaction: return STATUS_OK;
        case kInterfaceTransaction: return out->writeString(mClazz.descriptor);
        case kDumpTransaction: return withoutThrowing([&] { return dump(in); }, STATUS_NO_MEMORY);
        default: return STATUS_UNKNOWN_TRANSACTION;
    }
}

binder_status_t LocalBinder::dump(const AParcel& in) {
    int fd = -1;
    int32_t count = 0;
    binder_status_t status = in.readDescriptor(&fd);
    if (status == STATUS_OK) status = in.readLength(sizeof(int32_t), &count);
    if (status != STATUS_OK) return status;
    std::vector<std::string> texts(static_cast<size_t>(std::max(count, 0)));
    std::vector<const char*> args;
    for (std::string& text : texts) {
        status = in.readString(&text);
        if (status != STATUS_OK) return status;
        args.push_back(text.c_str());
    }
    return knownStatus(dump(fd, args.data(), static_cast<uint32_t>(args.size())));
}

binder_status_t LocalBinder::dump(int fd, const char** args, uint32_t numArgs) {
    if (mClazz.onDump == nullptr) return STATUS_OK;
    return callOut(
        "onDump", [&] { return mClazz.onDump(this, fd, args, numArgs); }, STATUS_UNKNOWN_ERROR);
}

void LocalBinder::postOneway(std::unique_ptr<Work> call) {
    {
        const lum::utils::MutexLock lock(mOnewayLock);
        if (mOnewayRunning) {
            mOneway.push(std::move(call));
            return;
        }
        mOnewayRunning = true;
    }
    ThreadPool::instance().post(std::move(call));
}

void LocalBinder::postNextOneway() {
    std::unique_ptr<Work> next;
    {
        const lum::utils::MutexLock lock(mOnewayLock);
        next = mOneway.pop();
        mOnewayRunning = next != nullptr;
    }
    // Through the pool, so that an object with many calls does not keep a thread from the others.
    if (next != nullptr) ThreadPool::instance().post(std::move(next));
}

void LocalBinder::onLastStrong() {
    callOut("onDestroy", [this] { mClazz.onDestroy(mUserData); });
}

bool LocalBinder::isOfInterface(const std::string& descriptor) {
    return descriptor == mClazz.descriptor;
}
