// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/src/ThreadPool.h"

#include <cstring>
#include <utility>

#include "platform/linux/src/IoLoop.h"
#include "platform/linux/src/LateCommand.h"
#include "platform/linux/src/Threads.h"
#include "utils/Log.h"
#include "utils/NoDestroy.h"

using lum::utils::MutexLock;

namespace {

constexpr uint32_t kMaxThreads = 16;  // that carry out work

NoDestroy<ThreadPool> gPool;

// Whether this thread is in IoLoop::wait(), and looks at the queue next.
thread_local bool tLooksNext = false;

}  // namespace

ThreadPool& ThreadPool::instance() {
    return gPool.value;
}

int ThreadPool::startWaiting() {
    const MutexLock lock(mLock);
    // One that is about to start does not count: it may be refused. One too many ends again.
    return mThreads == mStarting ? addThread() : 0;
}

void ThreadPool::post(std::unique_ptr<Work> work) {
    bool wake = false;
    {
        const MutexLock lock(mLock);
        work = mLanes.enter(std::move(work));
        if (work == nullptr) return;
        dispatch(std::move(work));
        wake = wantsWake();
    }
    // Not under the lock, which the thread that wakes needs at once.
    if (wake) IoLoop::instance().wake();
}

void ThreadPool::dispatch(std::unique_ptr<Work> work) {
    mQueue.push(std::move(work));
    ++mQueued;
    addWanted();
}

void ThreadPool::dispatchWaiting() {
    while (std::unique_ptr<Work> work = mLanes.next()) {
        dispatch(std::move(work));
        if (wantsWake()) IoLoop::instance().wake();  // seldom, so under the lock
    }
}

void ThreadPool::start() {
    const MutexLock lock(mLock);
    if (mStarted) return;
    mStarted = true;
    addWanted();
    mLanes.setThreads(kMaxThreads);
    dispatchWaiting();
}

bool ThreadPool::wantsThread() const {
    return mStarted && mThreads <= kMaxThreads && (mThreads == 1 || mQueued + mBusy >= mThreads);
}

bool ThreadPool::wantsWake() const {
    return mWaiting > 1 && mQueued > (tLooksNext ? 1U : 0U);
}

bool ThreadPool::mayEnd() const {
    return mStarted ? mWaiting > 1 && mQueued == 0 : mWaiting > 0;
}

void ThreadPool::addWanted() {
    while (wantsThread()) {
        const int error = addThread();
        if (error == 0) {
            mRefused = false;
            continue;
        }
        // Said once, not at each tick.
        if (!mRefused) {
            LUM_LOGE("binder: no thread for incoming calls (%s), tried again later",
                     strerror(error));
        }
        mRefused = true;
        // A tick needs a thread to see it. Without one, the next work tries again.
        if (mThreads > mStarting || addThread() == 0) IoLoop::instance().tickLater();
        return;
    }
}

int ThreadPool::addThread() {
    int error = IoLoop::instance().open();
    if (error != 0) return error;
    ++mThreads;
    ++mStarting;
    mLock.unlock();
    error = startDetachedThread(&threadMain, this);
    mLock.lock();
    if (error == 0) return 0;
    --mThreads;
    --mStarting;
    return error;
}

void* ThreadPool::threadMain(void* pool) {
    nameBinderThread();
    auto& self = *static_cast<ThreadPool*>(pool);
    const MutexLock lock(self.mLock);
    --self.mStarting;
    while (!self.mayEnd()) {
        const bool mayServe = self.mStarted && self.mWaiting > 0 && self.mQueued > 0;
        mayServe ? self.serveOne() : self.waitOnce();
    }
    --self.mThreads;
    return nullptr;
}

void ThreadPool::waitOnce() {
    ++mWaiting;
    addWanted();
    mLock.unlock();
    tLooksNext = true;
    IoLoop::instance().wait();
    tLooksNext = false;
    mLock.lock();
    --mWaiting;
}

void ThreadPool::serveOne() {
    std::unique_ptr<Work> work = mQueue.pop();
    --mQueued;
    ++mBusy;
    std::shared_ptr<WorkLane> lane = work->lane();
    mLock.unlock();
    work->run();
    work.reset();
    LateCommand::runQueued();
    mLock.lock();
    --mBusy;
    mLanes.leave(lane);
    dispatchWaiting();
    // With the last hold on the account of a process that has gone, memory may be given back, which
    // takes a while.
    if (lane.use_count() != 1) return;
    mLock.unlock();
    lane.reset();
    mLock.lock();
}
