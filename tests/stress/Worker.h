// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <lum_sdf_sdk.h>

#include <cstddef>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "tests/stress/Account.h"

// Makes requests of every kind: all of the application's, or, as one of four, those of a thread.
// Then only the first asks for lists and reports, and only the second plays games.
class Worker {
  public:
    static constexpr int kThreads = 4;

    Worker(Account& account, int number, bool alone, unsigned int seed);

    // Registers for whatever is reported unasked.
    static void registerForAll(Account& account);

    // Makes some requests. The service answers in order: when the last is answered, all are.
    // Returns what Account::waitFor() takes for that answer, empty when the last was not accepted.
    std::string batch();
    // The same, of what ends all that goes on.
    std::string endingBatch();
    // What Account::waitForAnswers() takes for the last batch.
    const std::vector<std::string>& awaited() const { return mAwaited; }
    // To be called when a batch is answered.
    void answered();
    // To be called when the service that knew of everything is gone.
    void forget();
    bool hasFilters() const { return !mFilters.empty(); }

  private:
    void requestAnything();
    std::string setLevels();
    void add();
    void update();
    void forgetOne(bool deletes);
    void report();
    void setGaming();
    void setLink();
    int random(int below) { return std::uniform_int_distribution<int>(0, below - 1)(mRandom); }

    Account& mAccount;
    int mNumber;
    bool mAlone;
    size_t mMostFilters;
    std::mt19937 mRandom;
    uint32_t mFilterNumber;
    std::vector<unsigned int> mFilters;
    std::vector<unsigned int> mAdded;  // in this batch: known when it has been answered
    std::vector<std::string> mAwaited;
    bool mReports = false;
    bool mGaming = false;
    unsigned int mAutoFilter = 0x80000000U;
};
