// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/epoll.h>

#include <cstdint>
#include <ctime>
#include <map>
#include <set>
#include <vector>

#include "fuzz/Input.h"

// Takes the place of the system for event loops while it lives, see tests/utils/SystemCalls.h:
// eventfds, one epoll instance that watches them, and a clock. Numbers are given out as the kernel
// does, the lowest that is free. Which calls fail is the input's to say; other descriptors are the
// system's own.
class FakeKernel {
  public:
    struct Descriptor {
        uint64_t count = 0;
        bool semaphore = false;
        bool hungUp = false;
        uint32_t odd = 0;  // events besides, reported once
    };

    explicit FakeKernel(Input& input);
    ~FakeKernel();
    FakeKernel(const FakeKernel&) = delete;
    FakeKernel& operator=(const FakeKernel&) = delete;

    // -1 for want of descriptors.
    int open(bool semaphore);
    int lastOpened() const { return mLastOpened; }
    // By whoever owns it.
    void close(int fd);
    bool isOpen(int fd) const { return mOpen.count(fd) != 0; }
    Descriptor& at(int fd) { return mOpen.at(fd); }
    const std::map<int, Descriptor>& descriptors() const { return mOpen; }
    bool isWatched(int fd) const { return mWatched.count(fd) != 0; }

    timespec now() const { return mNow; }
    void advance(int64_t milliseconds);

    // From now on these fail, each call, or not.
    void setClockFails(bool fails) { mClockFails = fails; }
    bool clockFails() const { return mClockFails; }
    // The next call of these fails.
    bool nextWriteFails = false;
    bool nextReadFails = false;
    bool nextCtlFails = false;
    bool nextOpenFails = false;
    // Whose last read has failed.
    bool couldNotRead(int fd) const { return mUnread.count(fd) != 0; }

    // What the code under test does with the system, for who checks it.
    class Watcher {
      public:
        // epoll_wait() returns these.
        virtual void onReady(const std::vector<epoll_event>& events) = 0;
        virtual void onUnwatch(int fd) = 0;
        virtual void onClose(int fd) = 0;

      protected:
        ~Watcher() = default;
    };
    Watcher* watcher = nullptr;

  private:
    int wait(epoll_event* events, int max, int timeout);
    int control(int op, int fd, const epoll_event* event);
    ssize_t read(int fd, void* buffer, size_t size);
    ssize_t write(int fd, const void* buffer, size_t size);
    uint32_t readyBits(int fd);

    Input& mInput;
    std::map<int, Descriptor> mOpen;
    std::map<int, epoll_event> mWatched;
    std::set<int> mUnread;
    int mLastOpened = -1;
    timespec mNow{1000, 0};
    bool mClockFails = false;
};
