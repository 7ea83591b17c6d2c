// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>
#include <sys/eventfd.h>

#include <cstdint>
#include <memory>

#include "platform/linux/src/IoThread.h"
#include "platform/linux/src/UniqueFd.h"
#include "tests/support/Eventually.h"

namespace {

// Always has something to read.
class EndlessSource : public IoSource {
  public:
    void onReady(uint32_t) override { mWoken.add(); }
    int fd() const { return mFd.get(); }
    const Counter& woken() const { return mWoken; }

  protected:
    Counter mWoken;

  private:
    const UniqueFd mFd{eventfd(1, EFD_NONBLOCK | EFD_CLOEXEC)};
};

class PausingSource final : public EndlessSource {
  public:
    void onReady(uint32_t) override {
        IoThread::instance().pause(fd(), this);
        mWoken.add();
    }
};

TEST(IoThreadTest, PauseEndsWhileOthersKeepTheThreadBusy) {
    IoThread& thread = IoThread::instance();
    const auto busy = std::make_shared<EndlessSource>();
    const auto pausing = std::make_shared<PausingSource>();
    ASSERT_TRUE(thread.add(busy->fd(), busy));
    ASSERT_TRUE(thread.add(pausing->fd(), pausing));
    EXPECT_TRUE(pausing->woken().waitFor(3));
    EXPECT_GT(busy->woken().value(), 3);
    thread.remove(pausing->fd(), pausing.get());
    thread.remove(busy->fd(), busy.get());
}

TEST(IoThreadTest, PauseAfterTheRemovalLeavesTheNextSourceAlone) {
    IoThread& thread = IoThread::instance();
    int fd = -1;
    const auto removed = std::make_shared<EndlessSource>();
    {
        const auto former = std::make_shared<EndlessSource>();
        fd = former->fd();
        ASSERT_TRUE(thread.add(fd, removed));
        thread.remove(fd, removed.get());
    }
    const auto next = std::make_shared<EndlessSource>();
    ASSERT_EQ(next->fd(), fd);  // the number has become free, and is the lowest
    ASSERT_TRUE(thread.add(fd, next));
    thread.pause(fd, removed.get());
    const int before = next->woken().value();
    EXPECT_TRUE(next->woken().waitFor(before + 2));
    thread.remove(fd, next.get());
}

TEST(IoThreadTest, PauseEndsWithoutOthers) {
    IoThread& thread = IoThread::instance();
    const auto pausing = std::make_shared<PausingSource>();
    ASSERT_TRUE(thread.add(pausing->fd(), pausing));
    EXPECT_TRUE(pausing->woken().waitFor(3));
    thread.remove(pausing->fd(), pausing.get());
}

}  // namespace
