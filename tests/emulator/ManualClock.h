// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>

#include "tools/emulator/Timeline.h"

// A timeline whose clock stands still unless the test moves it.
class ManualClock {
  public:
    Timeline& timeline() { return mTimeline; }

    // Lets time pass millisecond by millisecond, and what is due happen.
    void pass(std::chrono::milliseconds time) {
        for (; time.count() > 0; --time) {
            mNow += std::chrono::milliseconds(1);
            mTimeline.run();
        }
    }

  private:
    Timeline::Time mNow{};
    Timeline mTimeline{[this] { return mNow; }};
};
