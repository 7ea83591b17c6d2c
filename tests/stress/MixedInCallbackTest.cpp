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

#include "api/Sdf.h"
#include "tests/stress/ClientEvents.h"
#include "tests/stress/Figures.h"
#include "tests/stress/MixedFilters.h"
#include "tests/support/EmulatorProcess.h"
#include "tests/support/TestDirectory.h"
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
    SdfLatencyLvl first;
    SdfLatencyLvl second;
    SdfOod ood;
    unsigned int pdcpTimer;
};

class MixedClient {
  public:
    // Runs until so many requests have been made, more than before, and all is answered, deleted
    // and switched off. Called on the main thread; the first call creates the client, which stays.
    void run(int requests) {
        mTarget = mMade + requests;
        mRegistered = mClosing = mDone = false;
        EXPECT_EQ(createSdfClient(onStatus), 0);
        std::unique_lock<std::mutex> guard(mLock);
        EXPECT_TRUE(mChanged.wait_for(guard, std::chrono::minutes(10), [this] { return mDone; }));
    }

    // Each callback of the library.
    void happened(const ClientEvent& event) {
        forgetClientEvents();
        if (mAnswered) mPending.erase(*mAnswered);
        if (mConfirmed) mKnown.insert(*mConfirmed);
        mAnswered.reset();
        mConfirmed.reset();
        if (!isExpected(event)) return fail(event.text);
        const auto id = static_cast<unsigned int>(event.id);
        switch (event.kind) {
            case ClientEvent::Kind::kLevels:
                --mLevelsExpected;
                mAnswered = id;
                break;
            case ClientEvent::Kind::kAdded:
                // Not before this has returned.
                EXPECT_EQ(sdfUpdatePdcpTimer(id, 1), SDF_V2_INVALID_ARG);
                EXPECT_EQ(sdfDeleteFilter(id), SDF_V2_INVALID_ARG);
                mAnswered = id;
                if (event.status == SDF_FILTER_ACTIVE) mConfirmed = id;
                break;
            case ClientEvent::Kind::kFilterStatus:
                if (event.status == SDF_FILTER_DELETED) mKnown.erase(id);
                break;
            default: break;
        }
        goOn();
    }

  private:
    void fail(const std::string& what) {
        ADD_FAILURE() << what << " after " << mMade << " requests";
        finish();
    }

    void finish() {
        const std::lock_guard<std::mutex> guard(mLock);
        mDone = true;
        mChanged.notify_all();
    }

    bool isExpected(const ClientEvent& event) {
        if (event.kind == ClientEvent::Kind::kStatus) return event.status == SDF_V2_SERVICE_UP;
        if (mExpected.empty() || mExpected.front() != event.text) return false;
        mExpected.pop_front();
        return true;
    }

    // At the end of each callback. One request whose answer will call back is always under way.
    void goOn() {
        if (mDone || testing::Test::HasFailure()) return finish();
        if (!mRegistered) {
            mRegistered = true;
            accepted(sdfRegFilterStatus(onFilterStatus));
            accepted(sdfRegAutoFilterInfo(onAutoFilter));
            accepted(sdfRegPriorityQueueReports(true, kOneDay, onReport));
        }
        if (mMade < mTarget) {
            if (random(4) == 0) requestAnything();
            if (mLevelsExpected == 0) requestBatch();
        } else if (mExpected.empty()) {
            if (mClosing && mKnown.empty() && !mConfirmed && mFilters.empty()) {
                checkNothingLeft();
                return finish();
            }
            mClosing = true;
            if (!mKnown.empty()) deleteAll();
            if (mGaming) setGaming(false);
            accepted(sdfRegPriorityQueueReports(false, kOneDay, onReport));
            for (const int slot : {-1, 0, 1}) {
                accepted(sdfPrioritizeData(static_cast<SdfSlotID>(slot), false));
            }
            setLevels();
        } else if (mLevelsExpected == 0) {
            setLevels();
        }
    }

    // In the callback of the last request.
    void checkNothingLeft() const {
        const std::shared_ptr<Sdf> sdf = Sdf::current();
        EXPECT_EQ(sdf->mUsedIds.size(), 1U);
        EXPECT_EQ(sdf->mLatencyCbs.size(), 1U);
        EXPECT_TRUE(sdf->mFilterCbs.empty());
        EXPECT_TRUE(sdf->mFilterIds.empty());
        EXPECT_EQ(sdf->mGetPriorityQueueReportCb, nullptr);
        EXPECT_EQ(mPending.size(), 1U);
    }

    // Of lists and reports one at a time: all before the levels at the end has arrived when the
    // next batch is made.
    void requestBatch() {
        if (random(4) == 0) list();
        if (random(4) == 0) report();
        for (int i = random(8); i > 0; --i) requestAnything();
        setLevels();
    }

    void requestAnything() {
        const int kind = random(16);
        if (kind < 5) return add();
        if (kind < 8) return deleteOne();
        if (kind < 11) return update();
        switch (kind) {
            case 11: return setLevels();
            case 12: return setGaming(either());
            case 13: return setLink();
            case 14: return makeMistake();
            default:
                if (random(40) == 0) deleteAll();
        }
    }

    // An id that is nobody else's.
    void drawn(long long id) {
        ++mMade;
        ASSERT_GT(id, 0);
        const auto number = static_cast<unsigned int>(id);
        EXPECT_TRUE(mPending.insert(number).second) << "id " << id << " is pending";
        EXPECT_EQ(mKnown.count(number), 0U) << "id " << id << " is a filter's";
    }

    void accepted(long long result) {
        ++mMade;
        EXPECT_EQ(result, SDF_V2_SUCCESS);
    }

    void expectState(const char* what, long long id, int state) {
        mExpected.push_back(what + std::to_string(id) + ": " + std::to_string(state));
    }

    void setLevels() {
        const auto slot = static_cast<SdfSlotID>(random(3) - 1);
        const SdfLatencyLvl first = numberedLevel(mNumber);
        const SdfLatencyLvl second = numberedLevel(++mNumber / 2);
        const long long id = sdfSetLatencyLvl(slot, first, second, either(), onLevels);
        drawn(id);
        mExpected.push_back("levels " + std::to_string(id) + ": " + std::to_string(first) + " " +
                            std::to_string(second));
        ++mLevelsExpected;
    }

    void add() {
        if (random(32) == 0) return addRejected(SDF_FILTER_ERROR_INVALID_ARGS, twoFamilies());
        const SdfAddFilterInfo info = numberedFilter(++mNumber);
        if (mFilters.size() == kMostFilters) {
            return addRejected(SDF_FILTER_ERROR_LIMIT_REACHED, info);
        }
        const long long id = addNumbered(mNumber, onAdded);
        drawn(id);
        expectState("added ", id, SDF_FILTER_ACTIVE);
        mFilters.push_back({static_cast<unsigned int>(id), info.first_level, info.second_level,
                            info.ood, info.pdcp_timer});
    }

    void addRejected(int status, const SdfAddFilterInfo& info) {
        const long long id = sdfAddFilter(info, onAdded);
        drawn(id);
        expectState("added ", id, status);
    }

    LiveFilter* serviceFilter(unsigned int id) {
        for (LiveFilter& filter : mFilters) {
            if (filter.id == id) return &filter;
        }
        return nullptr;
    }

    unsigned int anyKnown() {
        return *std::next(mKnown.begin(), random(static_cast<int>(mKnown.size())));
    }

    void update() {
        if (mKnown.empty()) return;
        const unsigned int id = anyKnown();
        LiveFilter* const filter = serviceFilter(id);
        // Deleted by a request whose effect is still to arrive; the service would only complain.
        if (filter == nullptr) return;
        const uint32_t number = ++mNumber;
        switch (random(4)) {
            case 0:
                filter->first = numberedLevel(number);
                filter->second = numberedLevel(number / 2);
                accepted(sdfUpdateLatencyLvl(id, filter->first, filter->second));
                break;
            case 1:
                filter->ood = numberedOod(number);
                accepted(sdfUpdateOod(id, filter->ood));
                break;
            case 2:
                filter->pdcpTimer = number;
                accepted(sdfUpdatePdcpTimer(id, number));
                break;
            default: accepted(sdfUpdateTargetDscp(id, number % 64));
        }
        expectState("filter ", id, SDF_FILTER_ACTIVE);
    }

    void deleteOne() {
        if (mKnown.size() < kMostFilters / 2) return add();
        const unsigned int id = anyKnown();
        if (serviceFilter(id) == nullptr) return;
        mKnown.erase(id);
        accepted(sdfDeleteFilter(id));
        EXPECT_EQ(sdfDeleteFilter(id), SDF_V2_INVALID_ARG);
        mFilters.remove_if([id](const LiveFilter& filter) { return filter.id == id; });
        expectState("filter ", id, SDF_FILTER_DELETED);
    }

    void deleteAll() {
        if (mKnown.empty()) {
            EXPECT_EQ(sdfDeleteAllFilter(), SDF_V2_INVALID_OPERATION);
            return;
        }
        accepted(sdfDeleteAllFilter());
        mKnown.clear();
        // Those too whose confirmation is still to come.
        for (const LiveFilter& filter : mFilters)
            expectState("filter ", filter.id, SDF_FILTER_DELETED);
        mFilters.clear();
    }

    void list() {
        accepted(sdfGetFilters(onListed));
        for (const LiveFilter& filter : mFilters) {
            mExpected.push_back("listed " + std::to_string(filter.id) + ": 1, levels " +
                                std::to_string(filter.first) + " " + std::to_string(filter.second) +
                                ", ood " + std::to_string(filter.ood) + ", timer " +
                                std::to_string(filter.pdcpTimer));
        }
    }

    // Both callbacks are called, for the one class of priority that the filters are of.
    void report() {
        accepted(sdfGetPriorityQueueReport(onReport));
        mPackets += 1000 * (1 + mFilters.size());
        mExpected.insert(
            mExpected.end(), 2,
            "report 32: " + std::to_string(mPackets) + " " + std::to_string(mPackets * 1200));
    }

    void setGaming(bool enable) {
        accepted(sdfEnHighPerfGaming(enable));
        if (enable == mGaming) return;
        mGaming = enable;
        if (enable) ++mAutoFilter;
        mExpected.push_back(autoFilterText(mAutoFilter, enable));
    }

    void setLink() {
        switch (random(4)) {
            case 0: return accepted(sdfUpdateDdsOod(numberedOod(++mNumber)));
            case 1: return accepted(sdfUpdateDdsPdcpTimer(++mNumber));
            case 2:
                return accepted(sdfPrioritizeData(static_cast<SdfSlotID>(random(3) - 1), either()));
            default: return accepted(sdfPrioritizeDds(either()));
        }
    }

    // Refused by the library, so nothing comes of it.
    void makeMistake() {
        EXPECT_EQ(sdfSetLatencyLvl(SDF_SLOT_ID_FIRST, SDF_LATENCY_LVL_1, SDF_LATENCY_LVL_1, true,
                                   nullptr),
                  SDF_V2_INVALID_ARG);
        EXPECT_EQ(sdfAddFilter(SdfAddFilterInfo{}, onAdded), SDF_V2_INVALID_ARG);
        EXPECT_EQ(sdfUpdateOod(1U << 31U, SDF_OOD_ENABLED_LVL), SDF_V2_INVALID_ARG);
        EXPECT_EQ(sdfGetFilters(nullptr), SDF_V2_INVALID_ARG);
    }

    int random(int below) { return std::uniform_int_distribution<int>(0, below - 1)(mRandom); }
    bool either() { return random(2) == 1; }

    std::mt19937 mRandom{20261121};
    int mTarget = 0;
    int mMade = 0;
    bool mRegistered = false;
    bool mClosing = false;
    uint32_t mNumber = 0;

    // The service, after all that it has been sent, and the callbacks that come of it.
    std::list<LiveFilter> mFilters;
    uint64_t mPackets = uint64_t{1} << 32U;
    bool mGaming = false;
    unsigned int mAutoFilter = 0x80000000U;
    std::deque<std::string> mExpected;
    int mLevelsExpected = 0;

    // The library.
    std::set<unsigned int> mPending;
    std::set<unsigned int> mKnown;
    std::optional<unsigned int> mAnswered;   // released when its callback has returned
    std::optional<unsigned int> mConfirmed;  // known when its callback has returned

    std::mutex mLock;
    std::condition_variable mChanged;
    bool mDone = false;
};

// Never destroyed: callbacks may come while the process ends.
NoDestroy<MixedClient> gClient;

TEST(MixedInCallbackTest, EveryAnswerComesOnceInOrderAndLeavesNothing) {
    const TestDirectory directory;
    EmulatorProcess emulator;
    setEventHook([](const ClientEvent& event) { gClient.value.happened(event); });
    gClient.value.run(kRequests / 10);
    ASSERT_FALSE(HasFailure());
    // First, because what the emulator prints is kept here.
    const EmulatorProcess::Stats emulatorBefore = emulator.stats();
    const Figures before = figures();

    // The same client goes on, so that what it kept would show.
    gClient.value.run(kRequests - kRequests / 10);
    EXPECT_TRUE(settlesAt(before));
    EXPECT_TRUE(settlesAt(emulator, emulatorBefore));
    EXPECT_EQ(destroySdfClient(), 0);
}

}  // namespace
