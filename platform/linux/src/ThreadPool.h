// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>

#include "platform/linux/src/WorkLanes.h"

// The threads that carry out what other processes cause here: their calls, their deaths, the
// references they give up. A process whose calls do not come to an end keeps its share of them
// (WorkLanes.h), not all. Every function may be called on any thread.
class ThreadPool {
  public:
    // Never destroyed: its threads run until the process ends.
    static ThreadPool& instance();

    // Queues work. It runs when its lane has its turn and a thread is free, on a new one if none is
    // and more are allowed; none is before start() or join(). Threads that are no longer needed
    // end, all but one.
    void post(std::unique_ptr<Work> work);

    // Makes the first thread and allows more. Later calls do nothing.
    void start();
    bool started() const;
    // count: how many threads may be added beyond the first.
    void setMaxExtraThreads(uint32_t count);
    // Makes the calling thread one of the pool; never returns.
    [[noreturn]] void join();

  private:
    class RetryTimer;

    static void* threadMain(void* pool);
    // With mLock held: whether work waits for a thread, and one more is allowed.
    bool wantsThread() const;
    // These are called with mLock held by `guard`, which is let go meanwhile.
    // Waits for work and carries it out, as one of the free threads, before and after.
    void serveOne(std::unique_lock<std::mutex>& guard);
    // Has work carried out whose turn it is.
    void dispatch(std::unique_ptr<Work> work, std::unique_lock<std::mutex>& guard);
    // Has everything carried out that has waited and whose turn it is now.
    void dispatchWaiting(std::unique_lock<std::mutex>& guard);
    // The number of threads that there are, or may be, has changed.
    void countThreads(std::unique_lock<std::mutex>& guard);
    // Makes one more thread. One that is refused is tried again later if it is still wanted.
    void addThread(std::unique_lock<std::mutex>& guard);
    void retryLater(std::unique_lock<std::mutex>& guard);
    // Tries again. Returns whether no thread is wanted any more.
    bool retry();

    mutable std::mutex mLock;
    std::condition_variable mPosted;
    WorkLanes mLanes;
    WorkQueue mQueue;  // what has its turn
    uint32_t mQueued = 0;
    // Threads without work, among them those about to start: a burst of work must not make more
    // threads than it needs.
    uint32_t mFree = 0;
    uint32_t mStarting = 0;  // about to start; whether they will is not known yet
    uint32_t mThreads = 0;   // made here, not joined
    uint32_t mJoined = 0;
    uint32_t mMaxExtra = 15;
    bool mStarted = false;
    bool mRetrying = false;  // a thread was refused, and a timer runs to try again
};
