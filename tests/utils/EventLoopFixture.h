// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gtest/gtest.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "tests/support/LogCapture.h"
#include "tests/utils/SystemCalls.h"
#include "utils/EventManager.h"

namespace lum::utils {
class EventManagerPeer {
  public:
    static int64_t inProgress(const EventManager& manager) { return manager.mInProgress; }
    // What epoll reports a descriptor as.
    static uint64_t watchedAs(EventManager& manager, int fd) {
        const MutexLock lock(manager.mMutex);
        const auto found = manager.mHandlers.find(fd);
        return found == manager.mHandlers.end() ? static_cast<uint32_t>(fd)
                                                : found->second.mWatchedAs;
    }
};
}  // namespace lum::utils

using lum::utils::EventManager;
using lum::utils::EventManagerPeer;
using Lines = std::vector<LogLine>;

// An eventfd of its own, with callbacks that count and do what a test says.
class Watched {
  public:
    Watched() = default;
    explicit Watched(EventManager& manager) { EXPECT_TRUE(addTo(manager)); }
    ~Watched() {
        if (mOwned) close(mFd);
    }
    Watched(const Watched&) = delete;
    Watched& operator=(const Watched&) = delete;

    bool addTo(EventManager& manager) {
        return manager.addEventHandler(mFd, run, this, closed, EPOLLIN | EPOLLHUP);
    }
    int fd() const { return mFd; }
    // The same, for descriptors that the event manager closes.
    int release() {
        mOwned = false;
        return mFd;
    }
    void makeReadable() const { ASSERT_EQ(eventfd_write(mFd, 1), 0); }

    std::function<void()> onRun;
    std::function<void()> onDone;
    std::function<void()> onClosed;
    int calls = 0;
    int dones = 0;
    int closes = 0;

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
        EXPECT_EQ(fd, watched->mFd);
        ++watched->closes;
        if (watched->onClosed) watched->onClosed();
    }

  private:
    const int mFd = eventfd(0, EFD_NONBLOCK);
    bool mOwned = true;
};

// What the event manager logs, step by step.
inline LogLine adding(int fd, void (*callback)(int, void*), void* data, void (*closing)(int, void*),
                      int events) {
    return logD(format(
        "addEventHandler(int %d, EventCallback %p, void* %p, CloseCallback %p, events %d) EX", fd,
        reinterpret_cast<void*>(callback), data, reinterpret_cast<void*>(closing), events));
}
inline LogLine added(int fd) {
    return logD(format("Added event handler %d", fd));
}
inline LogLine pending(int count) {
    return logD(format("there are %d file descriptor(s) with events pending", count));
}
inline LogLine handling(int index, uint32_t bits, int fd) {
    return logD(format("processing event number: %d, handling %d for %d", index,
                       static_cast<int>(bits), fd));
}
inline LogLine calling(int fd, void (*callback)(int, void*), void* data) {
    return logD(format("file descriptor '%d' is processing events [callback:%p, data:%p]", fd,
                       reinterpret_cast<void*>(callback), data));
}
inline LogLine notApproved(int fd) {
    return logE(format("file descriptor %d is not on the approved list, cannot process event", fd));
}
inline LogLine askedToRemove(int fd) {
    return logD(format("removeEventHandler(int fd: %d) EX", fd));
}
inline LogLine askedToRemoveAtOnce(int fd) {
    return logD(format("immediatelyRemoveEventHandler(int fd: %d) EX", fd));
}
inline LogLine removing(int fd) {
    return logD(format("removing %d from epollFd", fd));
}
inline LogLine closed(int fd) {
    return logD(format("Closed %d", fd));
}
inline LogLine clearing(int fd) {
    return logD(format("Clearing local update FD:%d", fd));
}
// A pass in which nothing is ready but the removal descriptor.
inline Lines removalPass(Lines steps) {
    steps.insert(steps.begin(), {pending(1), logD("processRemove enter")});
    steps.push_back(logD("processRemove exit"));
    return steps;
}

// An event manager whose own descriptors are known.
class EventLoopTest : public testing::Test {
  protected:
    struct Event {
        uint32_t bits;
        int fd;
    };

    EventLoopTest() {
        gSystemCalls.epollCreate = [this](int size) {
            return epollFd = SystemCalls::realEpollCreate(size);
        };
        gSystemCalls.eventFd = [this](unsigned int count, int flags) {
            wakeFd = removeFd;  // the first one is the wake descriptor
            return removeFd = SystemCalls::realEventFd(count, flags);
        };
        manager = std::make_unique<EventManager>();
        gSystemCalls = {};
    }
    // Before the members go: replacements may refer to what a test's body had.
    void TearDown() override { gSystemCalls = {}; }

    // One pass, with these events or, if there are none, with what is ready by then.
    void pass(const std::vector<Event>& events = {}) {
        gSystemCalls.epollWait = [this, events](int epoll, epoll_event* results, int max, int) {
            if (events.empty()) return SystemCalls::realEpollWait(epoll, results, max, 0);
            EXPECT_LE(events.size(), static_cast<size_t>(max));
            for (const Event& event : events) {
                results->events = event.bits;
                results->data.u64 = EventManagerPeer::watchedAs(*manager, event.fd);
                ++results;
            }
            return static_cast<int>(events.size());
        };
        manager->processEvents(nullptr);
        gSystemCalls.epollWait = nullptr;
    }

    Lines logOf(const std::function<void()>& action) {
        log.take();
        action();
        return log.take();
    }
    Lines logOfPass(const std::vector<Event>& events = {}) {
        return logOf([&] { pass(events); });
    }

    void removeAndClose(Watched& watched) {
        manager->removeEventHandler(watched.release(), true, nullptr, nullptr);
    }
    void removeWithDone(Watched& watched) {
        manager->removeEventHandler(watched.fd(), true, Watched::done, &watched);
    }
    void removeOnly(Watched& watched) {
        manager->removeEventHandler(watched.fd(), false, Watched::done, &watched);
    }

    static void failWrites(ssize_t result, int error) {
        gSystemCalls.write = [result, error](int, const void*, size_t) {
            errno = error;
            return result;
        };
    }
    static void failEpollCtl(int error) {
        gSystemCalls.epollCtl = [error](int, int, int, epoll_event*) {
            errno = error;
            return -1;
        };
    }

    // Makes `other` use the manager on a thread of its own.
    std::function<void()> use(std::optional<RunUntilBlocked>& other) {
        return [&] { other.emplace([this] { manager->getNumRegisteredFds(); }); };
    }

    LogCapture log;
    std::unique_ptr<EventManager> manager;
    int epollFd = -1;
    int wakeFd = -1;
    int removeFd = -1;
};
