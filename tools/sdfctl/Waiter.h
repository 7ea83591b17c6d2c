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
    // Blocks SIGINT and SIGTERM, for this thread and those that it makes later, and takes them
    // over. events: a descriptor that is readable when there are events. Throws std::system_error
    // when there is no descriptor to be had.
    explicit Waiter(int events);
    ~Waiter();
    Waiter(const Waiter&) = delete;
    Waiter& operator=(const Waiter&) = delete;

    enum class Woken { kEvents, kInput, kTime };
    // Waits until there are events, or else `input` can be read, or the time has come. input: a
    // descriptor, or -1; end: none means without limit. Throws Interrupted.
    Woken wait(std::optional<Time> end, int input = -1) const;

    // From now on the signals end the process as they do by default.
    static void letGo();

  private:
    const int mEvents;
    const int mSignals;
};
