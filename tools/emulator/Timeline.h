// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <utility>

// What is to be done later, in order of time; what is due at the same time, in order of arrival.
//
// Takes no lock: belongs to one thread, which also runs the actions. An action may add and cancel
// others.
class Timeline {
  public:
    using Clock = std::chrono::steady_clock;
    using Time = Clock::time_point;
    // Names one action; the default one names none.
    using Ticket = std::pair<Time, uint64_t>;

    // now: the clock to go by.
    explicit Timeline(std::function<Time()> now = Clock::now) : mNow(std::move(now)) {}

    // Adds an action that is due `delay` from now.
    Ticket after(std::chrono::milliseconds delay, std::function<void()> action);
    // Takes an action out. Does nothing if it has run, runs, or never was.
    void cancel(const Ticket& ticket) { mActions.erase(ticket); }

    // When the next action is due; none if nothing is left to do.
    std::optional<Time> next() const;
    // Runs the actions that are due by now. Those which they add wait for the next call.
    void run();

  private:
    std::function<Time()> mNow;
    std::map<Ticket, std::function<void()>> mActions;
    uint64_t mLastNumber = 0;
};
