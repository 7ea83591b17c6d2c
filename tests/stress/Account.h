// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "tests/stress/ClientEvents.h"

// Keeps account of what an application has requested: what it awaits, and what has come. Threads
// may use it at the same time.
class Account {
  public:
    // What can be known beforehand. An account begins with the first.
    enum class Terms {
        // Of a service that behaves and stays: no request is refused, and each callback is expected
        // by its text. Of lists and reports, whose contents depend on what other threads do, only
        // the kind.
        kAll,
        // Of any service: a request may be refused. One that is accepted and answered by its id is
        // answered once, or lost.
        kAnswers,
    };

    static constexpr std::chrono::minutes kGenerous{10};

    // Begins anew, with a client that is no longer the one of before, or that awaits nothing. Fails
    // the test if anything came that was not requested.
    void start(Terms terms);

    // Each takes the result of a request, and returns whether it was accepted. Fails the test if
    // there should have been another result.
    bool accepted(long long result);
    // The same of one that returns an id.
    bool drawn(long long id);
    // The same of one whose arguments are wrong, which never is.
    void rejected(long long result) const;
    // The application knows that the library no longer uses it.
    void idIsFree(long long id);

    // To be read before a request, and passed to expectAnswer() after it.
    unsigned int losses() const;
    // Expects a callback with this text: of an answer by id; any other, which only counts when
    // everything can be known. The callback may have come before. Returns what waitFor() takes.
    std::string expectAnswer(const std::string& text, unsigned int losses);
    void expect(const std::string& text);

    // To be called by each callback.
    void happened(const ClientEvent& event);
    // The service was lost: what is awaited now may come, but need not.
    void lose();

    // Each waits until it is true; false when so long passed first, or the test has failed. Time in
    // which the process was stopped does not count.
    bool waitFor(const std::string& awaited, std::chrono::milliseconds limit = kGenerous);
    bool waitForAll(std::chrono::milliseconds limit = kGenerous);
    // All of these have come, or there was a loss.
    bool waitForAnswers(const std::vector<std::string>& awaited, unsigned int losses,
                        std::chrono::milliseconds limit);
    // Everything that was expected has come, and, which waitForAll() does not say, nothing else.
    bool isEven() const;
    bool noIdIsUsed() const;
    // How many requests have been made, with and without an answer by id; how many of the first
    // kind were accepted, and answered. What is lost makes the difference.
    unsigned int made() const;
    unsigned int asked() const;
    unsigned int answered() const;

  private:
    using Counts = std::map<std::string, int>;

    std::string keyOf(const std::string& text) const;
    int add(Counts& counts, const std::string& thing, int count);
    bool isAwaited(const std::string& thing) const;
    template <typename Reached>
    bool waitUntil(const Reached& reached, std::chrono::milliseconds limit);

    mutable std::mutex mLock;
    std::condition_variable mChanged;
    Terms mTerms = Terms::kAll;
    Counts mCounts;  // of callbacks: what came before it was expected counts as less than none
    Counts mIds;     // in use, as far as the application can know: each at most once
    Counts mLost;
    unsigned int mLosses = 0;
    unsigned int mMade = 0;
    unsigned int mAsked = 0;
    unsigned int mAnswered = 0;
};
