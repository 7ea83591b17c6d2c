// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <deque>
#include <functional>
#include <thread>

#include "tools/emulator/Timeline.h"
#include "utils/Mutex.h"

// The one thread that does the service's work: what clients ask for, in the order in which it
// comes, and what is due in between. So nothing of the service's state needs a lock, and what
// happens depends on nothing but the order of requests and the time.
class ServiceThread {
  public:
    ServiceThread();
    // As stop().
    ~ServiceThread();
    ServiceThread(const ServiceThread&) = delete;
    ServiceThread& operator=(const ServiceThread&) = delete;

    // Has the thread run a task, and waits for its end. What the task throws is thrown here.
    // Returns false, and runs nothing, once the thread has been stopped. Any thread but this one.
    bool run(const std::function<void()>& task);

    // Has the thread run a task some time. The task must not throw, and is dropped once the thread
    // has been stopped. Any thread.
    void post(std::function<void()> task);

    // What the thread does later. Only for tasks and actions that run on it.
    Timeline& timeline() { return mTimeline; }

    // Ends the thread after the tasks that wait have run; what is left of the timeline is not
    // done. Not on the thread itself. May be called again.
    void stop();

  private:
    void serve();
    bool push(std::function<void()> task);

    Timeline mTimeline;
    lum::utils::Mutex mLock;
    lum::utils::Condition mChanged;
    std::deque<std::function<void()>> mTasks LUM_GUARDED_BY(mLock);
    bool mStopped LUM_GUARDED_BY(mLock) = false;
    std::thread mThread;
};
