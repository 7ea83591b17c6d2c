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

AllocationLimit::Failing failingInRound(int round) {
    return round % 2 == 1 ? AllocationLimit::kAllFurther : AllocationLimit::kNextOnly;
}

// Twice as many as the transport's queue takes events for each allocation, which is of 512 bytes.
constexpr int kRounds = 512 / sizeof(void*);

int gStatus;
int gCalls;

void onV2(int status) {
    gStatus = status;
    ++gCalls;
}
void onOtherV2(int) {
    ++gCalls;
}
void onLegacy(status_e status) {
    gStatus = status;
    ++gCalls;
}
void onOtherLegacy(status_e) {
    ++gCalls;
}
// Tries again at once, as often as it is let.
void onLegacyThatRetries(status_e status) {
    gStatus = status;
    if (++gCalls < 10) lum_sdf_enable(onLegacyThatRetries);
}
void onLevels(long long, SdfLatencyLvl, SdfLatencyLvl) {
    ++gCalls;
}
void onAdded(unsigned int, SdfFilterStatus) {
    ++gCalls;
}

long long setLatency() {
    return sdfSetLatencyLvl(SDF_SLOT_ID_FIRST, SDF_LATENCY_LVL_1, SDF_LATENCY_LVL_1, false,
                            onLevels);
}

class MemoryTest : public ::testing::Test {
  protected:
    MemoryTest() { gCalls = 0; }
    ~MemoryTest() override {
        destroySdfClient();
        std::atomic_store(&Sdf::mInstance, std::shared_ptr<Sdf>());
        FakeSdkClient::reset();
        scriptRand({});
    }

    static size_t posted() { return FakeSdkClient::get().transport->take().size(); }

    // A client with onV2, the service up, and one request waiting.
    static void startUp() {
        ASSERT_EQ(createSdfClient(onV2), 0);
        Sdf::mInstance->mServiceUp = true;
        ASSERT_GT(setLatency(), 0);
        posted();
        gCalls = 0;
    }

    // Makes a call of the lifecycle fail at each allocation in turn until it gets through: each
    // time it must give `failed`, post nothing and leave the record and the transport as they were;
    // the client and its status callbacks may be new. In many rounds, because the transport's queue
    // allocates only now and then; by turns one allocation fails, and all from it on. `again`
    // undoes what the successful call did. `mayCall`: the call may call the application when it
    // fails.
    static void expectRepeatable(const std::function<long long()>& call, long long failed,
                                 const std::function<bool(long long)>& succeeded,
                                 const std::function<void()>& again, bool mayCall = false) {
        long mostFailures = 0;
        long leastFailures = 1000;
        for (int round = 0; round < kRounds; ++round) {
            if (round > 0) again();
            moveQueueOn(round);
            long failures = 0;
            for (;; ++failures) {
                ASSERT_LT(failures, 1000);
                const ClientState before;
                const long long result = limited(failures, call, failingInRound(round));
                if (result != failed) {
                    ASSERT_TRUE(succeeded(result)) << result;
                    break;
                }
                ClientState after;
                after.instance = before.instance;
                after.v2 = before.v2;
                after.legacy = before.legacy;
                ASSERT_EQ(after.differences(before), "") << "at allocation " << failures;
                ASSERT_EQ(posted(), 0U) << "at allocation " << failures;
                ASSERT_TRUE(mayCall || gCalls == 0);
            }
            ASSERT_GT(failures, 1);  // there is something to fail
            mostFailures = std::max(mostFailures, failures);
            leastFailures = std::min(leastFailures, failures);
        }
        // In some round the queue was among what failed.
        EXPECT_GT(mostFailures, leastFailures);
    }

    // So many events through the queue, to get to the place where it has to allocate.
    static void moveQueueOn(int events) {
        std::vector<uint8_t> none;
        for (int i = 0; i < events; ++i) {
            FakeSdkClient::get().transport->postEvent(
                std::make_shared<SdkClientEvent>(LUM_SDK_CLIENT_SDF, none));
        }
        posted();
    }
};

bool isZero(long long result) {
    return result == 0;
}
bool isOne(long long result) {
    return result == 1;
}

TEST_F(MemoryTest, FirstCreate) {
    expectRepeatable([] { return createSdfClient(onV2); }, -3, isZero,
                     [] {
                         destroySdfClient();
                         posted();
                     });
}

TEST_F(MemoryTest, CreateAgain) {
    startUp();
    expectRepeatable([] { return createSdfClient(onOtherV2); }, -3, isZero,
                     [] {
                         createSdfClient(onV2);
                         posted();
                     });
    EXPECT_EQ(Sdf::mInstance->mStatusCbV2, onOtherV2);
}

TEST_F(MemoryTest, FirstEnable) {
    expectRepeatable([] { return lum_sdf_enable(onLegacy); }, 0, isOne,
                     [] {
                         lum_sdf_disable();
                         posted();
                     },
                     true);
}

// The older callback is told when there is no memory for the client object, and only then.
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

// The callback that is told this tries again, and is not called from inside itself without end.
TEST_F(MemoryTest, FirstEnableReportsNoClientOnceToACallbackThatRetries) {
    EXPECT_EQ(limited(0, [] { return lum_sdf_enable(onLegacyThatRetries); }), 0);
    EXPECT_EQ(gCalls, 1);
    EXPECT_EQ(gStatus, SDF_STATUS_INTERNAL_ERROR);
    EXPECT_FALSE(Sdf::mInstance);
}

TEST_F(MemoryTest, EnableAgain) {
    startUp();
    ASSERT_EQ(lum_sdf_enable(onLegacy), 1);
    posted();
    expectRepeatable([] { return lum_sdf_enable(onOtherLegacy); }, 0, isOne,
                     [] {
                         lum_sdf_enable(onLegacy);
                         posted();
                     });
    EXPECT_EQ(Sdf::mInstance->mLegacyStatusCb, onOtherLegacy);
}

TEST_F(MemoryTest, Destroy) {
    startUp();
    expectRepeatable([] { return destroySdfClient(); }, -3, isZero,
                     [] {
                         posted();
                         startUp();
                     });
    EXPECT_FALSE(Sdf::mInstance);
}

TEST_F(MemoryTest, Disable) {
    startUp();
    ASSERT_EQ(lum_sdf_enable(onLegacy), 1);
    posted();
    expectRepeatable([] { return lum_sdf_disable(); }, 0, isOne,
                     [] {
                         posted();
                         startUp();
                     });
    EXPECT_FALSE(Sdf::mInstance);
}

// A create that fails leaves a client without a transport at the most: destroy reports that, and
// another create makes it whole.
TEST_F(MemoryTest, DestroyAndCreateWorkAfterAFailedCreate) {
    bool left = false;
    for (long allocations = 0; !left; ++allocations) {
        ASSERT_EQ(limited(allocations, [] { return createSdfClient(onV2); }), -3);
        left = Sdf::mInstance != nullptr;
    }
    EXPECT_EQ(destroySdfClient(), -5);
    EXPECT_EQ(gStatus, -3);
    startUp();
    EXPECT_GT(setLatency(), 0);
    EXPECT_EQ(destroySdfClient(), 0);
}

TEST_F(MemoryTest, ClientIsUsableAfterAFailedDestroy) {
    startUp();
    EXPECT_EQ(limited(0, destroySdfClient), -3);
    EXPECT_GT(setLatency(), 0);
    EXPECT_EQ(destroySdfClient(), 0);
}

// Every request with each of its allocations failing in turn, by turns alone and with all behind
// it, at every place of the transport's queue. All is as before then, except that a callback that
// replaces another has done so.
TEST_F(MemoryTest, EveryRequest) {
    startUp();
    Sdf& client = *Sdf::mInstance;
    // Addresses whose texts take memory of their own.
    static const SdfAddFilterInfo flow = makeFlow("1111:2222:3333:4444:5555:6666:7777:8888", 1,
                                                  "2222:2222:3333:4444:5555:6666:7777:8888", 1);
    std::vector<Request> requests = everyRequest();
    requests.push_back({"sdfAddFilter, long addresses",
                        [] { return sdfAddFilter(flow, app::onAdded); }, "one", true, "filterCbs"});
    for (const Request& request : requests) {
        SCOPED_TRACE(request.name);
        const bool posts = *request.event != '\0';
        const std::string replaced = request.drawsId ? "" : request.slot;
        long mostFailures = 0;
        long leastFailures = 1000;
        for (int round = 0; round < kRounds; ++round) {
            moveQueueOn(round);
            long failures = 0;
            for (;; ++failures) {
                ASSERT_LT(failures, 1000);
                client.mUsedIds = {7};
                client.mFilterIds = {kFilterId};
                client.mLatencyCbs = {{7, onLevels}};
                client.mFilterCbs.clear();
                client.mFilterStatusCb = app::onOtherFilterStatus;
                client.mGetFiltersCb = app::onOtherFilter;
                client.mPriorityQueueReportsCb = app::onOtherReports;
                client.mGetPriorityQueueReportCb = app::onOtherReport;
                client.mAutoFilterInfoCb = app::onOtherAuto;
                client.mUsedIds.shrink_to_fit();
                // What was drawn for a request that then failed is not put back.
                scriptRand({500});
                const ClientState before;
                const long long result = limited(failures, request.call, failingInRound(round));
                if (result != -3) {
                    ASSERT_EQ(result, request.drawsId ? 500 : 0);
                    ASSERT_EQ(posted(), posts ? 1U : 0U);
                    break;
                }
                ClientState after;
                after.randLeft = before.randLeft;
                ASSERT_EQ(after.differences(before), replaced) << "at allocation " << failures;
                ASSERT_EQ(posted(), 0U) << "at allocation " << failures;
            }
            ASSERT_GT(failures, 0);
            mostFailures = std::max(mostFailures, failures);
            leastFailures = std::min(leastFailures, failures);
        }
        // In some round the queue was among what failed.
        EXPECT_EQ(mostFailures > leastFailures, posts);
    }
}

// An id is drawn only when there is room to keep it.
TEST_F(MemoryTest, NoRoomForAnId) {
    startUp();
    Sdf::mInstance->mUsedIds.shrink_to_fit();
    scriptRand({500});
    EXPECT_EQ(limited(0, setLatency), -3);
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
    ASSERT_EQ(setLatency(), 7);
    // Three filters with a text that takes memory of its own; unknown fields.
    const std::string text = repeatHex("61", 28);
    const std::string filters = repeatHex("12 22 08 01 10 01 1A 1C " + text, 3);
    expectReadable("08 02 1A 6E 1A 6C " + filters);
    expectReadable("08 02 1A 00 A2 06 1C " + text);
    // Two bodies, of which the second takes the first one's place.
    expectReadable("08 02 1A 08 0A 02 08 06 1A 02 08 01");
    EXPECT_EQ(gCalls, 0);
    expectReadable("08 01 10 07 1A 06 12 04 08 05 10 02");
    EXPECT_EQ(gCalls, 1);
    EXPECT_EQ(Sdf::mInstance->mLatencyCbs.count(7), 0U);
}

// A confirmed filter that there is no memory to keep has been told, and goes on counting as
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
    bool failedWhenTold = false;
    for (long failures = 0;; ++failures) {
        ASSERT_LT(failures, 1000);
        gCalls = 0;
        if (reads(listener, bytes, failures, AllocationLimit::kAllFurther)) break;
        EXPECT_EQ(ClientState().differences(before), "");
        failedWhenTold = failedWhenTold || gCalls == 1;
    }
    EXPECT_TRUE(failedWhenTold);
    EXPECT_EQ(gCalls, 1);
    EXPECT_EQ(ClientState().differences(before), "usedIds filterIds filterCbs");
}

}  // namespace
