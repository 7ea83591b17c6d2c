// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/src/ThreadPool.h"

#include <sys/timerfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "platform/linux/src/CallOut.h"
#include "platform/linux/src/IoThread.h"
#include "platform/linux/src/LateCommand.h"
#include "platform/linux/src/Threads.h"
#include "platform/linux/src/UniqueFd.h"
#include "utils/Log.h"
#include "utils/NoDestroy.h"

using lum::utils::MutexLock;

namespace {

constexpr uint32_t kMaxThreads = 16;
constexpr long kRetryNs = 100'000'000;

NoDestroy<ThreadPool> gPool;

// Returns none if there is no descriptor for it.
UniqueFd startTimer() {
    UniqueFd timer(timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC));
    itimerspec period{};
    period.it_value.tv_nsec = kRetryNs;
    period.it_interval.tv_nsec = kRetryNs;
    if (timer.valid() && timerfd_settime(timer.get(), 0, &period, nullptr) == 0) return timer;
    LUM_LOGE("binder: no timer to try for a thread again (%s)", strerror(errno));
    return {};
}

}  // namespace

// Ticks on the I/O thread while work waits for a thread that was refused.
class ThreadPool::RetryTimer final : public IoSource {
  public:
    RetryTimer(ThreadPool& pool, UniqueFd timer) : mPool(pool), mTimer(std::move(timer)) {}

    int fd() const { return mTimer.get(); }

    void onReady(uint32_t) override {
        uint64_t ticks = 0;
        if (read(mTimer.get(), &ticks, sizeof ticks) != sizeof ticks) return;
        if (mPool.retry()) IoThread::instance().remove(mTimer.get(), this);
    }

  private:
    ThreadPool& mPool;
    const UniqueFd mTimer;
};

ThreadPool& ThreadPool::instance() {
    return gPool.value;
}

void ThreadPool::post(std::unique_ptr<Work> work) {
    {
        const MutexLock lock(mLock);
        work = mLanes.enter(std::move(work));
        if (work == nullptr) return;
        dispatch(std::move(work));
    }
    // Not under the lock, which the thread that wakes needs at once.
    mPosted.notifyOne();
}

void ThreadPool::dispatch(std::unique_ptr<Work> work) {
    mQueue.push(std::move(work));
    ++mQueued;
    if (wantsThread()) addThread();
}

void ThreadPool::dispatchWaiting() {
    while (std::unique_ptr<Work> work = mLanes.next()) {
        dispatch(std::move(work));
        mPosted.notifyOne();
    }
}

void ThreadPool::start() {
    const MutexLock lock(mLock);
    if (mStarted) return;
    mStarted = true;
    addThread();
    mLanes.setThreads(kMaxThreads);
    dispatchWaiting();
}

bool ThreadPool::wantsThread() const {
    return mStarted && mQueued > mFree && mThreads < kMaxThreads;
}

void ThreadPool::addThread() {
    ++mThreads;
    ++mFree;
    ++mStarting;
    mLock.unlock();
    const int error = startDetachedThread(&threadMain, this);
    mLock.lock();
    if (error == 0) return;

    --mThreads;
    --mFree;
    --mStarting;
    // Said and arranged once, not at each tick.
    if (mRetrying) return;
    LUM_LOGE("binder: no thread for incoming calls (%s), tried again later", strerror(error));
    if (wantsThread()) retryLater();
}

void ThreadPool::retryLater() {
    mRetrying = true;
    mLock.unlock();
    const bool waiting = withoutThrowing(
        [this] {
            UniqueFd fd = startTimer();
            if (!fd.valid()) return false;
            const auto timer = std::make_shared<RetryTimer>(*this, std::move(fd));
            return IoThread::instance().add(timer->fd(), timer);
        },
        false);
    mLock.lock();
    // The next work tries again then.
    if (!waiting) mRetrying = false;
}

bool ThreadPool::retry() {
    const MutexLock lock(mLock);
    if (wantsThread()) addThread();
    mRetrying = wantsThread();
    return !mRetrying;
}

void* ThreadPool::threadMain(void* pool) {
    nameBinderThread();
    auto& self = *static_cast<ThreadPool*>(pool);
    const MutexLock lock(self.mLock);
    --self.mStarting;
    // A process at rest keeps one thread, however many a burst has needed: this one goes when
    // another is free. One that is only about to start does not count: it may be refused.
    while (!self.mQueue.empty() || self.mFree <= self.mStarting + 1) self.serveOne();
    --self.mFree;
    --self.mThreads;
    return nullptr;
}

void ThreadPool::serveOne() {
    while (mQueue.empty()) mPosted.wait(mLock);
    std::unique_ptr<Work> work = mQueue.pop();
    --mQueued;
    --mFree;
    std::shared_ptr<WorkLane> lane = work->lane();
    mLock.unlock();
    work->run();
    work.reset();
    LateCommand::runQueued();
    mLock.lock();
    ++mFree;
    mLanes.leave(lane);
    dispatchWaiting();
    // With the last hold on the account of a process that has gone, memory may be given back, which
    // takes a while.
    if (lane.use_count() != 1) return;
    mLock.unlock();
    lane.reset();
    mLock.lock();
}
