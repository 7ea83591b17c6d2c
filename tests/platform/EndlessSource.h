// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/eventfd.h>

#include <cstdint>

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
