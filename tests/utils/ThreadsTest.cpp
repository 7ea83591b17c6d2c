// SPDX-License-Identifier: Apache-2.0
// The event loop on a thread of its own, used by others while it runs.
#include <gtest/gtest.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

#include "tests/utils/SystemCalls.h"
#include "tools/emulator/ProcessStats.h"
#include "utils/EventManager.h"
#include "utils/LumEventHandler.h"
#include "utils/LumTimer.h"

using lum::utils::EventManager;
using lum::utils::LumEventHandler;

namespace {

constexpr std::chrono::seconds kLimit(30);

// Runs an event loop until it is told to end.
class LoopThread {
  public:
    LoopThread(EventManager& manager, LumTimer& timer) : mManager(manager) {
        mThread = std::thread([this, &timer] {
            while (mRunning) mManager.processEvents(&timer);
        });
    }
    ~LoopThread() {
        mRunning = false;
        mManager.wake();
        mThread.join();
    }
    LoopThread(const LoopThread&) = delete;
    LoopThread& operator=(const LoopThread&) = delete;

  private:
    EventManager& mManager;
    std::atomic<bool> mRunning{true};
    std::thread mThread;
};

// Counts on any thread, and is waited for.
class Count {
  public:
    void add() {
        const std::lock_guard<std::mutex> guard(mLock);
        ++mCount;
        mChanged.notify_all();
    }
    bool reaches(size_t count) {
        std::unique_lock<std::mutex> guard(mLock);
        return mChanged.wait_for(guard, kLimit, [&] { return mCount >= count; });
    }
    size_t value() {
        const std::lock_guard<std::mutex> guard(mLock);
        return mCount;
    }

  private:
    std::mutex mLock;
    std::condition_variable mChanged;
    size_t mCount = 0;
};

void onThreads(size_t count, const std::function<void(size_t)>& action) {
    std::vector<std::thread> threads;
    for (size_t i = 0; i < count; ++i) threads.emplace_back([&action, i] { action(i); });
    for (std::thread& thread : threads) thread.join();
}

struct Posted {
    size_t thread;
    size_t number;
};

class Collector : public LumEventHandler<std::shared_ptr<Posted>> {
  public:
    using LumEventHandler<std::shared_ptr<Posted>>::LumEventHandler;

    void handleEvent(std::shared_ptr<Posted> event) override {
        EXPECT_EQ(event->number, mNext[event->thread]) << "of thread " << event->thread;
        ++mNext[event->thread];
        handled.add();
    }

    Count handled;

  private:
    size_t mNext[8] = {};
};

TEST(EventLoopThreadsTest, PostsOfSeveralThreadsAllArriveInTheOrderOfEach) {
    constexpr size_t kThreads = 4;
    constexpr size_t kPosts = 2000;
    EventManager manager;
    LumTimer timer(nullptr);
    Collector collector(manager, timer, "collector");
    const LoopThread loop(manager, timer);
    onThreads(kThreads, [&](size_t thread) {
        for (size_t i = 0; i < kPosts; ++i) {
            collector.postEvent(std::make_shared<Posted>(Posted{thread, i}));
        }
    });
    EXPECT_TRUE(collector.handled.reaches(kThreads * kPosts));
}

TEST(EventLoopThreadsTest, TimedCallbacksRunBesidePosts) {
    EventManager manager;
    LumTimer timer(nullptr);
    Collector collector(manager, timer, "collector");
    Count ticks;
    timer.addTimedCallback(
        1,
        [](void* data) {
            static_cast<Count*>(data)->add();
            return 0;
        },
        &ticks);
    const LoopThread loop(manager, timer);
    for (size_t i = 0; i < 200; ++i) collector.postEvent(std::make_shared<Posted>(Posted{0, i}));
    EXPECT_TRUE(collector.handled.reaches(200));
    EXPECT_TRUE(ticks.reaches(20));
}

// A descriptor that frees itself when its removal has been carried out.
struct ShortLived {
    int fd;
    Count* called;
    Count* removed;
    std::atomic<bool> gone{false};

    static void run(int fd, void* data) {
        ShortLived* const self = static_cast<ShortLived*>(data);
        EXPECT_FALSE(self->gone);
        EventManager::clearRead(fd, nullptr);
        self->called->add();
    }
    static void done(void* data) {
        ShortLived* const self = static_cast<ShortLived*>(data);
        EXPECT_FALSE(self->gone.exchange(true));
        close(self->fd);
        self->removed->add();
        delete self;
    }
};

TEST(EventLoopThreadsTest, HandlersAreAddedAndRemovedWhileTheLoopRuns) {
    constexpr size_t kThreads = 4;
    constexpr size_t kRounds = 500;
    const size_t before = openDescriptors();
    Count called;
    Count removed;
    {
        EventManager manager;
        LumTimer timer(nullptr);
        const LoopThread loop(manager, timer);
        onThreads(kThreads, [&](size_t thread) {
            const uint64_t one = 1;
            for (size_t i = 0; i < kRounds; ++i) {
                auto* const shortLived =
                    new ShortLived{eventfd(0, EFD_NONBLOCK), &called, &removed};
                const int fd = shortLived->fd;
                const size_t calls = called.value();
                EXPECT_TRUE(manager.addEventHandler(fd, ShortLived::run, shortLived, nullptr,
                                                    EPOLLIN | EPOLLHUP));
                EXPECT_EQ(write(fd, &one, sizeof one), 8);
                // Half of them are removed while their callback may be running, half after it has.
                if (i % 2 == thread % 2) {
                    EXPECT_TRUE(called.reaches(calls + 1));
                }
                manager.removeEventHandler(fd, true, ShortLived::done, shortLived);
            }
        });
        EXPECT_TRUE(removed.reaches(kThreads * kRounds));
        EXPECT_EQ(manager.getNumRegisteredFds(), 0);
    }
    EXPECT_EQ(removed.value(), kThreads * kRounds);
    EXPECT_EQ(openDescriptors(), before);
}

// Each removal must be carried out without any other event to wake the loop.
TEST(EventLoopThreadsTest, EveryRemovalReachesTheLoop) {
    EventManager manager;
    LumTimer timer(nullptr);
    Count called;
    Count removed;
    const LoopThread loop(manager, timer);
    for (size_t i = 1; i <= 1000; ++i) {
        auto* const shortLived = new ShortLived{eventfd(0, EFD_NONBLOCK), &called, &removed};
        ASSERT_TRUE(
            manager.addEventHandler(shortLived->fd, ShortLived::run, shortLived, nullptr, EPOLLIN));
        manager.removeEventHandler(shortLived->fd, true, ShortLived::done, shortLived);
        ASSERT_TRUE(removed.reaches(i));
    }
}

TEST(EventLoopThreadsTest, NothingIsWrittenAfterDetach) {
    constexpr size_t kRounds = 200;
    const RestoreSystemCalls restore;
    for (size_t round = 0; round < kRounds; ++round) {
        std::optional<EventManager> manager;
        manager.emplace();
        LumTimer timer(nullptr);
        Collector collector(*manager, timer, "collector");
        std::atomic<bool> detached{false};
        std::atomic<bool> stop{false};
        std::atomic<int> late{0};
        gSystemCalls.write = [&](int fd, const void* buffer, size_t size) {
            if (detached) ++late;
            return SystemCalls::realWrite(fd, buffer, size);
        };
        Count posts;
        std::vector<std::thread> posting;
        for (size_t thread = 0; thread < 2; ++thread) {
            posting.emplace_back([&, thread] {
                for (size_t i = 0; !stop; ++i) {
                    collector.postEvent(std::make_shared<Posted>(Posted{thread, i}));
                    posts.add();
                }
            });
        }
        EXPECT_TRUE(posts.reaches(10));
        collector.detach();
        detached = true;
        manager.reset();
        EXPECT_TRUE(posts.reaches(posts.value() + 10));
        stop = true;
        for (std::thread& thread : posting) thread.join();
        EXPECT_EQ(late, 0);
    }
}

}  // namespace
