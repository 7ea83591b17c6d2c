// SPDX-License-Identifier: Apache-2.0
// The event loop on a thread of its own, used by others while it runs.
#include <gtest/gtest.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <memory>
#include <thread>
#include <utility>
#include <vector>

#include "tests/support/Eventually.h"
#include "tools/emulator/ProcessStats.h"
#include "utils/EventManager.h"
#include "utils/LumEventHandler.h"
#include "utils/LumTimer.h"

using lum::utils::EventManager;
using lum::utils::LumEventHandler;

namespace {

// Runs an event loop while it lives.
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

void onThreads(int count, const std::function<void(int)>& action) {
    std::vector<std::thread> threads;
    threads.reserve(static_cast<size_t>(count));
    for (int i = 0; i < count; ++i) threads.emplace_back([&action, i] { action(i); });
    for (std::thread& thread : threads) thread.join();
}

using Posted = std::pair<int, int>;  // thread, number of the post

class Collector : public LumEventHandler<std::shared_ptr<Posted>> {
  public:
    using LumEventHandler<std::shared_ptr<Posted>>::LumEventHandler;

    void post(int thread, int number) { postEvent(std::make_shared<Posted>(thread, number)); }
    void handleEvent(std::shared_ptr<Posted> event) override {
        EXPECT_EQ(event->second, mNext[event->first]++) << "of thread " << event->first;
        handled.add();
    }

    Counter handled;

  private:
    int mNext[4] = {};
};

TEST(EventLoopThreadsTest, PostsOfSeveralThreadsAllArriveInTheOrderOfEach) {
    constexpr int kThreads = 4;
    constexpr int kPosts = 2000;
    EventManager manager;
    LumTimer timer(nullptr);
    Counter ticks;
    const auto tick = [](void* data) {
        static_cast<Counter*>(data)->add();
        return 0;
    };
    timer.addTimedCallback(1, tick, &ticks);
    Collector collector(manager, timer, "collector");
    const LoopThread loop(manager, timer);
    onThreads(kThreads, [&](int thread) {
        for (int i = 0; i < kPosts; ++i) collector.post(thread, i);
    });
    EXPECT_TRUE(collector.handled.waitFor(kThreads * kPosts));
    EXPECT_TRUE(ticks.waitFor(20)) << "timed callbacks run beside";
}

// A descriptor that frees itself when its removal has been carried out.
struct ShortLived {
    int fd;
    Counter* called;
    Counter* removed;
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
    constexpr int kThreads = 4;
    constexpr int kRounds = 500;
    const size_t before = openDescriptors();
    Counter called;
    Counter removed;
    {
        EventManager manager;
        LumTimer timer(nullptr);
        const LoopThread loop(manager, timer);
        onThreads(kThreads, [&](int thread) {
            for (int i = 0; i < kRounds; ++i) {
                const int fd = eventfd(0, EFD_NONBLOCK);
                auto* const shortLived = new ShortLived{fd, &called, &removed};
                const int calls = called.value();
                EXPECT_TRUE(manager.addEventHandler(fd, ShortLived::run, shortLived, nullptr,
                                                    EPOLLIN | EPOLLHUP));
                EXPECT_EQ(eventfd_write(fd, 1), 0);
                // Half of them are removed while their callback may be running, half after it has.
                if (i % 2 == thread % 2) {
                    EXPECT_TRUE(called.waitFor(calls + 1));
                }
                manager.removeEventHandler(fd, true, ShortLived::done, shortLived);
            }
        });
        EXPECT_TRUE(removed.waitFor(kThreads * kRounds));
        EXPECT_EQ(manager.getNumRegisteredFds(), 0);
    }
    EXPECT_EQ(removed.value(), kThreads * kRounds);
    EXPECT_EQ(openDescriptors(), before);
}

}  // namespace
