// SPDX-License-Identifier: Apache-2.0
// Memory that runs out at every place where memory is asked for.
#include <gtest/gtest.h>
#include <lum_sdf_sdk.h>

#include <algorithm>
#include <functional>
#include <new>

#include "api/Sdf.h"
#include "tests/api/ClientFixture.h"
#include "tests/api/ClientState.h"
#include "tests/api/FakeTransport.h"
#include "tests/api/Requests.h"
#include "tests/api/ScriptedRand.h"
#include "tests/support/AllocationLimit.h"
#include "tests/support/Hex.h"

namespace {

// What the call gives on a thread that gets only so many allocations.
template <typename Call>
auto limited(long allocations, const Call& call,
             AllocationLimit::Failing failing = AllocationLimit::kAllFurther) {
    const AllocationLimit limit(allocations, failing);
    return call();
}

// Twice as many as the transport's queue takes events for each allocation, which is of 512 bytes.
constexpr int kRounds = 512 / sizeof(void*);

int gStatus;
int gCalls;

template <typename Status>
void onStatus(Status status) {
    gStatus = status;
    ++gCalls;
}
// Callbacks that keep nothing: what a callback itself allocates is none of the library's.
const SdfStatusV2Cb onV2 = onStatus<int>;
const SdfStatusV2Cb onOtherV2 = [](int) { ++gCalls; };
const SdfLegacyStatusCb onLegacy = onStatus<status_e>;
const SdfLegacyStatusCb onOtherLegacy = [](status_e) { ++gCalls; };
const SdfEffectiveLevelsCb onLevels = [](long long, SdfLatencyLvl, SdfLatencyLvl) { ++gCalls; };
const SdfFilterStatusCb onAdded = [](unsigned int, SdfFilterStatus) { ++gCalls; };
// Tries again at once, as often as it is let.
void onLegacyThatRetries(status_e status) {
    gStatus = status;
    if (++gCalls < 10) lum_sdf_enable(onLegacyThatRetries);
}

class MemoryTest : public ClientTest {
  protected:
    MemoryTest() { gCalls = 0; }

    static size_t takePosted() { return sdk().transport->take().size(); }

    // A client with onV2, the service up, and one request waiting.
    static void startUp() {
        ASSERT_EQ(createSdfClient(onV2), 0);
        client().mServiceUp = true;
        ASSERT_GT(setLatency(onLevels), 0);
        takePosted();
        gCalls = 0;
    }

    // Makes a call fail at each allocation in turn until it gets through: attempt(allocations,
    // failing) says whether it did. In many rounds, because the transport's queue allocates only
    // now and then; by turns one allocation fails, and all from it on.
    template <typename Attempt>
    static void failAtEachAllocation(bool posts, const Attempt& attempt) {
        long mostFailures = 0;
        long leastFailures = 1000;
        for (int round = 0; round < kRounds; ++round) {
            moveQueueOn(round);
            const auto failing =
                round % 2 == 1 ? AllocationLimit::kAllFurther : AllocationLimit::kNextOnly;
            long failures = 0;
            while (!attempt(failures, failing)) {
                ASSERT_EQ(takePosted(), 0U) << "at allocation " << failures;
                ASSERT_LT(++failures, 1000);
            }
            ASSERT_GT(failures, 0);  // there is something to fail
            mostFailures = std::max(mostFailures, failures);
            leastFailures = std::min(leastFailures, failures);
        }
        // In some round the queue was among what failed.
        EXPECT_EQ(mostFailures > leastFailures, posts);
    }

    // So many events through the queue, to get to the place where it has to allocate.
    static void moveQueueOn(int events) {
        std::vector<uint8_t> none;
        for (int i = 0; i < events; ++i) {
            sdk().transport->postEvent(std::make_shared<SdkClientEvent>(LUM_SDK_CLIENT_SDF, none));
        }
        takePosted();
    }
};

// A call that fails sends nothing, calls nobody, and may be repeated.
TEST_F(MemoryTest, Lifecycle) {
    const auto destroy = [] { destroySdfClient(); };
    const auto startUpWithBoth = [] {
        startUp();
        ASSERT_EQ(lum_sdf_enable(onLegacy), 1);
    };
    const struct {
        const char* what;
        std::function<void()> prepare;
        std::function<long long()> call;
        long long failed;
        long long succeeded;
    } rows[] = {
        {"first create", destroy, [] { return createSdfClient(onV2); }, -3, 0},
        {"create again", startUp, [] { return createSdfClient(onOtherV2); }, -3, 0},
        {"first enable", destroy, [] { return lum_sdf_enable(onLegacy); }, 0, 1},
        {"enable again", startUpWithBoth, [] { return lum_sdf_enable(onOtherLegacy); }, 0, 1},
        {"destroy", startUp, destroySdfClient, -3, 0},
        {"disable", startUpWithBoth, lum_sdf_disable, 0, 1},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        failAtEachAllocation(true, [&row](long allocations, AllocationLimit::Failing failing) {
            if (allocations == 0) {
                row.prepare();
                takePosted();
            }
            gCalls = 0;
            const long long result = limited(allocations, row.call, failing);
            if (result != row.failed) {
                EXPECT_EQ(result, row.succeeded);
                takePosted();
                return true;
            }
            // The older callback hears that there is no memory for the client.
            EXPECT_TRUE(gCalls == 0 || std::string(row.what) == "first enable");
            return false;
        });
    }
}

// The older callback is called when there is no memory for the client object, and only then.
TEST_F(MemoryTest, FirstEnableReportsThatThereIsNoClient) {
    const auto enable = [] { return lum_sdf_enable(onLegacy); };
    EXPECT_EQ(limited(0, enable, AllocationLimit::kNextOnly), 0);
    EXPECT_EQ(gCalls, 1);
    EXPECT_EQ(gStatus, SDF_STATUS_INTERNAL_ERROR);
    EXPECT_FALSE(Sdf::mInstance);
    EXPECT_EQ(limited(1, enable, AllocationLimit::kNextOnly), 0);
    EXPECT_EQ(gCalls, 1);
    EXPECT_FALSE(Sdf::mInstance);
}

// The callback that hears this tries again, and is not called from inside itself without end.
TEST_F(MemoryTest, FirstEnableReportsNoClientOnceToACallbackThatRetries) {
    EXPECT_EQ(limited(0, [] { return lum_sdf_enable(onLegacyThatRetries); }), 0);
    EXPECT_EQ(gCalls, 1);
    EXPECT_EQ(gStatus, SDF_STATUS_INTERNAL_ERROR);
    EXPECT_FALSE(Sdf::mInstance);
}

// A create that fails leaves a client without a transport at the most: destroy reports that, and
// another create makes it whole. A destroy that fails leaves it usable.
TEST_F(MemoryTest, ClientWorksAfterAFailedCreateOrDestroy) {
    bool left = false;
    for (int events = 0; !left; ++events) {
        ASSERT_LT(events, kRounds);
        destroySdfClient();
        moveQueueOn(events);
        long allocations = 0;
        while (!left && limited(allocations++, [] { return createSdfClient(onV2); }) == -3) {
            left = Sdf::mInstance != nullptr;
        }
    }
    EXPECT_EQ(destroySdfClient(), -5);
    EXPECT_EQ(gStatus, -3);
    startUp();
    EXPECT_EQ(limited(0, destroySdfClient), -3);
    EXPECT_GT(setLatency(onLevels), 0);
    EXPECT_EQ(destroySdfClient(), 0);
}

// A request that fails is not on record, except that a callback that replaces another has done so.
TEST_F(MemoryTest, EveryRequest) {
    startUp();
    // Addresses whose texts take memory of their own.
    static const SdfAddFilterInfo flow = makeFlow("1111:2222:3333:4444:5555:6666:7777:8888", 1,
                                                  "2222:2222:3333:4444:5555:6666:7777:8888", 1);
    std::vector<Request> requests = everyRequest();
    requests.push_back({"sdfAddFilter, long addresses",
                        [] { return sdfAddFilter(flow, app::onAdded); }, "one", true, "filterCbs"});
    for (const Request& request : requests) {
        SCOPED_TRACE(request.name);
        const bool posts = *request.event != '\0';
        failAtEachAllocation(posts, [&](long allocations, AllocationLimit::Failing failing) {
            client().mUsedIds = {7};
            client().mFilterIds = {kFilterId};
            client().mLatencyCbs = {{7, onLevels}};
            client().mFilterCbs.clear();
            client().mFilterStatusCb = app::onOtherFilterStatus;
            client().mGetFiltersCb = app::onOtherFilter;
            client().mPriorityQueueReportsCb = app::onOtherReports;
            client().mGetPriorityQueueReportCb = app::onOtherReport;
            client().mAutoFilterInfoCb = app::onOtherAuto;
            client().mUsedIds.shrink_to_fit();
            scriptRand({500});
            const ClientState before;
            const long long result = limited(allocations, request.call, failing);
            if (result != -3) {
                EXPECT_EQ(result, request.drawsId ? 500 : 0);
                EXPECT_EQ(takePosted(), posts ? 1U : 0U);
                return true;
            }
            ClientState after;
            after.randLeft = before.randLeft;  // what was drawn is not put back
            EXPECT_EQ(after.differences(before), request.drawsId ? "" : request.slot);
            return false;
        });
    }
}

// An id is drawn only when there is space to keep it.
TEST_F(MemoryTest, NoSpaceForAnId) {
    startUp();
    Sdf::mInstance->mUsedIds.shrink_to_fit();
    scriptRand({500});
    EXPECT_EQ(limited(0, [] { return setLatency(onLevels); }), -3);
    EXPECT_EQ(scriptedRandLeft(), 1U);
}

// Whether so many allocations are enough for the client to read the bytes.
bool reads(const SdkClientBase::Listener& listener, const std::vector<uint8_t>& bytes,
           long allocations, AllocationLimit::Failing failing) {
    const AllocationLimit limit(allocations, failing);
    try {
        listener(SdkClientBase::SDK_BLOB_RECEIVED, bytes);
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

// Reads the bytes again and again, failing at each allocation in turn until none fails: the
// exception is the transport's to deal with, and what is awaited stays awaited.
void expectReadable(const std::string& hex) {
    const std::vector<uint8_t> bytes = fromHex(hex);
    const SdkClientBase::Listener listener = FakeSdkClient::get().listener;
    long failures = 0;
    for (;; ++failures) {
        ASSERT_LT(failures, 1000);
        if (reads(listener, bytes, failures, AllocationLimit::kNextOnly)) break;
        EXPECT_EQ(gCalls, 0);
        EXPECT_EQ(Sdf::mInstance->mUsedIds.back(), 7U);
        EXPECT_EQ(Sdf::mInstance->mLatencyCbs.count(7), 1U);
    }
    EXPECT_GT(failures, 0);
}

TEST_F(MemoryTest, ReceivedMessage) {
    startUp();
    scriptRand({7});
    ASSERT_EQ(setLatency(onLevels), 7);
    // Three filters with a text that takes memory of its own; unknown fields.
    const std::string text = repeatHex("61", 28);
    const std::string filters = repeatHex("12 22 08 01 10 01 1A 1C " + text, 3);
    expectReadable("08 02 1A 6E 1A 6C " + filters);
    expectReadable("08 02 1A 00 A2 06 1C " + text);
    // Two bodies, of which the second takes the first one's place, and is a long one.
    expectReadable("08 02 1A DF 04 0A 02 08 06 1A D8 04 " + repeatHex("12 04 08 01 10 01", 100));
    EXPECT_EQ(gCalls, 0);
    expectReadable("08 01 10 07 1A 06 12 04 08 05 10 02 A2 06 1C " + text);
    EXPECT_EQ(gCalls, 1);
    EXPECT_EQ(Sdf::mInstance->mLatencyCbs.count(7), 0U);
}

// Messages as services send them as a rule are read when there is no memory at all.
TEST_F(MemoryTest, ShortReceivedMessage) {
    startUp();
    scriptRand({7});
    ASSERT_EQ(setLatency(onLevels), 7);
    sdfRegFilterStatus(onAdded);
    const SdkClientBase::Listener listener = FakeSdkClient::get().listener;
    for (const std::string& hex : {std::string("08 01 10 07 1A 06 12 04 08 05 10 02"),
                                   "08 02 1A 7A 1A 78 " + repeatHex("12 04 08 01 10 01", 20)}) {
        EXPECT_TRUE(reads(listener, fromHex(hex), 0, AllocationLimit::kAllFurther));
    }
    EXPECT_EQ(gCalls, 21);
}

// A confirmed filter that there is no memory to keep has been reported, and goes on counting as
// pending.
TEST_F(MemoryTest, AddedFilter) {
    startUp();
    Sdf& client = *Sdf::mInstance;
    client.mUsedIds = {7};
    client.mFilterIds.shrink_to_fit();
    client.mFilterCbs = {{7, onAdded}};
    const std::vector<uint8_t> bytes = fromHex("08 03 1A 08 22 06 0A 04 08 07 10 01");
    const SdkClientBase::Listener listener = FakeSdkClient::get().listener;
    const ClientState before;
    bool failedAfterTheCall = false;
    for (long failures = 0;; ++failures) {
        ASSERT_LT(failures, 1000);
        gCalls = 0;
        if (reads(listener, bytes, failures, AllocationLimit::kAllFurther)) break;
        EXPECT_EQ(ClientState().differences(before), "");
        failedAfterTheCall = failedAfterTheCall || gCalls == 1;
    }
    EXPECT_TRUE(failedAfterTheCall);
    EXPECT_EQ(gCalls, 1);
    EXPECT_EQ(ClientState().differences(before), "usedIds filterIds filterCbs");
}

}  // namespace
