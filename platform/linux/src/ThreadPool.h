// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <memory>

#include "platform/linux/src/WorkLanes.h"
#include "utils/Mutex.h"

// The threads that carry out what other processes cause here: their calls, their deaths, the
// references they give up. A process whose calls do not come to an end keeps its share of them
// (WorkLanes.h), not all. Every function may be called on any thread.
class ThreadPool {
  public:
    // Never destroyed: its threads run until the process ends.
    static ThreadPool& instance();

    // Queues work. It runs when its lane has its turn and a thread is free, on a new one if none is
    // and more are allowed; none is before start(). Threads that are no longer needed
    // end, all but one.
    void post(std::unique_ptr<Work> work);

    // Makes the first thread and allows 15 more. Later calls do nothing.
    void start();

  private:
    class RetryTimer;

    static void* threadMain(void* pool);
    // Whether work waits for a thread, and one more is allowed.
    bool wantsThread() const LUM_REQUIRES(mLock);
    // These release mLock meanwhile.
    // Waits for work and carries it out, as one of the free threads, before and after.
    void serveOne() LUM_REQUIRES(mLock);
    // Has work carried out whose turn it is, by a free thread that the caller notifies or by a new
    // one.
    void dispatch(std::unique_ptr<Work> work) LUM_REQUIRES(mLock);
    // Has everything carried out that has waited and whose turn it is now.
    void dispatchWaiting() LUM_REQUIRES(mLock);
    // Makes one more thread. One that is refused is tried again later if it is still wanted.
    void addThread() LUM_REQUIRES(mLock);
    void retryLater() LUM_REQUIRES(mLock);

    // Tries again. Returns whether no thread is wanted any more.
    bool retry();

    lum::utils::Mutex mLock;
    lum::utils::Condition mPosted;
    WorkLanes mLanes LUM_GUARDED_BY(mLock);
    WorkQueue mQueue LUM_GUARDED_BY(mLock);  // what has its turn
    uint32_t mQueued LUM_GUARDED_BY(mLock) = 0;
    // Threads without work, among them those about to start: a burst of work must not make more
    // threads than it needs.
    uint32_t mFree LUM_GUARDED_BY(mLock) = 0;
    uint32_t mStarting LUM_GUARDED_BY(mLock) = 0;  // not known yet whether they will start
    uint32_t mThreads LUM_GUARDED_BY(mLock) = 0;
    bool mStarted LUM_GUARDED_BY(mLock) = false;
    // A thread was refused, and a timer runs to try again.
    bool mRetrying LUM_GUARDED_BY(mLock) = false;
};
