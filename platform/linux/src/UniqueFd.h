// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <unistd.h>

#include <memory>
#include <utility>

// Owns a descriptor and closes it.
class UniqueFd {
  public:
    UniqueFd() = default;
    explicit UniqueFd(int fd) : mFd(fd) {}
    UniqueFd(UniqueFd&& other) noexcept : mFd(std::exchange(other.mFd, -1)) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept {
        reset(std::exchange(other.mFd, -1));
        return *this;
    }
    ~UniqueFd() { reset(); }

    int get() const { return mFd; }
    bool valid() const { return mFd >= 0; }
    void reset(int fd = -1) {
        if (mFd >= 0) close(mFd);
        mFd = fd;
    }

  private:
    int mFd = -1;
};

// One that several hold: it is closed with the last.
using SharedFd = std::shared_ptr<const UniqueFd>;
