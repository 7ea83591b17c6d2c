// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/epoll.h>
#include <sys/types.h>

#include <cstddef>
#include <ctime>
#include <functional>

// What takes the place of system calls made by code linked into the test program. An empty function
// means the system's own. To be set while no other thread makes such calls.
struct SystemCalls {
    std::function<int(int size)> epollCreate;
    std::function<int(int epollFd, int op, int fd, epoll_event* event)> epollCtl;
    std::function<int(int epollFd, epoll_event* events, int max, int timeout)> epollWait;
    std::function<int(unsigned int count, int flags)> eventFd;
    std::function<ssize_t(int fd, void* buffer, size_t size)> read;
    std::function<ssize_t(int fd, const void* buffer, size_t size)> write;
    std::function<int(int fd)> close;
    std::function<int(clockid_t clock, timespec* now)> clockGettime;

    // The system's own calls, for use inside replacements.
    static int realEpollCreate(int size);
    static int realEpollCtl(int epollFd, int op, int fd, epoll_event* event);
    static int realEpollWait(int epollFd, epoll_event* events, int max, int timeout);
    static int realEventFd(unsigned int count, int flags);
    static ssize_t realRead(int fd, void* buffer, size_t size);
    static ssize_t realWrite(int fd, const void* buffer, size_t size);
    static int realClose(int fd);
    static int realClockGettime(clockid_t clock, timespec* now);
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

// Runs action on a thread of its own and returns when the action has ended or has found a mutex
// held by another thread, whichever comes first. The action is waited for in the destructor.
class RunUntilBlocked {
  public:
    explicit RunUntilBlocked(std::function<void()> action);
    ~RunUntilBlocked();
    RunUntilBlocked(const RunUntilBlocked&) = delete;
    RunUntilBlocked& operator=(const RunUntilBlocked&) = delete;

    bool blocked() const;

  private:
    struct State;
    State* mState;
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
