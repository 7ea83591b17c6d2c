// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <android/binder_ibinder.h>

#include <cstdint>
#include <memory>
#include <unordered_map>
#include <vector>

#include "platform/linux/src/Parcel.h"
#include "platform/linux/src/Work.h"
#include "utils/Mutex.h"

class Link;
class PendingCall;

// The blocking calls under way in this process, over all links: the chain of calls that an incoming
// one is nested in may lead through any of them. Every function may be called on any thread.
class PendingCalls {
  public:
    // Never destroyed: threads may wait when the process ends.
    static PendingCalls& instance();

    // Ends the call with this id over this link.
    // reply: taken if there is such a call.
    // Returns whether there was.
    bool finish(const Link* link, uint64_t id, binder_status_t status,
                std::unique_ptr<AParcel>* reply);
    // Ends all calls over a link.
    void failAll(const Link* link, binder_status_t status) noexcept;

    // Hands an incoming call to the innermost thread here that waits in its chain.
    // chain: as CallContext::chain; work: taken if such a thread was found.
    // Returns whether it was.
    bool runNested(const std::vector<uint64_t>& chain, std::unique_ptr<Work>* work);

  private:
    friend class PendingCall;

    static lum::utils::Mutex sLock;
    std::unordered_map<uint64_t, PendingCall*> mCalls LUM_GUARDED_BY(sLock);
    uint64_t mNextId LUM_GUARDED_BY(sLock) = 0;
};

// A blocking call that a thread of this process makes, on that thread's stack. It can be ended from
// its construction on.
class PendingCall {
  public:
    // May throw std::bad_alloc.
    explicit PendingCall(const Link* link);
    ~PendingCall();
    PendingCall(const PendingCall&) = delete;
    PendingCall& operator=(const PendingCall&) = delete;

    // Differs from those of all other processes too.
    uint64_t id() const { return mId; }

    // Waits until the call has ended, and meanwhile carries out on this thread what is nested in
    // it. reply: set to the reply. Returns the call's status.
    binder_status_t wait(std::unique_ptr<AParcel>* reply);

  private:
    friend class PendingCalls;

    // Ends the call. The waiting thread is to be notified, which may end the call's life at once.
    void end(binder_status_t status) LUM_REQUIRES(PendingCalls::sLock);

    const Link* const mLink;
    uint64_t mId = 0;
    // Shared, so that it can be notified without the lock, when the call may be gone.
    const std::shared_ptr<lum::utils::Condition> mChanged;
    bool mDone LUM_GUARDED_BY(PendingCalls::sLock) = false;
    binder_status_t mStatus LUM_GUARDED_BY(PendingCalls::sLock) = STATUS_OK;
    std::unique_ptr<AParcel> mReply LUM_GUARDED_BY(PendingCalls::sLock);
    WorkQueue mNested LUM_GUARDED_BY(PendingCalls::sLock);
};
