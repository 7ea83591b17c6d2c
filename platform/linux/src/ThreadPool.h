// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <memory>

#include "platform/linux/src/WorkLanes.h"
#include "utils/Mutex.h"

// The threads of a process that wait for what other processes send (IoLoop.h), and carry out what
// they cause here: their calls, their deaths, the references they give up. All are alike, but one
// always waits. A process whose calls do not come to an end keeps its share of the threads
// (WorkLanes.h), not all. Every function may be called on any thread.
class ThreadPool {
  public:
    // Never destroyed: its threads run until the process ends.
    static ThreadPool& instance();

    // Makes the thread that waits, if there is none. Returns 0 or an error number.
    int startWaiting();

    // Queues work. It runs when its lane has its turn and a thread is free, on a new one if none is
    // and more are allowed; none is before start(). Threads that are no longer needed end, all but
    // one besides the one that waits.
    void post(std::unique_ptr<Work> work);

    // Makes the first thread for work and allows 15 more. Later calls do nothing.
    void start();

  private:
    static void* threadMain(void* pool);
    // Whether work waits for a thread, and one more is allowed.
    bool wantsThread() const LUM_REQUIRES(mLock);
    // Whether a thread that waits is to be woken: the one that posts may look at the queue itself.
    bool wantsWake() const LUM_REQUIRES(mLock);
    // Whether enough threads wait without this one.
    bool mayEnd() const LUM_REQUIRES(mLock);
    // These release mLock meanwhile.
    // Carries out work, of which there is some.
    void serveOne() LUM_REQUIRES(mLock);
    // Waits until there may be work, and has one source at most do its part.
    void waitOnce() LUM_REQUIRES(mLock);
    // Has work carried out whose turn it is, by a free thread or by a new one.
    void dispatch(std::unique_ptr<Work> work) LUM_REQUIRES(mLock);
    // Has everything carried out that has waited and whose turn it is now.
    void dispatchWaiting() LUM_REQUIRES(mLock);
    // Makes one more thread. Returns 0 or an error number.
    int addThread() LUM_REQUIRES(mLock);
    // Makes the threads that are wanted. One that is refused is tried again later if it is still
    // wanted.
    void addWanted() LUM_REQUIRES(mLock);

    lum::utils::Mutex mLock;
    WorkLanes mLanes LUM_GUARDED_BY(mLock);
    WorkQueue mQueue LUM_GUARDED_BY(mLock);  // what has its turn
    uint32_t mQueued LUM_GUARDED_BY(mLock) = 0;
    // Counts those about to start, too: a burst of work must not make more threads than it needs.
    uint32_t mThreads LUM_GUARDED_BY(mLock) = 0;
    uint32_t mStarting LUM_GUARDED_BY(mLock) = 0;  // not known yet whether they will start
    // In IoLoop::wait(). Never more than two, so that one wake() is enough.
    uint32_t mWaiting LUM_GUARDED_BY(mLock) = 0;
    uint32_t mBusy LUM_GUARDED_BY(mLock) = 0;  // with work
    bool mStarted LUM_GUARDED_BY(mLock) = false;
    // A thread was refused, which has been logged.
    bool mRefused LUM_GUARDED_BY(mLock) = false;
};
