// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/src/ThreadPool.h"

#include <pthread.h>

#include <cstring>
#include <utility>

#include "platform/linux/src/Threads.h"
#include "utils/Log.h"
#include "utils/NoDestroy.h"

namespace {
NoDestroy<ThreadPool> gPool;
}

ThreadPool& ThreadPool::instance() {
    return gPool.value;
}

void ThreadPool::post(std::unique_ptr<Work> work) {
    std::unique_lock<std::mutex> guard(mLock);
    mQueue.push(std::move(work));
    ++mQueued;
    mPosted.notify_one();
    if (mStarted && mQueued > mFree && mThreads < 1 + mMaxExtra) addThread(guard);
}

void ThreadPool::start() {
    std::unique_lock<std::mutex> guard(mLock);
    if (mStarted) return;
    mStarted = true;
    addThread(guard);
}

bool ThreadPool::started() const {
    const std::lock_guard<std::mutex> guard(mLock);
    return mStarted;
}

void ThreadPool::setMaxExtraThreads(uint32_t count) {
    const std::lock_guard<std::mutex> guard(mLock);
    mMaxExtra = count;
}

void ThreadPool::join() {
    std::unique_lock<std::mutex> guard(mLock);
    ++mFree;
    for (;;) {
        serveOne(guard);
        ++mFree;
    }
}

void ThreadPool::addThread(std::unique_lock<std::mutex>& guard) {
    ++mThreads;
    ++mFree;
    guard.unlock();
    const int error = startDetachedThread(&threadMain, this);
    if (error == 0) return;

    LUM_LOGE("binder: no thread for incoming calls (%s), tried again with the next work",
             strerror(error));
    guard.lock();
    --mThreads;
    --mFree;
}

void* ThreadPool::threadMain(void* pool) {
    pthread_setname_np(pthread_self(), "binder");  // for whoever looks at the process's threads
    auto& self = *static_cast<ThreadPool*>(pool);
    std::unique_lock<std::mutex> guard(self.mLock);
    for (;;) {
        self.serveOne(guard);
        // A process at rest keeps one thread, however many a burst has needed.
        if (self.mQueue.empty() && self.mFree > 0) break;
        ++self.mFree;
    }
    --self.mThreads;
    return nullptr;
}

void ThreadPool::serveOne(std::unique_lock<std::mutex>& guard) {
    mPosted.wait(guard, [this] { return !mQueue.empty(); });
    std::unique_ptr<Work> work = mQueue.pop();
    --mQueued;
    --mFree;
    guard.unlock();
    work->run();
    work.reset();
    guard.lock();
}
