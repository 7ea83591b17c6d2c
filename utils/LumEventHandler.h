// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <memory>
#include <queue>
#include <string>
#include <utility>

#include "utils/EventManager.h"
#include "utils/Log.h"
#include "utils/LumTimer.h"
#include "utils/Mutex.h"

namespace lum::utils {

// A queue of values posted on any thread and handled, in order, on the thread that runs the event
// manager. T is copied, nothing else; a shared pointer to an event as a rule.
template <typename T>
class LumEventHandler {
  public:
    // Registers the queue's descriptor with em; isRegistered says whether that succeeded.
    // em, timer: not owned. em must live until detach or the destructor; the timer is kept for
    // derived classes.
    // name: for the log.
    LumEventHandler(EventManager& em, LumTimer& timer, const std::string& name);

    // Detaches, and drops what is still queued unhandled. The event manager must not be running
    // callbacks, or this must be its thread outside handleEvent.
    virtual ~LumEventHandler();

    // Handles one posted value. Runs on the event manager's thread with nothing locked, so it may
    // post. An exception leaves the event manager's processEvents; the values behind it wait for
    // the next.
    virtual void handleEvent(T value) = 0;

    LumEventHandler(const LumEventHandler&) = delete;
    LumEventHandler& operator=(const LumEventHandler&) = delete;

    // Queues a value for handleEvent. Any thread. After detach it is dropped.
    void postEvent(T value);

    // Whether the event manager watches the queue: its descriptor was made and accepted, and detach
    // has not been called. Any thread.
    bool isRegistered() const { return mState == State::kRegistered; }

    // Takes the queue out of the event manager, which is not touched again after this and may be
    // deleted. Any thread, any number of times, one at a time; the event manager must not be
    // running callbacks.
    void detach();

    // The event callback: handles what is queued. data: the LumEventHandler<T>.
    static void cb(int fd, void* data);

  protected:
    LumTimer& mTimer;
    EventManager& mEventManager;

  private:
    friend class LumEventHandlerPeer;  // tests: where its members lie

    enum class State { kUnregistered, kRegistered, kDetached };

    // What a logged event is known by: the object pointed to, or the value itself.
    template <typename U>
    static const void* addressOf(const std::shared_ptr<U>& event) {
        return event.get();
    }
    template <typename U>
    static const void* addressOf(U* const& event) {
        return event;
    }
    template <typename U>
    static const void* addressOf(const U& event) {
        return std::addressof(event);
    }

    void drain(int fd);

    int mEventFd = -1;
    Mutex mQueueLock;
    std::queue<T> mQueue LUM_GUARDED_BY(mQueueLock);
    std::atomic<State> mState{State::kUnregistered};
};

template <typename T>
LumEventHandler<T>::LumEventHandler(EventManager& em, LumTimer& timer, const std::string& name)
    : mTimer(timer), mEventManager(em) {
    // Not before the members are made: the queue's need memory, and nobody would close it.
    mEventFd = eventfd(0, EFD_SEMAPHORE | EFD_NONBLOCK);
    fcntl(mEventFd, F_SETFD, FD_CLOEXEC);
    LUM_LOGD("LumEventHandler ctor");
    try {
        if (em.addEventHandler(mEventFd, cb, this, nullptr, EPOLLIN)) mState = State::kRegistered;
    } catch (...) {
        detach();
        throw;
    }
    LUM_LOGD("LumEventHandler: ctor fd[%d] name[%s] addr[%p]", mEventFd, name.c_str(),
             static_cast<void*>(this));
}

template <typename T>
LumEventHandler<T>::~LumEventHandler() {
    LUM_LOGD("dtor");
    detach();
}

template <typename T>
void LumEventHandler<T>::postEvent(T value) {
    if (mState == State::kDetached) return;
    LUM_LOGD("LumEventHandler postEvent start for fd[%d]", mEventFd);
    LUM_LOGD("Wakelock evt start %p %p", static_cast<void*>(this), addressOf(value));
    const MutexLock lock(mQueueLock);
    // Again, under the lock that detach takes: the descriptor must not be written once it is given
    // up.
    if (mState == State::kDetached) return;
    mQueue.push(std::move(value));
    const uint64_t one = 1;
    const ssize_t written = write(mEventFd, &one, sizeof one);
    if (written != sizeof one) {
        LUM_LOGE("Error in writing rv: %d, error: %s, for fd[%d]", static_cast<int>(written),
                 strerror(errno), mEventFd);
    }
}

template <typename T>
void LumEventHandler<T>::detach() {
    State before;
    {
        const MutexLock lock(mQueueLock);
        before = mState.exchange(State::kDetached);
    }
    if (before == State::kRegistered) {
        mEventManager.removeEventHandler(mEventFd, true, nullptr, nullptr);
    } else if (before == State::kUnregistered && mEventFd != -1) {
        close(mEventFd);  // the event manager never took it
    }
}

template <typename T>
void LumEventHandler<T>::cb(int fd, void* data) {
    LUM_LOGD("LumEventHandler cb start");
    static_cast<LumEventHandler*>(data)->drain(fd);
    LUM_LOGD("LumEventHandler cb end");
}

template <typename T>
void LumEventHandler<T>::drain(int fd) {
    uint64_t count = 0;
    MutexLock lock(mQueueLock);
    while (read(fd, &count, sizeof count) == sizeof count) {
        if (mQueue.empty()) {
            LUM_LOGE("More fd reads than queue events. SHOULD NEVER HAPPEN. fd=%d", fd);
            return;
        }
        {
            const T value = mQueue.front();
            mQueue.pop();
            // Nothing of the value's owner runs with the lock held, its destructor included.
            lock.unlock();
            handleEvent(value);
            LUM_LOGD("Wakelock evt end %p %p", static_cast<void*>(this), addressOf(value));
        }
        lock.lock();
    }
    if (errno != EAGAIN) {
        // The error stands behind fd= and the descriptor behind err=: what reads these logs expects
        // it so.
        LUM_LOGE("CB thread woken, but fd read failed. SHOULD NEVER HAPPEN. fd=%d err=%d", errno,
                 fd);
    }
}

}  // namespace lum::utils
