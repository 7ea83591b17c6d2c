// SPDX-License-Identifier: Apache-2.0
#include "tools/emulator/ServiceThread.h"

#include <future>
#include <memory>
#include <utility>

ServiceThread::ServiceThread() : mThread([this] { serve(); }) {}

ServiceThread::~ServiceThread() {
    stop();
}

bool ServiceThread::run(const std::function<void()>& task) {
    // Shared: the thread is not quite through with it when the result is there.
    const auto work = std::make_shared<std::packaged_task<void()>>(task);
    std::future<void> done = work->get_future();
    if (!push([work] { (*work)(); })) return false;
    done.get();
    return true;
}

void ServiceThread::post(std::function<void()> task) {
    (void)push(std::move(task));
}

void ServiceThread::stop() {
    {
        const lum::utils::MutexLock guard(mLock);
        mStopped = true;
        mChanged.notifyOne();
    }
    if (mThread.joinable()) mThread.join();
}

bool ServiceThread::push(std::function<void()> task) {
    const lum::utils::MutexLock guard(mLock);
    if (mStopped) return false;
    mTasks.push_back(std::move(task));
    mChanged.notifyOne();
    return true;
}

void ServiceThread::serve() {
    lum::utils::MutexLock guard(mLock);
    for (;;) {
        if (!mTasks.empty()) {
            const std::function<void()> task = std::move(mTasks.front());
            mTasks.pop_front();
            guard.unlock();
            task();
        } else if (mStopped) {
            return;
        } else {
            const auto next = mTimeline.next();
            if (!next) {
                mChanged.wait(mLock);
            } else {
                mChanged.waitUntil(mLock, *next);
            }
            guard.unlock();
        }
        // Also when tasks keep coming: what is due does not wait for a pause between them.
        mTimeline.run();
        guard.lock();
    }
}
