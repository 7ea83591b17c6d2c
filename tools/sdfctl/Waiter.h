// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <csignal>
#include <initializer_list>
#include <optional>

using Time = std::chrono::steady_clock::time_point;

// That long from now; a time far away for more seconds than the clock can count.
Time inSeconds(double seconds);

// Thrown by waits when the user asks for the end.
struct Interrupted {
    int signal;
};

// Signals that this thread, and those that it makes later, do not get but may ask for.
class Signals {
  public:
    // Blocks them. Throws std::system_error when no descriptor is left.
    explicit Signals(std::initializer_list<int> signals);
    // Unblocks them.
    ~Signals();
    Signals(const Signals&) = delete;
    Signals& operator=(const Signals&) = delete;

    // For this thread.
    void block() const { pthread_sigmask(SIG_BLOCK, &mSet, nullptr); }
    void unblock() const { pthread_sigmask(SIG_UNBLOCK, &mSet, nullptr); }

    // Readable when one has come.
    int fd() const { return mFd; }
    // The next one that has come; 0 for none.
    int take() const;
    // Lets a blocked one do what it does by default.
    static void letAct(int signal);

  private:
    sigset_t mSet;
    const int mFd;
};

// Where the main thread waits: for descriptors, and for the signals that ask for the end.
class Waiter {
  public:
    // Takes over SIGINT, SIGTERM, and SIGHUP unless that is ignored, or is not to end the process.
    enum class HangUp { kEnds, kIsOthers };
    explicit Waiter(HangUp hangUp = HangUp::kEnds);

    // Waits until one of the descriptors can be read, and returns the place of the first that can,
    // or until the time has come. descriptors: -1 for none; end: none means without limit. Throws
    // Interrupted.
    std::optional<size_t> wait(std::optional<Time> end,
                               std::initializer_list<int> descriptors) const;

    // Runs body() on a thread of its own and returns its result, or nothing when it has not
    // returned after so many seconds; then the thread is left in it. Meanwhile the signals end the
    // process as they do by default. For a call that may never return, from the thread that made
    // the Waiter.
    std::optional<long long> withLimit(double seconds, long long (*body)()) const;

    // From now on the signals end the process as they do by default.
    void letSignalsAct() const { mSignals.unblock(); }

  private:
    const Signals mSignals;
};
