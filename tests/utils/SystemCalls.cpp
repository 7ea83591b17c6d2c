// SPDX-License-Identifier: Apache-2.0
#include "tests/utils/SystemCalls.h"

#include <fcntl.h>
#include <pthread.h>

#include <cerrno>
#include <cstdlib>
#include <future>
#include <thread>
#include <utility>

SystemCalls gSystemCalls;

namespace {

thread_local std::function<void()>* tBeforeLock = nullptr;
thread_local std::function<void()>* tBlocked = nullptr;

}  // namespace

// The linker turns every call of NAME into one of __wrap_NAME, and __real_NAME into the system's.
extern "C" {
int __real_epoll_create(int size);
int __real_epoll_ctl(int epollFd, int op, int fd, epoll_event* event);
int __real_epoll_wait(int epollFd, epoll_event* events, int max, int timeout);
int __real_eventfd(unsigned int count, int flags);
ssize_t __real_read(int fd, void* buffer, size_t size);
ssize_t __real_write(int fd, const void* buffer, size_t size);
int __real_close(int fd);
int __real_clock_gettime(clockid_t clock, timespec* now);
int __real_pthread_mutex_lock(pthread_mutex_t* mutex);

int __wrap_epoll_create(int size) {
    return gSystemCalls.epollCreate ? gSystemCalls.epollCreate(size) : __real_epoll_create(size);
}

int __wrap_epoll_ctl(int epollFd, int op, int fd, epoll_event* event) {
    return gSystemCalls.epollCtl ? gSystemCalls.epollCtl(epollFd, op, fd, event)
                                 : __real_epoll_ctl(epollFd, op, fd, event);
}

int __wrap_epoll_wait(int epollFd, epoll_event* events, int max, int timeout) {
    return gSystemCalls.epollWait ? gSystemCalls.epollWait(epollFd, events, max, timeout)
                                  : __real_epoll_wait(epollFd, events, max, timeout);
}

int __wrap_eventfd(unsigned int count, int flags) {
    return gSystemCalls.eventFd ? gSystemCalls.eventFd(count, flags) : __real_eventfd(count, flags);
}

ssize_t __wrap_read(int fd, void* buffer, size_t size) {
    return gSystemCalls.read ? gSystemCalls.read(fd, buffer, size) : __real_read(fd, buffer, size);
}

ssize_t __wrap_write(int fd, const void* buffer, size_t size) {
    return gSystemCalls.write ? gSystemCalls.write(fd, buffer, size)
                              : __real_write(fd, buffer, size);
}

int __wrap_close(int fd) {
    return gSystemCalls.close ? gSystemCalls.close(fd) : __real_close(fd);
}

int __wrap_clock_gettime(clockid_t clock, timespec* now) {
    return gSystemCalls.clockGettime ? gSystemCalls.clockGettime(clock, now)
                                     : __real_clock_gettime(clock, now);
}

int __wrap_pthread_mutex_lock(pthread_mutex_t* mutex) {
    if (tBeforeLock != nullptr) {
        std::function<void()>* const action = std::exchange(tBeforeLock, nullptr);
        (*action)();
        tBeforeLock = action;
    }
    if (tBlocked != nullptr) {
        const int result = pthread_mutex_trylock(mutex);
        if (result != EBUSY) return result;
        std::function<void()>* const blocked = std::exchange(tBlocked, nullptr);
        (*blocked)();
    }
    return __real_pthread_mutex_lock(mutex);
}
}  // extern "C"

int SystemCalls::realEpollCreate(int size) {
    return __real_epoll_create(size);
}
int SystemCalls::realEpollCtl(int epollFd, int op, int fd, epoll_event* event) {
    return __real_epoll_ctl(epollFd, op, fd, event);
}
int SystemCalls::realEpollWait(int epollFd, epoll_event* events, int max, int timeout) {
    return __real_epoll_wait(epollFd, events, max, timeout);
}
int SystemCalls::realEventFd(unsigned int count, int flags) {
    return __real_eventfd(count, flags);
}
ssize_t SystemCalls::realRead(int fd, void* buffer, size_t size) {
    return __real_read(fd, buffer, size);
}
ssize_t SystemCalls::realWrite(int fd, const void* buffer, size_t size) {
    return __real_write(fd, buffer, size);
}
int SystemCalls::realClose(int fd) {
    return __real_close(fd);
}
int SystemCalls::realClockGettime(clockid_t clock, timespec* now) {
    return __real_clock_gettime(clock, now);
}

struct RunUntilBlocked::State {
    std::promise<bool> blocked;
    std::function<void()> report;
    bool wasBlocked = false;
    std::thread thread;
};

RunUntilBlocked::RunUntilBlocked(std::function<void()> action) : mState(new State) {
    std::future<bool> outcome = mState->blocked.get_future();
    mState->thread = std::thread([state = mState, action = std::move(action)] {
        bool told = false;
        state->report = [state, &told] {
            told = true;
            state->blocked.set_value(true);
        };
        tBlocked = &state->report;
        action();
        tBlocked = nullptr;
        if (!told) state->blocked.set_value(false);
    });
    mState->wasBlocked = outcome.get();
}

RunUntilBlocked::~RunUntilBlocked() {
    mState->thread.join();
    delete mState;
}

bool RunUntilBlocked::blocked() const {
    return mState->wasBlocked;
}

BeforeEachLock::BeforeEachLock(std::function<void()> action) : mAction(std::move(action)) {
    tBeforeLock = &mAction;
}

BeforeEachLock::~BeforeEachLock() {
    tBeforeLock = nullptr;
}

bool isOpen(int fd) {
    return fcntl(fd, F_GETFD) != -1;
}
