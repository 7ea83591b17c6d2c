// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "platform/linux/src/Binder.h"
#include "platform/linux/src/Stability.h"
#include "platform/linux/src/Work.h"
#include "utils/Mutex.h"

// An object of this process.
class LocalBinder final : public AIBinder {
  public:
    // userData: what the class's onCreate made; handed to onDestroy at the end.
    LocalBinder(const AIBinder_Class& clazz, void* userData);

    LocalBinder* asLocal() override { return this; }
    // No other object of this process has it, before or after.
    uint64_t number() const { return mNumber; }
    void* userData() const { return mUserData; }

    // The vendor's, since this system is built for no other partition, unless another was set
    // before anybody else had the object.
    StabilityLevel stability() const { return mStability; }
    void setStability(StabilityLevel level) { mStability = level; }

    // Carries out one call on this thread: a method of the interface, whose token `in` must start
    // with, or one of the calls that every object answers.
    // out: filled with the reply. Returns as the class's onTransact does, if that is a known
    // status; STATUS_BAD_TYPE for a wrong token, STATUS_UNKNOWN_TRANSACTION for a code outside the
    // methods that means nothing to objects.
    binder_status_t transact(transaction_code_t code, const AParcel& in, AParcel* out);

    // As the class's onDump, which need not be there.
    binder_status_t dump(int fd, const char** args, uint32_t numArgs);

    // Queues a one-way call for the thread pool, which gets the calls of one object in order and
    // one at a time. The work must call postNextOneway() at its end.
    void postOneway(std::unique_ptr<Work> call);
    void postNextOneway();

  private:
    ~LocalBinder() override = default;
    void onLastStrong() override;
    bool isOfInterface(const std::string& descriptor) override;
    binder_status_t dump(const AParcel& in);

    const uint64_t mNumber;
    const AIBinder_Class& mClazz;
    void* const mUserData;
    StabilityLevel mStability = kVendor;

    lum::utils::Mutex mOnewayLock;
    bool mOnewayRunning LUM_GUARDED_BY(mOnewayLock) = false;
    WorkQueue mOneway LUM_GUARDED_BY(mOnewayLock);
};
