// SPDX-License-Identifier: Apache-2.0
#include "tests/utils/SystemCalls.h"

#include <fcntl.h>
#include <pthread.h>

#include <cerrno>
#include <future>
#include <memory>
#include <utility>

SystemCalls gSystemCalls;

namespace {

// For the calling thread's next mutex that it locks, and the next that it finds held.
thread_local std::function<void()>* tBeforeLock = nullptr;
thread_local std::function<void()>* tBlocked = nullptr;

template <typename Function, typename... Arguments>
auto call(const std::function<Function>& replacement, Function* system, Arguments... arguments) {
    return replacement ? replacement(arguments...) : system(arguments...);
}

}  // namespace

extern "C" {
int __real_pthread_mutex_lock(pthread_mutex_t* mutex);

int __wrap_epoll_create(int size) {
    return call(gSystemCalls.epollCreate, __real_epoll_create, size);
}
int __wrap_epoll_ctl(int epollFd, int op, int fd, epoll_event* event) {
    return call(gSystemCalls.epollCtl, __real_epoll_ctl, epollFd, op, fd, event);
}
int __wrap_epoll_wait(int epollFd, epoll_event* events, int max, int timeout) {
    return call(gSystemCalls.epollWait, __real_epoll_wait, epollFd, events, max, timeout);
}
int __wrap_eventfd(unsigned int count, int flags) {
    return call(gSystemCalls.eventFd, __real_eventfd, count, flags);
}
ssize_t __wrap_read(int fd, void* buffer, size_t size) {
    return call(gSystemCalls.read, __real_read, fd, buffer, size);
}
ssize_t __wrap_write(int fd, const void* buffer, size_t size) {
    return call(gSystemCalls.write, __real_write, fd, buffer, size);
}
int __wrap_close(int fd) {
    return call(gSystemCalls.close, __real_close, fd);
}
int __wrap_clock_gettime(clockid_t clock, timespec* now) {
    return call(gSystemCalls.clockGettime, __real_clock_gettime, clock, now);
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
        (*std::exchange(tBlocked, nullptr))();
    }
    return __real_pthread_mutex_lock(mutex);
}
}  // extern "C"

RunUntilBlocked::RunUntilBlocked(std::function<void()> action) {
    // Shared: the thread may still be inside set_value when this has returned.
    const auto blocked = std::make_shared<std::promise<bool>>();
    std::future<bool> outcome = blocked->get_future();
    mThread = std::thread([blocked, action = std::move(action)] {
        std::function<void()> report = [&] { blocked->set_value(true); };
        tBlocked = &report;
        action();
        if (std::exchange(tBlocked, nullptr) != nullptr) blocked->set_value(false);
    });
    mBlocked = outcome.get();
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
