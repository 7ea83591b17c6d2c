// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <optional>

using Clock = std::chrono::steady_clock;
using Time = Clock::time_point;
using Milliseconds = std::chrono::milliseconds;

// When something is due, if ever.
class Due {
  public:
    void set(Time when) { mWhen = when; }
    void clear() { mWhen.reset(); }
    // The earlier one of two.
    void orAt(const Due& other) {
        if (other.mWhen && (!mWhen || *other.mWhen < *mWhen)) mWhen = other.mWhen;
    }
    // Whether it is due now; if so it is cleared.
    bool take(Time now) {
        if (!mWhen || now < *mWhen) return false;
        mWhen.reset();
        return true;
    }
    const std::optional<Time>& when() const { return mWhen; }

  private:
    std::optional<Time> mWhen;
};
