// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <android/binder_ibinder.h>

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <unordered_map>
#include <vector>

#include "platform/linux/src/Parcel.h"
#include "platform/linux/src/Work.h"

class Link;

// A blocking call that a thread of this process waits in. Lives on that thread's stack.
struct PendingCall {
    PendingCall(const Link* link, uint64_t id) : link(link), id(id) {}

    const Link* const link;
    const uint64_t id;  // differs from those of all other processes too
    size_t size = 0;    // what it counts over the link; set by the link, before the call is added

    // The rest is guarded by PendingCalls.
    std::condition_variable changed;
    bool done = false;
    binder_status_t status = STATUS_OK;
    std::unique_ptr<AParcel> reply;
    WorkQueue nested;
};

// The blocking calls under way in this process, over all links: the chain of calls that an incoming
// one is nested in may lead through any of them. Every function may be called on any thread.
class PendingCalls {
  public:
    // Never destroyed: threads may wait when the process ends.
    static PendingCalls& instance();

    uint64_t newId();

    // May throw std::bad_alloc.
    void add(PendingCall& call);
    // For a call that could not be sent.
    void remove(PendingCall& call) noexcept;

    // Waits until the call has ended, and meanwhile carries out on this thread what is nested in
    // it. reply: set to the reply. Returns the call's status.
    binder_status_t wait(PendingCall& call, std::unique_ptr<AParcel>* reply);

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
    void end(PendingCall& call, binder_status_t status);

    std::mutex mLock;
    std::unordered_map<uint64_t, PendingCall*> mCalls;
    uint64_t mNextId = 0;
};
