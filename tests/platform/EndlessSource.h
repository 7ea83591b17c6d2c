// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gtest/gtest.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cstdint>
#include <memory>

#include "platform/linux/src/IoLoop.h"
#include "platform/linux/src/UniqueFd.h"
#include "tests/support/Eventually.h"

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

// Takes a source out of the loop, and returns when nobody uses it any more.
template <typename Source>
void removeSource(const std::shared_ptr<Source>& source) {
    IoLoop::instance().remove(source.get());
    EXPECT_TRUE(eventually([&] { return source.use_count() == 1; }));
}

// Returns when this thread of the pool, which has two, waits for sources, and the other one, too.
inline void waitForPoolThread(pid_t thread) {
    class Source final : public EndlessSource {
      public:
        Source(pid_t thread, Counter& seen) : mThread(thread), mSeen(seen) {}
        void onReady(uint32_t) override {
            if (gettid() == mThread) {
                mSeen.add();
            } else {
                mSeen.waitFor(1);  // kept here, so that the second source is left for the other
            }
        }

      private:
        const pid_t mThread;
        Counter& mSeen;
    };
    Counter seen;
    const auto one = std::make_shared<Source>(thread, seen);
    const auto two = std::make_shared<Source>(thread, seen);
    EXPECT_TRUE(IoLoop::instance().add(one->fd(), one));
    EXPECT_TRUE(IoLoop::instance().add(two->fd(), two));
    EXPECT_TRUE(seen.waitFor(1));
    removeSource(one);
    removeSource(two);
}
