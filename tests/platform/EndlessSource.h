// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gtest/gtest.h>
#include <sys/eventfd.h>

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
