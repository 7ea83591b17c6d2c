// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>
#include <sys/epoll.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <memory>
#include <thread>

#include "platform/linux/src/IoLoop.h"
#include "platform/linux/src/ThreadPool.h"
#include "tests/platform/EndlessSource.h"
#include "tests/support/Eventually.h"
#include "tests/utils/SystemCalls.h"

namespace {

class PausingSource final : public EndlessSource {
  public:
    void onReady(uint32_t) override {
        IoLoop::instance().pause(this);
        mWoken.add();
    }
};

TEST(IoLoopTest, OpensAfterHalfOfItHasFailed) {
    const RestoreSystemCalls restore;
    int added = 0;
    gSystemCalls.epollCtl = [&added](int epoll, int operation, int fd, epoll_event* event) {
        if (++added != 2) return SystemCalls::realEpollCtl(epoll, operation, fd, event);
        errno = ENOSPC;
        return -1;
    };
    EXPECT_EQ(IoLoop::instance().open(), ENOSPC);
    EXPECT_EQ(IoLoop::instance().open(), 0);
    EXPECT_EQ(added, 4);
}

TEST(IoLoopTest, PauseEndsWhileOthersKeepTheThreadBusy) {
    IoLoop& loop = IoLoop::instance();
    const auto busy = std::make_shared<EndlessSource>();
    const auto pausing = std::make_shared<PausingSource>();
    ASSERT_TRUE(loop.add(busy->fd(), busy));
    ASSERT_TRUE(loop.add(pausing->fd(), pausing));
    EXPECT_TRUE(pausing->woken().waitFor(3));
    EXPECT_GT(busy->woken().value(), 3);
    removeSource(pausing);
    removeSource(busy);
}

TEST(IoLoopTest, PauseEndsWithoutOthersAndNotBefore) {
    IoLoop& loop = IoLoop::instance();
    const auto pausing = std::make_shared<PausingSource>();
    const auto start = std::chrono::steady_clock::now();
    ASSERT_TRUE(loop.add(pausing->fd(), pausing));
    EXPECT_TRUE(pausing->woken().waitFor(3));
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(200));
    removeSource(pausing);
}

TEST(IoLoopTest, PauseOfASourceThatIsGoneDoesNothing) {
    IoLoop& loop = IoLoop::instance();
    const auto gone = std::make_shared<EndlessSource>();
    ASSERT_TRUE(loop.add(gone->fd(), gone));
    removeSource(gone);
    loop.pause(gone.get());
    ASSERT_TRUE(loop.add(gone->fd(), gone));
    const int before = gone->woken().value();
    EXPECT_TRUE(gone->woken().waitFor(before + 2));
    removeSource(gone);
}

TEST(IoLoopTest, SourceIsCalledOnOneThreadAtATime) {
    class AloneSource final : public EndlessSource {
      public:
        void onReady(uint32_t) override {
            EXPECT_FALSE(mInside.exchange(true));
            std::this_thread::yield();
            mInside = false;
            mWoken.add();
        }

      private:
        std::atomic<bool> mInside{false};
    };
    ThreadPool::instance().start();
    IoLoop& loop = IoLoop::instance();
    const auto source = std::make_shared<AloneSource>();
    ASSERT_TRUE(loop.add(source->fd(), source));
    for (bool want = true; source->woken().value() < 2000; want = !want) {
        loop.wantOutput(source.get(), want);
    }
    removeSource(source);
}

}  // namespace
