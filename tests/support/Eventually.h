// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

constexpr std::chrono::seconds kLimit{30};

// Asks again and again until the answer is yes; false when a generous limit has passed. For what
// can only be asked for, such as another process's state.
inline bool eventually(const std::function<bool()>& condition) {
    const auto end = std::chrono::steady_clock::now() + kLimit;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

// A number that threads count up and wait for.
class Counter {
  public:
    // Returns the new number.
    int add() {
        const std::lock_guard<std::mutex> guard(mLock);
        mChanged.notify_all();
        return ++mCount;
    }
    int value() const {
        const std::lock_guard<std::mutex> guard(mLock);
        return mCount;
    }
    // Waits until it is at least `count`; false when a generous limit has passed.
    bool waitFor(int count = 1) const {
        std::unique_lock<std::mutex> guard(mLock);
        return mChanged.wait_for(guard, kLimit, [&] { return mCount >= count; });
    }

  private:
    mutable std::mutex mLock;
    mutable std::condition_variable mChanged;
    int mCount = 0;
};
