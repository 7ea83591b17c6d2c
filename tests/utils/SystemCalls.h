// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/epoll.h>
#include <sys/types.h>

#include <cstddef>
#include <ctime>
#include <functional>
#include <thread>

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
}

// What takes the place of system calls made by code linked into the test program. An empty function
// means the system's own. To be set while no other thread makes such calls.
struct SystemCalls {
    std::function<decltype(__real_epoll_create)> epollCreate;
    std::function<decltype(__real_epoll_ctl)> epollCtl;
    std::function<decltype(__real_epoll_wait)> epollWait;
    std::function<decltype(__real_eventfd)> eventFd;
    std::function<decltype(__real_read)> read;
    std::function<decltype(__real_write)> write;
    std::function<decltype(__real_close)> close;
    std::function<decltype(__real_clock_gettime)> clockGettime;

    // The system's own calls, for use inside replacements.
    static constexpr auto& realEpollCreate = __real_epoll_create;
    static constexpr auto& realEpollCtl = __real_epoll_ctl;
    static constexpr auto& realEpollWait = __real_epoll_wait;
    static constexpr auto& realEventFd = __real_eventfd;
    static constexpr auto& realRead = __real_read;
    static constexpr auto& realWrite = __real_write;
};

extern SystemCalls gSystemCalls;

// Gives all system calls back to the system when it goes.
class RestoreSystemCalls {
  public:
    RestoreSystemCalls() = default;
    ~RestoreSystemCalls() { gSystemCalls = {}; }
    RestoreSystemCalls(const RestoreSystemCalls&) = delete;
    RestoreSystemCalls& operator=(const RestoreSystemCalls&) = delete;
};

// Runs action on a thread of its own. The constructor returns when the action has ended or has
// found a mutex held by another thread, whichever comes first; the destructor waits for its end.
class RunUntilBlocked {
  public:
    explicit RunUntilBlocked(std::function<void()> action);
    ~RunUntilBlocked() { mThread.join(); }
    RunUntilBlocked(const RunUntilBlocked&) = delete;
    RunUntilBlocked& operator=(const RunUntilBlocked&) = delete;

    bool blocked() const { return mBlocked; }

  private:
    bool mBlocked = false;
    std::thread mThread;
};

// While it lives, calls an action before each mutex that the calling thread locks, but not for
// those that the action itself locks.
class BeforeEachLock {
  public:
    explicit BeforeEachLock(std::function<void()> action);
    ~BeforeEachLock();
    BeforeEachLock(const BeforeEachLock&) = delete;
    BeforeEachLock& operator=(const BeforeEachLock&) = delete;

  private:
    std::function<void()> mAction;
};

// Whether fd is open.
bool isOpen(int fd);
