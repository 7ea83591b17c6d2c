// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <random>
#include <set>
#include <thread>
#include <utility>
#include <vector>

#include "api/Sdf.h"
#include "tests/stress/ClientEvents.h"
#include "tests/stress/Figures.h"
#include "tests/stress/MixedFilters.h"
#include "tests/support/EmulatorProcess.h"
#include "tests/support/TestDirectory.h"
#include "utils/NoDestroy.h"

// An application with four threads that make requests of every kind while answers are delivered:
// what a library built with LUM_SDF_GUARDED allows.

namespace {

constexpr int kThreads = 4;
constexpr int kRequests = LUM_REQUESTS;
constexpr size_t kFiltersEach = kMostFilters / kThreads;
constexpr std::chrono::seconds kGenerous(60);

// Things that are to happen, and have: what comes before it is expected counts as less than none.
template <typename Thing>
class Balance {
  public:
    // Return the new count.
    int expect(const Thing& thing) { return add(thing, 1); }
    int happened(const Thing& thing) { return add(thing, -1); }
    // Waits until what was expected has happened.
    bool waitFor(const Thing& thing) {
        return waitUntil([&] { return mCounts.count(thing) == 0; });
    }
    bool waitForAll() {
        return waitUntil([this] { return mCounts.empty(); });
    }

  private:
    int add(const Thing& thing, int count) {
        const std::lock_guard<std::mutex> guard(mLock);
        const auto entry = mCounts.try_emplace(thing, 0).first;
        const int now = entry->second += count;
        if (now == 0) mCounts.erase(entry);
        mChanged.notify_all();
        return now;
    }
    template <typename Reached>
    bool waitUntil(const Reached& reached) {
        std::unique_lock<std::mutex> guard(mLock);
        return mChanged.wait_for(guard, kGenerous, reached);
    }

    std::mutex mLock;
    std::condition_variable mChanged;
    std::map<Thing, int> mCounts;
};

std::atomic<int> gMade{0};
// Callbacks as their texts; of lists and reports, whose contents depend on what other threads do,
// only the kind.
NoDestroy<Balance<std::string>> gCallbacks;
// How often each id is in use, as far as the application can know: at most once.
NoDestroy<Balance<long long>> gIds;

// The list that the first thread has asked for.
struct Listed {
    std::mutex lock;
    std::multiset<long long> ids;
};
NoDestroy<Listed> gListed;

void happened(const ClientEvent& event) {
    forgetClientEvents();
    std::string text = event.text;
    const std::string kind = text.substr(0, text.find(' '));
    if (kind == "levels" || (kind == "added" && event.status != SDF_FILTER_ACTIVE)) {
        gIds.value.happened(event.id);
    } else if (kind == "listed") {
        EXPECT_EQ(event.status, SDF_FILTER_ACTIVE);
        const std::lock_guard<std::mutex> guard(gListed.value.lock);
        gListed.value.ids.insert(event.id);
        return;
    } else if (kind == "report") {
        text = text.substr(0, text.find(':'));
    }
    gCallbacks.value.happened(text);
}

void expectState(const char* what, long long id, int state) {
    gCallbacks.value.expect(what + std::to_string(id) + ": " + std::to_string(state));
}

void accepted(long long result) {
    ++gMade;
    EXPECT_EQ(result, SDF_V2_SUCCESS);
}

long long drawn(long long id) {
    ++gMade;
    EXPECT_GT(id, 0);
    EXPECT_LE(gIds.value.expect(id), 1) << "id " << id << " is in use";
    return id;
}

// One thread of the application. The first lists and asks for reports, the second plays games.
class Worker {
  public:
    explicit Worker(int number)
        : mNumber(number),
          mRandom(static_cast<unsigned int>(number)),
          // A range of its own, so that no two threads ask for the same filter.
          mFilterNumber(static_cast<uint32_t>(number) << 20U) {}

    void run(int requests) {
        while (gMade < requests && !testing::Test::HasFailure()) batch();
    }

    // Deletes what is left and waits until all is answered. One thread after the other.
    void finish() {
        if (mGaming) setGaming();
        while (!mFilters.empty()) deleteOne();
        batch();
        while (!mFilters.empty()) deleteOne();
        ASSERT_TRUE(gCallbacks.value.waitForAll());
    }

  private:
    // The service answers in order: when the last request is answered, all are.
    void batch() {
        for (int i = random(16); i > 0; --i) requestAnything();
        const std::string last = setLevels();
        ASSERT_TRUE(gCallbacks.value.waitFor(last)) << last;
        mFilters.insert(mFilters.end(), mAdded.begin(), mAdded.end());
        mAdded.clear();
        mReports = false;
        checkList();
    }

    void requestAnything() {
        const int kind = random(12);
        if (kind < 3) return add();
        if (kind < 5) return update();
        switch (kind) {
            case 5:
            case 6:
                if (mFilters.size() == kFiltersEach) deleteOne();
                return;
            case 7: return mNumber == 0 ? list() : setLink();
            case 8: return mNumber == 0 ? report() : setLink();
            case 9: return mNumber == 1 ? setGaming() : setLink();
            case 10:
                EXPECT_EQ(sdfDeleteFilter(0), SDF_V2_INVALID_ARG);
                EXPECT_EQ(sdfAddFilter(SdfAddFilterInfo{}, onAdded), SDF_V2_INVALID_ARG);
                return accepted(sdfRegFilterStatus(onFilterStatus));
            default: setLevels();
        }
    }

    // Returns the text of the answer.
    std::string setLevels() {
        const SdfLatencyLvl first = numberedLevel(static_cast<uint32_t>(random(6)));
        const SdfLatencyLvl second = numberedLevel(static_cast<uint32_t>(random(6)));
        const long long id =
            drawn(sdfSetLatencyLvl(SDF_SLOT_ID_FIRST, first, second, true, onLevels));
        const std::string answer = "levels " + std::to_string(id) + ": " + std::to_string(first) +
                                   " " + std::to_string(second);
        gCallbacks.value.expect(answer);
        return answer;
    }

    void add() {
        if (random(32) == 0) {
            expectState("added ", drawn(sdfAddFilter(twoFamilies(), onAdded)),
                        SDF_FILTER_ERROR_INVALID_ARGS);
        } else if (mFilters.size() + mAdded.size() < kFiltersEach) {
            const long long id = drawn(addNumbered(++mFilterNumber, onAdded));
            expectState("added ", id, SDF_FILTER_ACTIVE);
            mAdded.push_back(static_cast<unsigned int>(id));
        }
    }

    void update() {
        if (mFilters.empty()) return;
        const auto id = mFilters[static_cast<size_t>(random(static_cast<int>(mFilters.size())))];
        switch (random(4)) {
            case 0: accepted(sdfUpdateLatencyLvl(id, SDF_LATENCY_LVL_2, SDF_LATENCY_LVL_5)); break;
            case 1: accepted(sdfUpdateOod(id, SDF_OOD_DISABLED_LVL)); break;
            case 2: accepted(sdfUpdatePdcpTimer(id, 100)); break;
            default: accepted(sdfUpdateTargetDscp(id, 46));
        }
        expectState("filter ", id, SDF_FILTER_ACTIVE);
    }

    void deleteOne() {
        const unsigned int id = mFilters.front();
        mFilters.erase(mFilters.begin());
        // Another thread may draw the id as soon as it is free.
        gIds.value.happened(id);
        accepted(sdfDeleteFilter(id));
        expectState("filter ", id, SDF_FILTER_DELETED);
    }

    // One list at a time, so that it is known what must be in it.
    void list() {
        if (std::exchange(mLists, true)) return;
        mMustBeListed = mFilters;
        accepted(sdfGetFilters(onListed));
    }

    // Those of this thread that it has not deleted before asking are all there; nothing is there
    // twice.
    void checkList() {
        if (!std::exchange(mLists, false)) return;
        const std::lock_guard<std::mutex> guard(gListed.value.lock);
        std::multiset<long long>& ids = gListed.value.ids;
        for (const long long id : ids) EXPECT_EQ(ids.count(id), 1U) << id;
        for (const unsigned int id : mMustBeListed) EXPECT_EQ(ids.count(id), 1U) << id;
        ids.clear();
    }

    // The callback for all reports is called, and the one for this report.
    void report() {
        if (std::exchange(mReports, true)) return;
        for (int callback = 0; callback < 2; ++callback) gCallbacks.value.expect("report 32");
        accepted(sdfGetPriorityQueueReport(onReport));
    }

    void setGaming() {
        mGaming = !mGaming;
        if (mGaming) ++mAutoFilter;
        gCallbacks.value.expect(autoFilterText(mAutoFilter, mGaming));
        accepted(sdfEnHighPerfGaming(mGaming));
    }

    void setLink() {
        switch (random(4)) {
            case 0: return accepted(sdfUpdateDdsOod(SDF_OOD_ENABLED_LVL));
            case 1: return accepted(sdfUpdateDdsPdcpTimer(20));
            case 2: return accepted(sdfPrioritizeData(SDF_SLOT_ID_SECOND, true));
            default: return accepted(sdfPrioritizeDds(true));
        }
    }

    int random(int below) { return std::uniform_int_distribution<int>(0, below - 1)(mRandom); }

    const int mNumber;
    std::mt19937 mRandom;
    uint32_t mFilterNumber;
    std::vector<unsigned int> mFilters;
    std::vector<unsigned int> mAdded;  // in this batch: known when it has been answered
    std::vector<unsigned int> mMustBeListed;
    bool mLists = false;
    bool mReports = false;
    bool mGaming = false;
    unsigned int mAutoFilter = 0x80000000U;
};

// All threads until so many requests have been made in all, and everything is answered, deleted and
// switched off.
void work(std::vector<Worker>& workers, int requests) {
    std::vector<std::thread> threads;
    threads.reserve(workers.size());
    for (Worker& worker : workers) {
        threads.emplace_back([&worker, requests] { worker.run(requests); });
    }
    for (std::thread& thread : threads) thread.join();
    ASSERT_FALSE(testing::Test::HasFailure());
    for (Worker& worker : workers) ASSERT_NO_FATAL_FAILURE(worker.finish());
    EXPECT_TRUE(gIds.value.waitForAll());
}

TEST(MixedThreadsTest, EveryAnswerComesOnceAndLeavesNothing) {
    const TestDirectory directory;
    EmulatorProcess emulator;
    ASSERT_EQ(createSdfClient(onStatus), 0);
    ASSERT_TRUE(waitForStatus(SDF_V2_SERVICE_UP));
    setEventHook(happened);
    ASSERT_EQ(sdfRegFilterStatus(onFilterStatus), 0);
    ASSERT_EQ(sdfRegAutoFilterInfo(onAutoFilter), 0);
    // The interval is a day: no report comes unasked.
    ASSERT_EQ(sdfRegPriorityQueueReports(true, 24 * 60 * 60 * 1000, onReport), 0);
    std::vector<Worker> workers;
    for (int i = 0; i < kThreads; ++i) workers.emplace_back(i);
    ASSERT_NO_FATAL_FAILURE(work(workers, kRequests / 10));
    // First, because what the emulator prints is kept here.
    const EmulatorProcess::Stats emulatorBefore = emulator.stats();
    const Figures before = figures();

    // The same client goes on, so that what it kept would show.
    ASSERT_NO_FATAL_FAILURE(work(workers, kRequests));
    EXPECT_TRUE(settlesAt(before));
    EXPECT_TRUE(settlesAt(emulator, emulatorBefore));

    const std::shared_ptr<Sdf> sdf = Sdf::current();
    ASSERT_EQ(destroySdfClient(), 0);
    EXPECT_TRUE(sdf->mUsedIds.empty());
    EXPECT_TRUE(sdf->mFilterIds.empty());
    EXPECT_TRUE(sdf->mLatencyCbs.empty());
    EXPECT_TRUE(sdf->mFilterCbs.empty());
    EXPECT_EQ(sdf->mGetPriorityQueueReportCb, nullptr);
}

}  // namespace
