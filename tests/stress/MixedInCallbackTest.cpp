// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <condition_variable>
#include <deque>
#include <iterator>
#include <list>
#include <memory>
#include <mutex>
#include <optional>
#include <random>
#include <set>
#include <utility>

#include "api/Sdf.h"
#include "tests/stress/Figures.h"
#include "tests/stress/MixedFilters.h"
#include "tests/support/EmulatorProcess.h"
#include "tests/support/SocketFolder.h"
#include "utils/NoDestroy.h"

// An application that makes requests of every kind, all from inside its callbacks, the way that
// needs no lock. The service answers in order, so every callback is known beforehand: which, in
// what order, with what arguments.

namespace {

constexpr int kRequests = LUM_REQUESTS;

// Long enough that no report comes unasked.
constexpr unsigned int kOneDay = 24 * 60 * 60 * 1000;

struct LiveFilter {
    unsigned int id;
    uint32_t number;
    SdfLatencyLvl first;
    SdfLatencyLvl second;
    SdfOod ood;
    unsigned int pdcpTimer;
};

// What the service is to send.
struct Expected {
    enum class Kind { kLevels, kAdded, kFilterStatus, kList, kReport, kAutoFilter };

    Kind kind;
    long long id = 0;
    int first = 0;   // a level or a filter's state
    int second = 0;  // a level
    uint64_t packets = 0;
    std::list<LiveFilter> filters;
};
using Kind = Expected::Kind;

class MixedClient {
  public:
    // Runs until so many requests have been made, more than before, and all is answered, deleted
    // and switched off. Called on the main thread; the first call creates the client, which stays.
    void run(int requests);

    // The callbacks. `variant`: which of two functions was called.
    void serviceIs(int status);
    void levels(long long id, SdfLatencyLvl first, SdfLatencyLvl second);
    void added(unsigned int id, SdfFilterStatus status);
    void filterStatus(int variant, unsigned int id, SdfFilterStatus status);
    void listed(int variant, const LiveFilter& filter, SdfFilterStatus status);
    void reported(bool once, int variant, unsigned int key, uint64_t packets, uint64_t bytes);
    void autoFilter(int variant, unsigned int id, const SdfAddFilterInfo& info);

  private:
    using Slot = std::optional<int>;  // the variant in it

    void arrived();
    void skipSilent();
    std::optional<Expected> next(Kind kind);
    void goOn();
    void fail(const char* what);
    void finish();
    void checkNothingLeft() const;

    void requestAnything();
    void requestBatch();
    void setLevels();
    void add();
    void addRejected(int status, const SdfAddFilterInfo& info);
    void update();
    void deleteOne();
    void deleteAll();
    void list();
    void report();
    void regReports(bool enable);
    void regFilterStatus();
    void regAutoFilter();
    void setGaming(bool enable);
    void setLink();
    void makeMistake();
    void drawn(long long id);
    void accepted(long long result);

    int random(int below) { return std::uniform_int_distribution<int>(0, below - 1)(mRandom); }
    int variant() { return random(2); }
    LiveFilter* serviceFilter(unsigned int id);
    unsigned int anyKnown();

    std::mt19937 mRandom{20261121};
    int mTarget = 0;
    int mMade = 0;
    bool mRegistered = false;
    bool mClosing = false;
    uint32_t mNumber = 0;

    // The service, after all that it has been sent.
    std::list<LiveFilter> mFilters;
    uint64_t mPackets = uint64_t{1} << 32U;
    bool mGaming = false;
    long long mLastAutoFilter = 0;
    std::deque<Expected> mExpected;
    int mLevelsExpected = 0;

    // The library.
    std::set<unsigned int> mPending;
    std::set<unsigned int> mKnown;
    std::optional<unsigned int> mAnswered;   // released when its callback has returned
    std::optional<unsigned int> mConfirmed;  // known when its callback has returned
    Slot mFilterStatusSlot;
    Slot mAutoFilterSlot;
    Slot mReportsSlot;
    Slot mReportSlot;
    Slot mListSlot;

    // The list or the report that is being delivered.
    Slot mListCb;
    std::list<LiveFilter> mListLeft;
    Slot mReportCb;
    bool mReportCbNext = false;
    uint64_t mReportPackets = 0;

    std::mutex mLock;
    std::condition_variable mChanged;
    bool mDone = false;
};

// Never destroyed: callbacks may come while the process ends.
NoDestroy<MixedClient> gClient;

MixedClient& client() {
    return gClient.value;
}

template <int kVariant>
void onFilterStatus(unsigned int id, SdfFilterStatus status) {
    client().filterStatus(kVariant, id, status);
}
template <int kVariant>
void onListed(unsigned int id, SdfFilterStatus status, SdfLatencyLvl first, SdfLatencyLvl second,
              SdfOod ood, unsigned int pdcpTimer) {
    client().listed(kVariant, {id, 0, first, second, ood, pdcpTimer}, status);
}
template <bool kOnce, int kVariant>
void onReport(unsigned int key, uint64_t packets, uint64_t bytes) {
    client().reported(kOnce, kVariant, key, packets, bytes);
}
template <int kVariant>
void onAutoFilter(unsigned int id, SdfAddFilterInfo info) {
    client().autoFilter(kVariant, id, info);
}
void onStatus(int status) {
    client().serviceIs(status);
}
void onLevels(long long id, SdfLatencyLvl first, SdfLatencyLvl second) {
    client().levels(id, first, second);
}
void onAdded(unsigned int id, SdfFilterStatus status) {
    client().added(id, status);
}

void MixedClient::run(int requests) {
    mTarget = mMade + requests;
    mClosing = false;
    mDone = false;
    EXPECT_EQ(createSdfClient(onStatus), 0);
    {
        std::unique_lock<std::mutex> guard(mLock);
        EXPECT_TRUE(mChanged.wait_for(guard, std::chrono::minutes(10), [this] { return mDone; }));
    }
}

void MixedClient::fail(const char* what) {
    ADD_FAILURE() << what << " after " << mMade << " requests";
    finish();
}

void MixedClient::finish() {
    const std::lock_guard<std::mutex> guard(mLock);
    mDone = true;
    mChanged.notify_all();
}

// What has changed since the last callback.
void MixedClient::arrived() {
    if (mAnswered) mPending.erase(*mAnswered);
    if (mConfirmed) mKnown.insert(*mConfirmed);
    mAnswered.reset();
    mConfirmed.reset();
    skipSilent();
}

// Lists and reports that reach no callback.
void MixedClient::skipSilent() {
    while (!mExpected.empty() && mListLeft.empty() && !mReportCbNext) {
        const Expected& front = mExpected.front();
        if (front.kind == Kind::kList) {
            if (mListSlot && !front.filters.empty()) return;
            mListSlot.reset();
        } else if (front.kind != Kind::kReport || mReportSlot || mReportsSlot) {
            return;
        }
        mExpected.pop_front();
    }
}

std::optional<Expected> MixedClient::next(Kind kind) {
    if (mExpected.empty() || mExpected.front().kind != kind || !mListLeft.empty() ||
        mReportCbNext) {
        fail("a callback that is not the next one");
        return std::nullopt;
    }
    Expected expected = std::move(mExpected.front());
    mExpected.pop_front();
    return expected;
}

// At the end of each callback. One request whose answer will call back is always under way.
void MixedClient::goOn() {
    if (mDone || testing::Test::HasFailure()) return finish();
    if (mMade < mTarget) {
        if (random(4) == 0) requestAnything();
        if (mLevelsExpected == 0) requestBatch();
    } else if (mExpected.empty() && mListLeft.empty() && !mReportCbNext) {
        if (mClosing && mKnown.empty() && !mConfirmed && mFilters.empty()) {
            checkNothingLeft();
            return finish();
        }
        mClosing = true;
        if (!mKnown.empty()) deleteAll();
        if (mGaming) setGaming(false);
        regReports(false);
        setLevels();
    } else if (mLevelsExpected == 0) {
        setLevels();
    }
}

// In the callback of the last request.
void MixedClient::checkNothingLeft() const {
    const std::shared_ptr<Sdf> sdf = Sdf::current();
    EXPECT_EQ(sdf->mUsedIds.size(), 1U);
    EXPECT_EQ(sdf->mLatencyCbs.size(), 1U);
    EXPECT_TRUE(sdf->mFilterCbs.empty());
    EXPECT_TRUE(sdf->mFilterIds.empty());
    EXPECT_EQ(sdf->mGetFiltersCb != nullptr, mListSlot.has_value());
    EXPECT_EQ(sdf->mGetPriorityQueueReportCb != nullptr, mReportSlot.has_value());
    EXPECT_EQ(mPending.size(), 1U);
}

void MixedClient::serviceIs(int status) {
    EXPECT_EQ(status, SDF_V2_SERVICE_UP);
    if (status != SDF_V2_SERVICE_UP) return fail("no service");
    arrived();
    if (!std::exchange(mRegistered, true)) {
        regFilterStatus();
        regAutoFilter();
    }
    goOn();
}

void MixedClient::levels(long long id, SdfLatencyLvl first, SdfLatencyLvl second) {
    arrived();
    const auto expected = next(Kind::kLevels);
    if (!expected) return;
    EXPECT_EQ(id, expected->id);
    EXPECT_EQ(first, expected->first);
    EXPECT_EQ(second, expected->second);
    --mLevelsExpected;
    mAnswered = static_cast<unsigned int>(id);
    goOn();
}

void MixedClient::added(unsigned int id, SdfFilterStatus status) {
    arrived();
    const auto expected = next(Kind::kAdded);
    if (!expected) return;
    EXPECT_EQ(id, expected->id);
    EXPECT_EQ(status, expected->first);
    // Not before this has returned.
    EXPECT_EQ(sdfUpdatePdcpTimer(id, 1), SDF_V2_INVALID_ARG);
    EXPECT_EQ(sdfDeleteFilter(id), SDF_V2_INVALID_ARG);
    mAnswered = id;
    if (status == SDF_FILTER_ACTIVE) mConfirmed = id;
    goOn();
}

void MixedClient::filterStatus(int variant, unsigned int id, SdfFilterStatus status) {
    arrived();
    const auto expected = next(Kind::kFilterStatus);
    if (!expected) return;
    EXPECT_EQ(id, expected->id);
    EXPECT_EQ(status, expected->first);
    EXPECT_EQ(variant, mFilterStatusSlot);
    if (status == SDF_FILTER_DELETED) mKnown.erase(id);
    goOn();
}

void MixedClient::listed(int variant, const LiveFilter& filter, SdfFilterStatus status) {
    arrived();
    if (mListLeft.empty()) {
        auto expected = next(Kind::kList);
        if (!expected) return;
        mListLeft = std::move(expected->filters);
        mListCb = std::exchange(mListSlot, std::nullopt);
    }
    const LiveFilter expected = mListLeft.front();
    mListLeft.pop_front();
    EXPECT_EQ(variant, mListCb);
    EXPECT_EQ(filter.id, expected.id);
    EXPECT_EQ(filter.first, expected.first);
    EXPECT_EQ(filter.second, expected.second);
    EXPECT_EQ(filter.ood, expected.ood);
    EXPECT_EQ(filter.pdcpTimer, expected.pdcpTimer);
    EXPECT_EQ(status, SDF_FILTER_ACTIVE);
    goOn();
}

void MixedClient::reported(bool once, int variant, unsigned int key, uint64_t packets,
                           uint64_t bytes) {
    arrived();
    if (!mReportCbNext) {
        const auto expected = next(Kind::kReport);
        if (!expected) return;
        mReportPackets = expected->packets;
        mReportCb = std::exchange(mReportSlot, std::nullopt);
        EXPECT_EQ(once, !mReportsSlot);
        // Both, the one for all reports first.
        mReportCbNext = !once && mReportCb;
    } else {
        EXPECT_TRUE(once);
        mReportCbNext = false;
    }
    EXPECT_EQ(variant, once ? mReportCb : mReportsSlot);
    EXPECT_EQ(key, static_cast<unsigned int>(SDF_APP_TYPE_TRAFFIC_PRIO_BE));
    EXPECT_EQ(packets, mReportPackets);
    EXPECT_EQ(bytes, mReportPackets * 1200);
    goOn();
}

void MixedClient::autoFilter(int variant, unsigned int id, const SdfAddFilterInfo& info) {
    arrived();
    const auto expected = next(Kind::kAutoFilter);
    if (!expected) return;
    const bool active = expected->first == SDF_FILTER_ACTIVE;
    if (active && mLastAutoFilter != 0) {
        EXPECT_EQ(id, mLastAutoFilter + 1);
    }
    if (!active) {
        EXPECT_EQ(id, mLastAutoFilter);
    }
    mLastAutoFilter = id;
    EXPECT_EQ(variant, mAutoFilterSlot);
    EXPECT_EQ(info.src_addr.ss_family, active ? AF_INET : AF_UNSPEC);
    EXPECT_EQ(info.protocol, active ? SDF_PROTOCOL_UDP : SDF_PROTOCOL_NONE);
    EXPECT_EQ(info.first_level, 0);
    goOn();
}

void MixedClient::requestBatch() {
    for (int i = random(8); i > 0; --i) requestAnything();
    setLevels();
}

void MixedClient::requestAnything() {
    switch (random(20)) {
        case 0: return setLevels();
        case 1:
        case 2:
        case 3:
        case 4: return add();
        case 5:
        case 6:
        case 7: return deleteOne();
        case 8:
        case 9:
        case 10: return update();
        case 11: return list();
        case 12: return report();
        case 13: return regReports(variant() != 0);
        case 14: return random(2) == 0 ? regFilterStatus() : regAutoFilter();
        case 15: return setGaming(variant() != 0);
        case 16:
        case 17: return setLink();
        case 18: return makeMistake();
        default:
            if (random(40) == 0) deleteAll();
    }
}

// An id that is nobody else's.
void MixedClient::drawn(long long id) {
    ++mMade;
    ASSERT_GT(id, 0);
    const auto number = static_cast<unsigned int>(id);
    EXPECT_TRUE(mPending.insert(number).second) << "id " << id << " is pending";
    EXPECT_EQ(mKnown.count(number), 0U) << "id " << id << " is a filter's";
}

void MixedClient::accepted(long long result) {
    ++mMade;
    EXPECT_EQ(result, SDF_V2_SUCCESS);
}

void MixedClient::setLevels() {
    const auto slot = static_cast<SdfSlotID>(random(3) - 1);
    const SdfLatencyLvl first = numberedLevel(mNumber);
    const SdfLatencyLvl second = numberedLevel(++mNumber / 2);
    const long long id = sdfSetLatencyLvl(slot, first, second, variant() != 0, onLevels);
    drawn(id);
    mExpected.push_back({Kind::kLevels, id, first, second, 0, {}});
    ++mLevelsExpected;
}

void MixedClient::add() {
    if (random(32) == 0) return addRejected(SDF_FILTER_ERROR_INVALID_ARGS, twoFamilies());
    const uint32_t number = ++mNumber;
    if (mFilters.size() == kMostFilters) {
        return addRejected(SDF_FILTER_ERROR_LIMIT_REACHED, numberedFilter(number));
    }
    const long long id = addNumbered(number, onAdded);
    drawn(id);
    mExpected.push_back({Kind::kAdded, id, SDF_FILTER_ACTIVE, 0, 0, {}});
    const SdfAddFilterInfo info = numberedFilter(number);
    mFilters.push_back({static_cast<unsigned int>(id), number, info.first_level, info.second_level,
                        info.ood, info.pdcp_timer});
}

void MixedClient::addRejected(int status, const SdfAddFilterInfo& info) {
    const long long id = sdfAddFilter(info, onAdded);
    drawn(id);
    mExpected.push_back({Kind::kAdded, id, status, 0, 0, {}});
}

LiveFilter* MixedClient::serviceFilter(unsigned int id) {
    for (LiveFilter& filter : mFilters) {
        if (filter.id == id) return &filter;
    }
    return nullptr;
}

unsigned int MixedClient::anyKnown() {
    return *std::next(mKnown.begin(), random(static_cast<int>(mKnown.size())));
}

void MixedClient::update() {
    if (mKnown.empty()) return;
    const unsigned int id = anyKnown();
    LiveFilter* const there = serviceFilter(id);
    // Deleted by a request whose effect is still to be reported; the service would only complain.
    if (there == nullptr) return;
    LiveFilter& filter = *there;
    const uint32_t number = ++mNumber;
    switch (random(4)) {
        case 0:
            filter.first = numberedLevel(number);
            filter.second = numberedLevel(number / 2);
            accepted(sdfUpdateLatencyLvl(id, filter.first, filter.second));
            break;
        case 1:
            filter.ood = numberedOod(number);
            accepted(sdfUpdateOod(id, filter.ood));
            break;
        case 2:
            filter.pdcpTimer = number;
            accepted(sdfUpdatePdcpTimer(id, number));
            break;
        default: accepted(sdfUpdateTargetDscp(id, number % 64));
    }
    mExpected.push_back({Kind::kFilterStatus, id, SDF_FILTER_ACTIVE, 0, 0, {}});
}

void MixedClient::deleteOne() {
    if (mKnown.size() < kMostFilters / 2) return add();
    const unsigned int id = anyKnown();
    if (serviceFilter(id) == nullptr) return;
    mKnown.erase(id);
    accepted(sdfDeleteFilter(id));
    EXPECT_EQ(sdfDeleteFilter(id), SDF_V2_INVALID_ARG);
    mFilters.remove_if([id](const LiveFilter& filter) { return filter.id == id; });
    mExpected.push_back({Kind::kFilterStatus, id, SDF_FILTER_DELETED, 0, 0, {}});
}

void MixedClient::deleteAll() {
    if (mKnown.empty()) {
        EXPECT_EQ(sdfDeleteAllFilter(), SDF_V2_INVALID_OPERATION);
        return;
    }
    accepted(sdfDeleteAllFilter());
    mKnown.clear();
    // Those too whose confirmation is still to come.
    for (const LiveFilter& filter : mFilters) {
        mExpected.push_back({Kind::kFilterStatus, filter.id, SDF_FILTER_DELETED, 0, 0, {}});
    }
    mFilters.clear();
}

void MixedClient::list() {
    mListSlot = variant();
    accepted(sdfGetFilters(*mListSlot == 0 ? onListed<0> : onListed<1>));
    mExpected.push_back({Kind::kList, 0, 0, 0, 0, mFilters});
}

void MixedClient::report() {
    mReportSlot = variant();
    accepted(sdfGetPriorityQueueReport(*mReportSlot == 0 ? onReport<true, 0> : onReport<true, 1>));
    mPackets += 1000 * (1 + mFilters.size());
    mExpected.push_back({Kind::kReport, 0, 0, 0, mPackets, {}});
}

void MixedClient::regReports(bool enable) {
    mReportsSlot = variant();
    accepted(sdfRegPriorityQueueReports(
        enable, kOneDay, *mReportsSlot == 0 ? onReport<false, 0> : onReport<false, 1>));
}

void MixedClient::regFilterStatus() {
    mFilterStatusSlot = variant();
    accepted(sdfRegFilterStatus(*mFilterStatusSlot == 0 ? onFilterStatus<0> : onFilterStatus<1>));
}

void MixedClient::regAutoFilter() {
    mAutoFilterSlot = variant();
    accepted(sdfRegAutoFilterInfo(*mAutoFilterSlot == 0 ? onAutoFilter<0> : onAutoFilter<1>));
}

void MixedClient::setGaming(bool enable) {
    accepted(sdfEnHighPerfGaming(enable));
    if (enable == mGaming) return;
    mGaming = enable;
    mExpected.push_back(
        {Kind::kAutoFilter, 0, enable ? SDF_FILTER_ACTIVE : SDF_FILTER_DELETED, 0, 0, {}});
}

void MixedClient::setLink() {
    const bool enable = variant() != 0;
    switch (random(4)) {
        case 0: return accepted(sdfUpdateDdsOod(numberedOod(++mNumber)));
        case 1: return accepted(sdfUpdateDdsPdcpTimer(++mNumber));
        case 2: return accepted(sdfPrioritizeData(static_cast<SdfSlotID>(random(3) - 1), enable));
        default: return accepted(sdfPrioritizeDds(enable));
    }
}

// Refused by the library, so nothing comes of it.
void MixedClient::makeMistake() {
    EXPECT_EQ(
        sdfSetLatencyLvl(SDF_SLOT_ID_FIRST, SDF_LATENCY_LVL_1, SDF_LATENCY_LVL_1, true, nullptr),
        SDF_V2_INVALID_ARG);
    EXPECT_EQ(sdfAddFilter(SdfAddFilterInfo{}, onAdded), SDF_V2_INVALID_ARG);
    EXPECT_EQ(sdfUpdateOod(1U << 31U, SDF_OOD_ENABLED_LVL), SDF_V2_INVALID_ARG);
    EXPECT_EQ(sdfGetFilters(nullptr), SDF_V2_INVALID_ARG);
}

TEST(MixedInCallbackTest, EveryAnswerComesOnceInOrderAndLeavesNothing) {
    const SocketFolder folder;
    EmulatorProcess emulator;
    client().run(kRequests / 10);
    ASSERT_FALSE(HasFailure());
    // First, because what the emulator prints is kept here.
    const EmulatorProcess::Stats emulatorBefore = emulator.stats();
    const Figures before = figures();

    // The same client goes on, so that what it kept would show.
    client().run(kRequests - kRequests / 10);
    EXPECT_TRUE(settlesAt(before));
    EXPECT_TRUE(settlesAt(emulator, emulatorBefore));
    EXPECT_EQ(destroySdfClient(), 0);
}

}  // namespace
