// SPDX-License-Identifier: Apache-2.0
// Applications that make requests of every kind, as fast as they are answered: one from inside its
// callbacks, which needs no lock, and one with four threads, which LUM_SDF_GUARDED allows.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "api/Sdf.h"
#include "tests/stress/ClientEvents.h"
#include "tests/stress/Figures.h"
#include "tests/support/EmulatorProcess.h"
#include "tests/support/TestDirectory.h"
#include "utils/NoDestroy.h"

namespace {

constexpr int kThreads = 4;
constexpr size_t kMostFilters = 64;  // that the emulator allows a client
constexpr std::chrono::minutes kGenerous(10);
// The interval of reports: none comes unasked.
constexpr unsigned int kOneDay = 24 * 60 * 60 * 1000;

// Things that are to happen, and have: what comes before it is expected counts as less than none.
class Balance {
  public:
    // Return the new count.
    int expect(const std::string& thing) { return add(thing, 1); }
    int happened(const std::string& thing) { return add(thing, -1); }
    // Waits until what was expected has happened.
    bool waitFor(const std::string& thing) {
        return waitUntil([&] { return mCounts.count(thing) == 0; });
    }
    bool waitForAll() {
        return waitUntil([this] { return mCounts.empty(); });
    }
    bool isEven() {
        const std::lock_guard<std::mutex> guard(mLock);
        return mCounts.empty();
    }

  private:
    int add(const std::string& thing, int count) {
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
    std::map<std::string, int> mCounts;
};

std::atomic<int> gMade{0};
// Callbacks as their texts; of lists and reports, whose contents depend on what other threads do,
// only the kind. Never destroyed: callbacks may come while the process ends.
NoDestroy<Balance> gCallbacks;
// How often each id is in use, as far as the application can know: at most once.
NoDestroy<Balance> gIds;

void happened(const ClientEvent& event) {
    forgetClientEvents();
    std::string text = event.text;
    const std::string kind = text.substr(0, text.find(' '));
    if (kind == "levels" || (kind == "added" && event.status != SDF_FILTER_ACTIVE)) {
        gIds.value.happened(std::to_string(event.id));
    } else if (kind == "listed") {
        // One for each filter that is there by then.
        EXPECT_EQ(event.status, SDF_FILTER_ACTIVE);
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
    EXPECT_LE(gIds.value.expect(std::to_string(id)), 1) << "id " << id << " is in use";
    return id;
}

sockaddr_storage address(uint32_t host, uint16_t port) {
    sockaddr_in four{};
    four.sin_family = AF_INET;
    four.sin_port = htons(port);
    four.sin_addr.s_addr = htonl(0x0A000000U | host);  // 10.0.0.0/8
    sockaddr_storage storage{};
    memcpy(&storage, &four, sizeof four);
    return storage;
}

// Best effort, so that each report has one entry.
SdfAddFilterInfo numberedFilter(uint32_t number) {
    SdfAddFilterInfo info{};
    info.src_addr = address(number & 0xFFFFFFU, 1000);
    info.dest_addr = address(1, 443);
    info.first_level = info.second_level = SDF_LATENCY_LVL_3;
    info.ood = SDF_OOD_ENABLED_LVL;
    info.app_type = SDF_APP_TYPE_TRAFFIC_PRIO_BE;
    return info;
}

void registerForAll() {
    accepted(sdfRegFilterStatus(onFilterStatus));
    accepted(sdfRegAutoFilterInfo(onAutoFilter));
    accepted(sdfRegPriorityQueueReports(true, kOneDay, onReport));
}

// Of ids that await no answer.
void expectNothingKept(const Sdf& sdf, size_t awaited) {
    EXPECT_EQ(sdf.mUsedIds.size(), awaited);
    EXPECT_EQ(sdf.mLatencyCbs.size(), awaited);
    EXPECT_TRUE(sdf.mFilterIds.empty());
    EXPECT_TRUE(sdf.mFilterCbs.empty());
    EXPECT_EQ(sdf.mGetPriorityQueueReportCb, nullptr);
}

// Makes requests: all of the application's, or, as one of four, those of a thread. Then only the
// first asks for lists and reports, and only the second plays games.
class Worker {
  public:
    explicit Worker(int number, bool alone = false)
        : mNumber(number),
          mAlone(alone),
          mMostFilters(alone ? kMostFilters : kMostFilters / kThreads),
          mRandom(static_cast<unsigned int>(number)),
          // A range of its own, so that no two threads ask for the same filter.
          mFilterNumber(static_cast<uint32_t>(number) << 20U) {}

    // Makes some requests. The service answers in order: when the last is answered, all are.
    // Returns the text of that answer.
    std::string batch() {
        for (int i = random(16); i > 0; --i) requestAnything();
        return setLevels();
    }
    // The same, of what ends all that goes on.
    std::string endingBatch() {
        if (mGaming) setGaming();
        if (mAlone && !mFilters.empty()) accepted(sdfDeleteAllFilter());
        while (!mFilters.empty()) forgetOne(!mAlone);
        return setLevels();
    }
    // To be called when a batch is answered.
    void answered() {
        mFilters.insert(mFilters.end(), mAdded.begin(), mAdded.end());
        mAdded.clear();
        mReports = false;
    }
    bool hasFilters() const { return !mFilters.empty(); }

  private:
    void requestAnything() {
        const bool first = mAlone || mNumber == 0;
        const bool second = mAlone || mNumber == 1;
        switch (random(12)) {
            case 0:
            case 1:
            case 2: return add();
            case 3:
            case 4: return update();
            case 5:
            case 6: return mFilters.size() == mMostFilters ? forgetOne(true) : setLink();
            case 7: return first ? accepted(sdfGetFilters(onListed)) : setLink();
            case 8: return first ? report() : setLink();
            case 9: return second ? setGaming() : setLink();
            case 10:
                EXPECT_EQ(sdfDeleteFilter(0), SDF_V2_INVALID_ARG);
                EXPECT_EQ(sdfAddFilter(SdfAddFilterInfo{}, onAdded), SDF_V2_INVALID_ARG);
                return accepted(sdfRegFilterStatus(onFilterStatus));
            default: setLevels();
        }
    }

    // Returns the text of the answer.
    std::string setLevels() {
        const auto first = static_cast<SdfLatencyLvl>(1 + random(6));
        const auto second = static_cast<SdfLatencyLvl>(1 + random(6));
        const long long id =
            drawn(sdfSetLatencyLvl(SDF_SLOT_ID_FIRST, first, second, true, onLevels));
        std::string answer = "levels " + std::to_string(id) + ": " + std::to_string(first) + " " +
                             std::to_string(second);
        gCallbacks.value.expect(answer);
        return answer;
    }

    void add() {
        const bool full = mFilters.size() + mAdded.size() == mMostFilters;
        if (full && !mAlone) return;
        const SdfAddFilterInfo info = numberedFilter(++mFilterNumber);
        const long long id = drawn(mFilterNumber % 2 == 0 ? sdfAddFilter(info, onAdded)
                                                          : sdfAddFilterV2(info, 7, onAdded));
        expectState("added ", id, full ? SDF_FILTER_ERROR_LIMIT_REACHED : SDF_FILTER_ACTIVE);
        if (!full) mAdded.push_back(static_cast<unsigned int>(id));
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

    // Deletes the oldest filter, unless all have been deleted.
    void forgetOne(bool deletes) {
        const unsigned int id = mFilters.front();
        mFilters.erase(mFilters.begin());
        // Another thread may draw the id as soon as it is free.
        gIds.value.happened(std::to_string(id));
        if (deletes) accepted(sdfDeleteFilter(id));
        expectState("filter ", id, SDF_FILTER_DELETED);
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
        gCallbacks.value.expect("auto filter " + std::to_string(mAutoFilter) +
                                (mGaming ? ": 192.0.2.10#50000 > 198.51.100.20#27015 0 0 0 1 2"
                                         : ": none#0 > none#0 0 0 0 0 0"));
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
    const bool mAlone;
    const size_t mMostFilters;
    std::mt19937 mRandom;
    uint32_t mFilterNumber;
    std::vector<unsigned int> mFilters;
    std::vector<unsigned int> mAdded;  // in this batch: known when it has been answered
    bool mReports = false;
    bool mGaming = false;
    unsigned int mAutoFilter = 0x80000000U;
};

class MixedRequestsTest : public testing::Test {
  protected:
    // Works twice. The same client goes on, so that what it kept would show.
    template <typename Work>
    void expectNothingGrows(const Work& work) {
        ASSERT_NO_FATAL_FAILURE(work(LUM_REQUESTS / 10));
        ASSERT_FALSE(HasFailure());
        // First, because what the emulator prints is kept here.
        const EmulatorFigures emulatorBefore = figures(mEmulator);
        const Figures before = figures();
        ASSERT_NO_FATAL_FAILURE(work(LUM_REQUESTS));
        EXPECT_TRUE(settlesAt(before));
        EXPECT_TRUE(settlesAt(mEmulator, emulatorBefore));
        EXPECT_TRUE(gIds.value.isEven());
    }

    const TestDirectory mDirectory;
    EmulatorProcess mEmulator;
};

// Each batch is made in the callback of the last answer to the one before.
class InCallbackClient {
  public:
    // Called on the main thread; the first call creates the client, which stays.
    void run(int requests) {
        mTarget = requests;
        mRuns.expect("run");
        ASSERT_EQ(createSdfClient(onStatus), 0);
        EXPECT_TRUE(mRuns.waitForAll());
    }

    void called(const ClientEvent& event) {
        if (event.kind == ClientEvent::Kind::kStatus) {
            EXPECT_EQ(event.status, SDF_V2_SERVICE_UP);
            registerForAll();
            mLast = mWorker.batch();
            return;
        }
        happened(event);
        if (event.text == mLast) goOn();
    }

  private:
    void goOn() {
        EXPECT_TRUE(gCallbacks.value.isEven()) << "the service answers in order";
        mWorker.answered();
        if (gMade < mTarget && !testing::Test::HasFailure()) {
            mLast = mWorker.batch();
        } else if (mWorker.hasFilters() || !std::exchange(mEnding, true)) {
            mLast = mWorker.endingBatch();
        } else {
            mEnding = false;
            expectNothingKept(*Sdf::current(), 1);  // this callback's
            std::string().swap(mLast);
            mRuns.happened("run");
        }
    }

    Worker mWorker{0, true};
    int mTarget = 0;
    std::string mLast;
    bool mEnding = false;
    Balance mRuns;
};
NoDestroy<InCallbackClient> gInCallback;

TEST_F(MixedRequestsTest, InCallbacksEveryAnswerComesOnceAndLeavesNothing) {
    setEventHook([](const ClientEvent& event) { gInCallback.value.called(event); });
    expectNothingGrows([](int requests) { gInCallback.value.run(requests); });
    EXPECT_EQ(destroySdfClient(), 0);
}

#if LUM_SDF_GUARDED
void answerAll(Worker& worker, const std::string& last) {
    ASSERT_TRUE(gCallbacks.value.waitFor(last)) << last;
    worker.answered();
}

// All threads until so many requests have been made in all, and everything is answered, deleted and
// switched off.
void work(std::vector<Worker>& workers, int requests) {
    std::vector<std::thread> threads;
    threads.reserve(workers.size());
    for (Worker& worker : workers) {
        threads.emplace_back([&worker, requests] {
            while (gMade < requests && !testing::Test::HasFailure()) {
                answerAll(worker, worker.batch());
            }
            answerAll(worker, worker.endingBatch());
        });
    }
    for (std::thread& thread : threads) thread.join();
    ASSERT_FALSE(testing::Test::HasFailure());
    ASSERT_TRUE(gCallbacks.value.waitForAll());
}

TEST_F(MixedRequestsTest, OnFourThreadsEveryAnswerComesOnceAndLeavesNothing) {
    ASSERT_EQ(createSdfClient(onStatus), 0);
    ASSERT_TRUE(waitForStatus(SDF_V2_SERVICE_UP));
    setEventHook(happened);
    registerForAll();
    std::vector<Worker> workers;
    for (int i = 0; i < kThreads; ++i) workers.emplace_back(i);
    expectNothingGrows([&workers](int requests) { work(workers, requests); });
    const std::shared_ptr<Sdf> sdf = Sdf::current();
    ASSERT_EQ(destroySdfClient(), 0);
    expectNothingKept(*sdf, 0);
}
#endif

}  // namespace
