// SPDX-License-Identifier: Apache-2.0
#include "tests/stress/Account.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <utility>

namespace {

// "levels 7" of "levels 7: 2 4".
std::string withoutValues(const std::string& text) {
    return text.substr(0, text.find(':'));
}

bool answers(const ClientEvent& event) {
    return event.kind == ClientEvent::Kind::kLevels || event.kind == ClientEvent::Kind::kAdded;
}

bool startsWith(const std::string& text, const char* beginning) {
    return text.rfind(beginning, 0) == 0;
}

}  // namespace

void Account::start(Terms terms) {
    const std::lock_guard<std::mutex> guard(mLock);
    ++mLosses;
    mLost.clear();
    for (const auto& [thing, count] : mCounts) {
        EXPECT_GT(count, 0) << "not requested, or once too often: " << thing;
        if (count > 0) mLost[withoutValues(thing)] += count;
    }
    mCounts.clear();
    mIds.clear();
    mTerms = terms;
    mChanged.notify_all();
}

bool Account::accepted(long long result) {
    const std::lock_guard<std::mutex> guard(mLock);
    ++mMade;
    if (mTerms == Terms::kAll) {
        EXPECT_EQ(result, SDF_V2_SUCCESS);
    } else {
        // A filter that a service has ended, no filter to delete, no service.
        EXPECT_TRUE(result == SDF_V2_SUCCESS || result == SDF_V2_INVALID_ARG ||
                    result == SDF_V2_INVALID_OPERATION || result == SDF_V2_SERVICE_DOWN)
            << result;
    }
    return result == SDF_V2_SUCCESS;
}

void Account::rejected(long long result) const {
    const std::lock_guard<std::mutex> guard(mLock);
    EXPECT_TRUE(result == SDF_V2_INVALID_ARG ||
                (mTerms == Terms::kAnswers &&
                 (result == SDF_V2_SERVICE_DOWN || result == SDF_V2_INVALID_OPERATION)))
        << result;
}

bool Account::drawn(long long id) {
    const std::lock_guard<std::mutex> guard(mLock);
    ++mMade;
    if (mTerms == Terms::kAnswers) {
        EXPECT_TRUE(id > 0 || id == SDF_V2_SERVICE_DOWN || id == SDF_V2_INVALID_OPERATION) << id;
        return id > 0;
    }
    EXPECT_GT(id, 0);
    EXPECT_LE(add(mIds, std::to_string(id), 1), 1) << "id " << id << " is in use";
    return id > 0;
}

void Account::idIsFree(long long id) {
    const std::lock_guard<std::mutex> guard(mLock);
    if (mTerms == Terms::kAll) add(mIds, std::to_string(id), -1);
}

unsigned int Account::losses() const {
    const std::lock_guard<std::mutex> guard(mLock);
    return mLosses;
}

std::string Account::expectAnswer(const std::string& text, unsigned int losses) {
    const std::lock_guard<std::mutex> guard(mLock);
    ++mAsked;
    std::string key = keyOf(text);
    const auto early = mCounts.find(key);
    const bool came = early != mCounts.end() && early->second < 0;
    if (losses != mLosses && !came) {
        ++mLost[withoutValues(text)];
    } else {
        EXPECT_LE(add(mCounts, key, 1), 1) << key << " is awaited already";
    }
    return key;
}

void Account::expect(const std::string& text) {
    const std::lock_guard<std::mutex> guard(mLock);
    if (mTerms == Terms::kAll) add(mCounts, text, 1);
}

void Account::happened(const ClientEvent& event) {
    const std::lock_guard<std::mutex> guard(mLock);
    if (mTerms == Terms::kAnswers && !answers(event)) return;
    if (startsWith(event.text, "listed")) {
        // One for each filter that is there by then.
        EXPECT_EQ(event.status, SDF_FILTER_ACTIVE);
        return;
    }
    if (answers(event)) ++mAnswered;
    const std::string key =
        startsWith(event.text, "report") ? withoutValues(event.text) : keyOf(event.text);
    const auto lost = mLost.find(withoutValues(event.text));
    if (!isAwaited(key) && lost != mLost.end()) {
        if (--lost->second == 0) mLost.erase(lost);
        return;
    }
    if (mTerms == Terms::kAll && answers(event) &&
        (event.kind == ClientEvent::Kind::kLevels || event.status != SDF_FILTER_ACTIVE)) {
        add(mIds, std::to_string(event.id), -1);
    }
    add(mCounts, key, -1);
}

void Account::lose() {
    const std::lock_guard<std::mutex> guard(mLock);
    ++mLosses;
    for (auto entry = mCounts.begin(); entry != mCounts.end();) {
        if (entry->second > 0) {
            mLost[withoutValues(entry->first)] += entry->second;
            entry = mCounts.erase(entry);
        } else {
            ++entry;
        }
    }
    mChanged.notify_all();
}

bool Account::waitFor(const std::string& awaited, std::chrono::milliseconds limit) {
    return waitUntil([&] { return !isAwaited(awaited); }, limit);
}

bool Account::waitForAll(std::chrono::milliseconds limit) {
    return waitUntil(
        [this] {
            return std::all_of(mCounts.begin(), mCounts.end(),
                               [](const auto& entry) { return entry.second < 0; });
        },
        limit);
}

bool Account::waitForAnswers(const std::vector<std::string>& awaited, unsigned int losses,
                             std::chrono::milliseconds limit) {
    return waitUntil(
        [&] {
            return mLosses != losses ||
                   std::none_of(awaited.begin(), awaited.end(),
                                [this](const std::string& thing) { return isAwaited(thing); });
        },
        limit);
}

bool Account::isEven() const {
    const std::lock_guard<std::mutex> guard(mLock);
    return mCounts.empty();
}

bool Account::noIdIsUsed() const {
    const std::lock_guard<std::mutex> guard(mLock);
    return mIds.empty();
}

unsigned int Account::made() const {
    const std::lock_guard<std::mutex> guard(mLock);
    return mMade;
}

unsigned int Account::asked() const {
    const std::lock_guard<std::mutex> guard(mLock);
    return mAsked;
}

unsigned int Account::answered() const {
    const std::lock_guard<std::mutex> guard(mLock);
    return mAnswered;
}

std::string Account::keyOf(const std::string& text) const {
    return mTerms == Terms::kAll ? text : withoutValues(text);
}

// Returns the new count.
int Account::add(Counts& counts, const std::string& thing, int count) {
    const auto entry = counts.try_emplace(thing, 0).first;
    const int now = entry->second += count;
    if (now == 0) counts.erase(entry);
    mChanged.notify_all();
    return now;
}

bool Account::isAwaited(const std::string& thing) const {
    const auto entry = mCounts.find(thing);
    return entry != mCounts.end() && entry->second > 0;
}

template <typename Reached>
bool Account::waitUntil(const Reached& reached, std::chrono::milliseconds limit) {
    constexpr std::chrono::milliseconds kStep(100);
    std::unique_lock<std::mutex> guard(mLock);
    for (auto waited = std::chrono::milliseconds::zero(); waited < limit; waited += kStep) {
        if (mChanged.wait_for(guard, kStep, reached)) return true;
        if (testing::Test::HasFailure()) break;
    }
    return reached();
}
