// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

#include "tests/support/LogCapture.h"
#include "tests/utils/SystemCalls.h"
#include "utils/EventManager.h"

namespace lum::utils {
class EventManagerPeer {
  public:
    static int64_t inProgress(const EventManager& manager) { return manager.mInProgress; }
};
}  // namespace lum::utils

inline void* pointer(void (*function)(int, void*)) {
    return reinterpret_cast<void*>(function);
}

// An eventfd of its own, with callbacks that count and do what a test says.
class Watched {
  public:
    Watched() = default;
    ~Watched() {
        if (mOwned) close(mFd);
    }
    Watched(const Watched&) = delete;
    Watched& operator=(const Watched&) = delete;

    int fd() const { return mFd; }
    // The same, for descriptors that the event manager closes.
    int release() {
        mOwned = false;
        return mFd;
    }
    void makeReadable() const {
        const uint64_t one = 1;
        ASSERT_EQ(write(mFd, &one, sizeof one), static_cast<ssize_t>(sizeof one));
    }

    std::function<void()> onRun;
    std::function<void()> onDone;
    std::function<void()> onClosed;
    int calls = 0;
    int dones = 0;
    int closes = 0;
    int closedFd = -1;

    static void run(int fd, void* data) {
        Watched* const watched = static_cast<Watched*>(data);
        EXPECT_EQ(fd, watched->mFd);
        ++watched->calls;
        if (watched->onRun) watched->onRun();
    }
    static void done(void* data) {
        Watched* const watched = static_cast<Watched*>(data);
        ++watched->dones;
        if (watched->onDone) watched->onDone();
    }
    static void closed(int fd, void* data) {
        Watched* const watched = static_cast<Watched*>(data);
        ++watched->closes;
        watched->closedFd = fd;
        if (watched->onClosed) watched->onClosed();
    }

  private:
    const int mFd = eventfd(0, EFD_NONBLOCK);
    bool mOwned = true;
};

// An event manager whose own descriptors are known.
class EventLoopTest : public testing::Test {
  protected:
    struct Event {
        uint32_t bits;
        int fd;
    };

    // Before the members go: replacements may refer to what a test's body had.
    void TearDown() override { gSystemCalls = {}; }

    void make() {
        manager.reset();
        gSystemCalls.epollCreate = [this](int size) {
            return epollFd = SystemCalls::realEpollCreate(size);
        };
        std::vector<int> made;
        gSystemCalls.eventFd = [&made](unsigned int count, int flags) {
            return made.emplace_back(SystemCalls::realEventFd(count, flags));
        };
        manager = std::make_unique<lum::utils::EventManager>();
        gSystemCalls = {};
        ASSERT_EQ(made.size(), 2U);
        wakeFd = made[0];
        removeFd = made[1];
    }

    void watch(int fd, Watched& watched) {
        ASSERT_TRUE(manager->addEventHandler(fd, Watched::run, &watched, Watched::closed,
                                             EPOLLIN | EPOLLHUP));
    }

    // Makes the next wait return these events; the ones after it are the system's again.
    static void inject(std::vector<Event> events) {
        gSystemCalls.epollWait = [events = std::move(events)](int /*epollFd*/, epoll_event* results,
                                                              int max, int /*timeout*/) {
            const int count = static_cast<int>(events.size());
            EXPECT_LE(count, max);
            for (const Event& event : events) {
                results->events = event.bits;
                results->data.fd = event.fd;
                ++results;
            }
            // Last: this function goes with it.
            gSystemCalls.epollWait = nullptr;
            return count;
        };
    }

    static void failWrites(ssize_t result, int error) {
        gSystemCalls.write = [result, error](int /*fd*/, const void* /*buffer*/, size_t /*size*/) {
            errno = error;
            return result;
        };
    }

    // Passes that find nothing ready return at once.
    void pass() {
        gSystemCalls.epollWait = [](int epoll, epoll_event* results, int max, int /*timeout*/) {
            return SystemCalls::realEpollWait(epoll, results, max, 0);
        };
        manager->processEvents(nullptr);
        gSystemCalls.epollWait = nullptr;
    }

    LogCapture log;
    std::unique_ptr<lum::utils::EventManager> manager;
    int epollFd = -1;
    int wakeFd = -1;
    int removeFd = -1;
};
