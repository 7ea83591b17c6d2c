// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <optional>

using Time = std::chrono::steady_clock::time_point;

// That long from now; a time far away for more seconds than the clock can count.
Time inSeconds(double seconds);

// Thrown by waits when the user asks for the end.
struct Interrupted {
    int signal;
};

// Where the main thread waits: for events, for input, and for the signals that ask for the end.
class Waiter {
  public:
    // Blocks SIGINT, SIGTERM, and SIGHUP unless that is ignored, for this thread and those that it
    // makes later, and takes them over. events: a descriptor that is readable when there are
    // events. Throws std::system_error when no descriptor is left.
    explicit Waiter(int events);
    ~Waiter();
    Waiter(const Waiter&) = delete;
    Waiter& operator=(const Waiter&) = delete;

    enum class Woken { kEvents, kInput, kTime };
    // Waits until there are events, or else one of the inputs can be read, or the time has come.
    // input, other: descriptors, or -1; end: none means without limit. Throws Interrupted.
    Woken wait(std::optional<Time> end, int input = -1, int other = -1) const;

    // Runs body() on a thread of its own and returns its result, or nothing when it has not
    // returned after so many seconds; then the thread is left in it. Meanwhile the signals end the
    // process as they do by default. For a call that may never return, from the thread that made
    // the Waiter.
    static std::optional<long long> withLimit(double seconds, long long (*body)());

  private:
    const int mEvents;
    const int mSignals;
};
