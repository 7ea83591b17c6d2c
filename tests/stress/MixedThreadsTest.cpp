// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <random>
#include <set>
#include <shared_mutex>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include "api/Sdf.h"
#include "tests/stress/Figures.h"
#include "tests/stress/MixedFilters.h"
#include "tests/support/EmulatorProcess.h"
#include "tests/support/SocketFolder.h"
#include "utils/NoDestroy.h"

// An application with four threads that make requests of every kind while answers are delivered:
// what a library built with LUM_SDF_GUARDED allows.

namespace {

constexpr int kThreads = 4;
constexpr int kRequests = LUM_REQUESTS;
constexpr size_t kFiltersEach = kMostFilters / kThreads;
constexpr unsigned int kOneDay = 24 * 60 * 60 * 1000;
constexpr std::chrono::seconds kGenerous(60);

std::atomic<int> gMade{0};

// Things that are to happen, and have: what comes before it is expected counts as less than none.
template <typename Thing>
class Balance {
  public:
    void expect(const Thing& thing) { add(thing, 1); }
    void happened(const Thing& thing) { add(thing, -1); }
    bool waitUntilEven() {
        std::unique_lock<std::mutex> guard(mLock);
        return mChanged.wait_for(guard, kGenerous, [this] { return mCounts.empty(); });
    }

  private:
    void add(const Thing& thing, int count) {
        const std::lock_guard<std::mutex> guard(mLock);
        const auto entry = mCounts.try_emplace(thing, 0).first;
        entry->second += count;
        if (entry->second == 0) mCounts.erase(entry);
        if (mCounts.empty()) mChanged.notify_all();
    }

    std::mutex mLock;
    std::condition_variable mChanged;
    std::map<Thing, int> mCounts;
};

using IdAndState = std::pair<long long, int>;

// What comes through the callbacks that all threads share.
struct Shared {
    Balance<IdAndState> filterStatus;
    Balance<IdAndState> autoFilters;  // by state alone: the service draws the ids
    Balance<int> reports;
    std::shared_mutex deleting;  // held alone by who deletes everybody's filters
};
NoDestroy<Shared> gShared;

// How often each id is in use, as far as the application can know. An answer may come before the
// thread that asked knows the id; that counts as less than none.
class Ids {
  public:
    void use(long long id) {
        EXPECT_GT(id, 0);
        EXPECT_LE(add(id, 1), 1) << "id " << id << " is in use";
    }
    void release(long long id) { add(id, -1); }
    bool none() {
        const std::lock_guard<std::mutex> guard(mLock);
        return mUses.empty();
    }

  private:
    int add(long long id, int count) {
        const std::lock_guard<std::mutex> guard(mLock);
        const auto entry = mUses.try_emplace(id, 0).first;
        const int uses = entry->second += count;
        if (uses == 0) mUses.erase(entry);
        return uses;
    }

    std::mutex mLock;
    std::map<long long, int> mUses;
};
NoDestroy<Ids> gIds;

struct Answer {
    long long id;
    int first;
    int second;

    bool operator<(const Answer& other) const {
        return std::tie(id, first, second) < std::tie(other.id, other.first, other.second);
    }
};

// One thread of the application. Its answers come through callbacks of its own.
class Worker {
  public:
    void begin(int number);
    void run(int requests);
    // Deletes everybody's filters, when no other runs, and waits until all is answered.
    void finish();
    // Switches gaming off if this thread has it on.
    void stopGaming();

    // The callbacks.
    void levels(long long id, SdfLatencyLvl first, SdfLatencyLvl second);
    void added(unsigned int id, SdfFilterStatus status);
    void listed(unsigned int id, SdfFilterStatus status);
    void reportedOnce(uint64_t packets, uint64_t bytes);

  private:
    struct Listed {
        std::mutex lock;
        std::multiset<long long> ids;
    };

    void batch();
    void requestAnything();
    void setLevels();
    void add();
    void update();
    void deleteOne();
    void deleteEverybodys();
    void list();
    void report();
    void setGaming();
    void setLink();
    void checkList();
    static void accepted(long long result);

    int random(int below) { return std::uniform_int_distribution<int>(0, below - 1)(mRandom); }

    int mNumber = 0;
    std::mt19937 mRandom;
    uint32_t mFilterNumber = 0;
    std::vector<unsigned int> mFilters;
    std::vector<unsigned int> mAdded;  // in this batch: known when it has been answered
    bool mGaming = false;
    bool mLists = false;
    long long mLastId = 0;
    std::vector<unsigned int> mMustBeListed;
    bool mReports = false;
    Balance<Answer> mAnswers;
    Listed mListed;
    std::atomic<int> mReportEntries{0};
};
NoDestroy<std::array<Worker, kThreads>> gWorkers;

Worker& worker(int number) {
    return gWorkers.value[static_cast<size_t>(number)];
}

template <int kWorker>
void onLevels(long long id, SdfLatencyLvl first, SdfLatencyLvl second) {
    worker(kWorker).levels(id, first, second);
}
template <int kWorker>
void onAdded(unsigned int id, SdfFilterStatus status) {
    worker(kWorker).added(id, status);
}
void onListed(unsigned int id, SdfFilterStatus status, SdfLatencyLvl first, SdfLatencyLvl second,
              SdfOod ood, unsigned int pdcpTimer) {
    // What filters begin with or are updated to.
    EXPECT_STRNE(sdfLatencyLvlText(first), "unknown");
    EXPECT_STRNE(sdfLatencyLvlText(second), "unknown");
    EXPECT_STRNE(sdfOodText(ood), "unknown");
    EXPECT_GT(pdcpTimer, 0U);
    worker(0).listed(id, status);
}
void onReportOnce(unsigned int key, uint64_t packets, uint64_t bytes) {
    EXPECT_EQ(key, static_cast<unsigned int>(SDF_APP_TYPE_TRAFFIC_PRIO_BE));
    worker(0).reportedOnce(packets, bytes);
}
void onReport(unsigned int key, uint64_t packets, uint64_t bytes) {
    EXPECT_EQ(key, static_cast<unsigned int>(SDF_APP_TYPE_TRAFFIC_PRIO_BE));
    EXPECT_EQ(bytes, packets * 1200);
    gShared.value.reports.happened(0);
}
void onFilterStatus(unsigned int id, SdfFilterStatus status) {
    gShared.value.filterStatus.happened({id, status});
}
void onAutoFilter(unsigned int id, SdfAddFilterInfo info) {
    EXPECT_GE(id, 0x80000001U);
    const bool active = info.src_addr.ss_family == AF_INET;
    gShared.value.autoFilters.happened({0, active ? SDF_FILTER_ACTIVE : SDF_FILTER_DELETED});
}

constexpr SdfEffectiveLevelsCb kLevelsCbs[kThreads] = {onLevels<0>, onLevels<1>, onLevels<2>,
                                                       onLevels<3>};
constexpr SdfFilterStatusCb kAddedCbs[kThreads] = {onAdded<0>, onAdded<1>, onAdded<2>, onAdded<3>};

struct Status {
    std::mutex lock;
    std::condition_variable changed;
    bool up = false;
};
NoDestroy<Status> gStatus;

void onStatus(int status) {
    EXPECT_EQ(status, SDF_V2_SERVICE_UP);
    const std::lock_guard<std::mutex> guard(gStatus.value.lock);
    gStatus.value.up = true;
    gStatus.value.changed.notify_all();
}

void Worker::begin(int number) {
    mNumber = number;
    mRandom.seed(static_cast<unsigned int>(number));
    // A range of its own, so that no two threads ask for the same filter.
    mFilterNumber = static_cast<uint32_t>(number) << 20U;
}

void Worker::run(int requests) {
    while (gMade < requests && !testing::Test::HasFailure()) {
        if (mNumber == 3 && random(100) == 0) deleteEverybodys();
        const std::shared_lock<std::shared_mutex> guard(gShared.value.deleting);
        batch();
    }
}

void Worker::stopGaming() {
    if (mGaming) setGaming();
}

void Worker::finish() {
    deleteEverybodys();
    setLevels();
    ASSERT_TRUE(mAnswers.waitUntilEven());
    // The library has done with it when the callback has returned.
    while (Sdf::current()->findRequest(&Sdf::mLatencyCbs, static_cast<unsigned int>(mLastId))) {
        std::this_thread::yield();
    }
}

// Some requests and the wait for their answers.
void Worker::batch() {
    for (int i = random(8); i >= 0; --i) requestAnything();
    // Its answer comes after all that the service has to say to the others.
    setLevels();
    ASSERT_TRUE(mAnswers.waitUntilEven());
    mFilters.insert(mFilters.end(), mAdded.begin(), mAdded.end());
    mAdded.clear();
    checkList();
    EXPECT_EQ(mReportEntries.exchange(0), mReports ? 1 : 0);
    mReports = false;
}

void Worker::requestAnything() {
    switch (random(12)) {
        case 0:
        case 1:
        case 2: return add();
        case 3: return deleteOne();
        case 4:
        case 5: return update();
        case 6:
            if (mNumber == 0) return list();
            return setLevels();
        case 7:
            if (mNumber == 0) return report();
            return setLevels();
        case 8:
            if (mNumber == 1) return setGaming();
            return setLink();
        case 9:
            EXPECT_EQ(sdfDeleteFilter(0), SDF_V2_INVALID_ARG);
            EXPECT_EQ(sdfAddFilter(SdfAddFilterInfo{}, onFilterStatus), SDF_V2_INVALID_ARG);
            return;
        case 10: return accepted(sdfRegFilterStatus(onFilterStatus));
        default: return setLink();
    }
}

void Worker::accepted(long long result) {
    ++gMade;
    EXPECT_EQ(result, SDF_V2_SUCCESS);
}

void Worker::setLevels() {
    const SdfLatencyLvl first = numberedLevel(static_cast<uint32_t>(random(6)));
    const SdfLatencyLvl second = numberedLevel(static_cast<uint32_t>(random(6)));
    const long long id = sdfSetLatencyLvl(SDF_SLOT_ID_FIRST, first, second, true,
                                          kLevelsCbs[static_cast<size_t>(mNumber)]);
    ++gMade;
    gIds.value.use(id);
    mLastId = id;
    mAnswers.expect({id, first, second});
}

void Worker::levels(long long id, SdfLatencyLvl first, SdfLatencyLvl second) {
    gIds.value.release(id);
    mAnswers.happened({id, first, second});
}

void Worker::add() {
    const SdfFilterStatusCb cb = kAddedCbs[static_cast<size_t>(mNumber)];
    if (random(32) == 0) {
        const long long id = sdfAddFilter(twoFamilies(), cb);
        ++gMade;
        gIds.value.use(id);
        mAnswers.expect({id, SDF_FILTER_ERROR_INVALID_ARGS, 0});
        return;
    }
    if (mFilters.size() + mAdded.size() >= kFiltersEach) return deleteOne();
    const long long id = addNumbered(++mFilterNumber, cb);
    ++gMade;
    gIds.value.use(id);
    mAnswers.expect({id, SDF_FILTER_ACTIVE, 0});
    mAdded.push_back(static_cast<unsigned int>(id));
}

void Worker::added(unsigned int id, SdfFilterStatus status) {
    if (status != SDF_FILTER_ACTIVE) gIds.value.release(id);
    mAnswers.happened({id, status, 0});
}

void Worker::update() {
    if (mFilters.empty()) return;
    const unsigned int id =
        mFilters[static_cast<size_t>(random(static_cast<int>(mFilters.size())))];
    switch (random(4)) {
        case 0: accepted(sdfUpdateLatencyLvl(id, SDF_LATENCY_LVL_2, SDF_LATENCY_LVL_5)); break;
        case 1: accepted(sdfUpdateOod(id, SDF_OOD_DISABLED_LVL)); break;
        case 2: accepted(sdfUpdatePdcpTimer(id, 100)); break;
        default: accepted(sdfUpdateTargetDscp(id, 46));
    }
    gShared.value.filterStatus.expect({id, SDF_FILTER_ACTIVE});
}

void Worker::deleteOne() {
    if (mFilters.size() < kFiltersEach) return;
    const unsigned int id = mFilters.front();
    mFilters.erase(mFilters.begin());
    // Another thread may draw the id as soon as it is free.
    gIds.value.release(id);
    accepted(sdfDeleteFilter(id));
    gShared.value.filterStatus.expect({id, SDF_FILTER_DELETED});
}

void Worker::deleteEverybodys() {
    const std::unique_lock<std::shared_mutex> guard(gShared.value.deleting);
    size_t count = 0;
    for (int i = 0; i < kThreads; ++i) {
        for (const unsigned int id : worker(i).mFilters) {
            gIds.value.release(id);
            gShared.value.filterStatus.expect({id, SDF_FILTER_DELETED});
            ++count;
        }
        worker(i).mFilters.clear();
    }
    const long long result = sdfDeleteAllFilter();
    ++gMade;
    EXPECT_EQ(result, count == 0 ? SDF_V2_INVALID_OPERATION : SDF_V2_SUCCESS);
}

// One at a time, so that it is known whose list it is.
void Worker::list() {
    if (mLists) return;
    mLists = true;
    mMustBeListed = mFilters;
    accepted(sdfGetFilters(onListed));
}

void Worker::listed(unsigned int id, SdfFilterStatus status) {
    EXPECT_EQ(status, SDF_FILTER_ACTIVE);
    const std::lock_guard<std::mutex> guard(mListed.lock);
    mListed.ids.insert(id);
}

// Those of this thread are all there; nobody's is there twice.
void Worker::checkList() {
    const std::lock_guard<std::mutex> guard(mListed.lock);
    if (!mLists) {
        EXPECT_TRUE(mListed.ids.empty());
    }
    EXPECT_LE(mListed.ids.size(), kMostFilters);
    for (const long long id : mListed.ids) EXPECT_EQ(mListed.ids.count(id), 1U) << id;
    for (const unsigned int id : mMustBeListed) EXPECT_EQ(mListed.ids.count(id), 1U) << id;
    mListed.ids.clear();
    mMustBeListed.clear();
    mLists = false;
}

void Worker::report() {
    if (mReports) return;
    mReports = true;
    gShared.value.reports.expect(0);
    accepted(sdfGetPriorityQueueReport(onReportOnce));
}

void Worker::reportedOnce(uint64_t packets, uint64_t bytes) {
    EXPECT_GT(packets, uint64_t{1} << 32U);
    EXPECT_EQ(bytes, packets * 1200);
    ++mReportEntries;
}

void Worker::setGaming() {
    mGaming = !mGaming;
    gShared.value.autoFilters.expect({0, mGaming ? SDF_FILTER_ACTIVE : SDF_FILTER_DELETED});
    accepted(sdfEnHighPerfGaming(mGaming));
}

void Worker::setLink() {
    switch (random(5)) {
        case 0: return accepted(sdfUpdateDdsOod(SDF_OOD_ENABLED_LVL));
        case 1: return accepted(sdfUpdateDdsPdcpTimer(20));
        case 2: return accepted(sdfPrioritizeData(SDF_SLOT_ID_SECOND, true));
        case 3: return accepted(sdfRegPriorityQueueReports(true, kOneDay, onReport));
        default: return accepted(sdfPrioritizeDds(true));
    }
}

// All threads until so many requests have been made in all.
void run(int requests) {
    std::vector<std::thread> threads;
    threads.reserve(kThreads);
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([i, requests] { worker(i).run(requests); });
    }
    for (std::thread& thread : threads) thread.join();
}

// Creates the client and waits until it can be used.
void begin() {
    ASSERT_EQ(createSdfClient(onStatus), 0);
    {
        std::unique_lock<std::mutex> guard(gStatus.value.lock);
        ASSERT_TRUE(
            gStatus.value.changed.wait_for(guard, kGenerous, [] { return gStatus.value.up; }));
    }
    for (int i = 0; i < kThreads; ++i) worker(i).begin(i);
    ASSERT_EQ(sdfRegFilterStatus(onFilterStatus), 0);
    ASSERT_EQ(sdfRegAutoFilterInfo(onAutoFilter), 0);
    ASSERT_EQ(sdfRegPriorityQueueReports(true, kOneDay, onReport), 0);
}

// Until so many requests have been made in all, and everything is answered, deleted and switched
// off.
void work(int requests) {
    run(requests);
    ASSERT_FALSE(testing::Test::HasFailure());
    worker(1).stopGaming();
    ASSERT_NO_FATAL_FAILURE(worker(3).finish());
    ASSERT_TRUE(gShared.value.filterStatus.waitUntilEven());
    ASSERT_TRUE(gShared.value.autoFilters.waitUntilEven());
    ASSERT_TRUE(gShared.value.reports.waitUntilEven());
    EXPECT_TRUE(gIds.value.none());
}

// Nothing is left of the client.
void end() {
    const std::shared_ptr<Sdf> sdf = Sdf::current();
    ASSERT_EQ(destroySdfClient(), 0);
    EXPECT_TRUE(sdf->mUsedIds.empty());
    EXPECT_TRUE(sdf->mFilterIds.empty());
    EXPECT_TRUE(sdf->mLatencyCbs.empty());
    EXPECT_TRUE(sdf->mFilterCbs.empty());
    EXPECT_EQ(sdf->mGetPriorityQueueReportCb, nullptr);
}

TEST(MixedThreadsTest, EveryAnswerComesOnceAndLeavesNothing) {
    const SocketFolder folder;
    EmulatorProcess emulator;
    ASSERT_NO_FATAL_FAILURE(begin());
    ASSERT_NO_FATAL_FAILURE(work(kRequests / 10));
    // First, because what the emulator prints is kept here.
    const EmulatorProcess::Stats emulatorBefore = emulator.stats();
    const Figures before = figures();

    // The same client goes on, so that what it kept would show.
    ASSERT_NO_FATAL_FAILURE(work(kRequests));
    EXPECT_TRUE(settlesAt(before));
    EXPECT_TRUE(settlesAt(emulator, emulatorBefore));
    ASSERT_NO_FATAL_FAILURE(end());
}

}  // namespace
