// SPDX-License-Identifier: Apache-2.0
#include "tools/emulator/Timeline.h"

Timeline::Ticket Timeline::after(std::chrono::milliseconds delay, std::function<void()> action) {
    const Ticket ticket(mNow() + delay, ++mLastNumber);
    mActions.emplace(ticket, std::move(action));
    return ticket;
}

std::optional<Timeline::Time> Timeline::next() const {
    if (mActions.empty()) return std::nullopt;
    return mActions.begin()->first.first;
}

void Timeline::run() {
    const Time now = mNow();
    const uint64_t last = mLastNumber;
    // Anew each time: the action before may have cancelled or added any other.
    for (;;) {
        auto due = mActions.begin();
        while (due != mActions.end() && due->first.first <= now && due->first.second > last) ++due;
        if (due == mActions.end() || due->first.first > now) return;
        const std::function<void()> action = std::move(due->second);
        mActions.erase(due);
        action();
    }
}
