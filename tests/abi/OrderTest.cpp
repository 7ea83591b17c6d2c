// SPDX-License-Identifier: Apache-2.0
// The order of virtual operations and of fields, which code compiled elsewhere relies on.

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <type_traits>
#include <vector>

#include "api/Sdf.h"
#include "tests/support/FieldPlace.h"
#include "tests/support/LogCapture.h"
#include "tests/support/VirtualSlot.h"
#include "transport/SdkBase.h"
#include "transport/SdkClient.h"

using Places = std::vector<FieldPlace>;

class LumTimerPeer {
  public:
    static Places places() {
        return {FIELD_PLACE(LumTimer, mEvents), FIELD_PLACE(LumTimer, mMonitor),
                FIELD_PLACE(LumTimer, mLastTimerId)};
    }
};

namespace lum::utils {
class LumEventHandlerPeer {
  public:
    template <typename Handler>
    static Places places() {
        return {FIELD_PLACE(Handler, mEventFd), FIELD_PLACE(Handler, mQueueLock),
                FIELD_PLACE(Handler, mQueue)};
    }
};
}  // namespace lum::utils

class SdkClientBasePeer {
  public:
    static Places places() {
        return {FIELD_PLACE(SdkClientBase, mTimer),       FIELD_PLACE(SdkClientBase, mEventManager),
                FIELD_PLACE(SdkClientBase, mRunning),     FIELD_PLACE(SdkClientBase, mGate),
                FIELD_PLACE(SdkClientBase, mActiveTypes), FIELD_PLACE(SdkClientBase, mListeners)};
    }
};

class SdkClientPeer {
  public:
    static Places places() {
        return {FIELD_PLACE(SdkClient, mService), FIELD_PLACE(SdkClient, mCallbackSelf),
                FIELD_PLACE(SdkClient, mDeathRecipient)};
    }
};

namespace {

using Queue = lum::utils::LumEventHandler<std::shared_ptr<SdkClientEvent>>;

// ---- Virtual operations. The destructor has places 0 and 1.

struct Plain {
    void operation() {}
};

// What a derived class adds first comes behind all that its base has: that is how many there are.
template <typename Base>
struct Extended : Base {
    virtual void operation() {}
};
template <typename Base>
size_t slots() {
    return slot(&Extended<Base>::operation);
}

TEST(SlotsTest, OfNoVirtualOperation) {
    EXPECT_EQ(slot(&Plain::operation), kNoSlot);
}

TEST(SlotsTest, OfAnEvent) {
    EXPECT_EQ(slot(&LumEventBase::isMultiThreadEvent), 2U);
    EXPECT_EQ(slots<LumEventBase>(), 3U);
    EXPECT_EQ(slots<SdkClientEvent>(), 3U);
    // Not overridden.
    EXPECT_TRUE((std::is_same_v<decltype(&SdkClientEvent::isMultiThreadEvent),
                                decltype(&LumEventBase::isMultiThreadEvent)>));
}

TEST(SlotsTest, OfFeatureClients) {
    EXPECT_EQ(slot(&SdkBase::blobListener), 2U);
    EXPECT_EQ(slots<SdkBase>(), 3U);
    EXPECT_EQ(slot(&Sdf::blobListener), 2U);
    EXPECT_EQ(slots<Sdf>(), 3U);
}

TEST(SlotsTest, OfTheQueue) {
    EXPECT_EQ(slot(&Queue::handleEvent), 2U);
    EXPECT_EQ(slots<Queue>(), 3U);
}

TEST(SlotsTest, OfTheTransport) {
    EXPECT_EQ(slot(&SdkClientBase::handleEvent), 2U);
    EXPECT_EQ(slot(&SdkClientBase::connectLumSdkClient), 3U);
    EXPECT_EQ(slot(&SdkClientBase::isConnected), 4U);
    EXPECT_EQ(slot(&SdkClientBase::sendBlobToService), 5U);
    EXPECT_EQ(slot(&SdkClientBase::notifyServiceDown), 6U);
    EXPECT_EQ(slot(&SdkClientBase::cleanup), 7U);
    EXPECT_EQ(slots<SdkClientBase>(), 8U);
}

// createBinder is protected.
struct OpenedClient : SdkClient {
    static size_t slotOfCreateBinder() { return slot(&OpenedClient::createBinder); }
};

TEST(SlotsTest, OfTheBinderClient) {
    EXPECT_EQ(slot(&SdkClient::asBinder), 2U);
    EXPECT_EQ(slot(&SdkClient::isRemote), 3U);
    EXPECT_EQ(slot(&SdkClient::dump), 4U);
    EXPECT_EQ(slot(&SdkClient::handleShellCommand), 5U);
    EXPECT_EQ(slot(&SdkClient::sendBlob), 6U);
    EXPECT_EQ(OpenedClient::slotOfCreateBinder(), 7U);
    EXPECT_EQ(slot(&SdkClient::connectLumSdkClient), 8U);
    EXPECT_EQ(slot(&SdkClient::isConnected), 9U);
    EXPECT_EQ(slot(&SdkClient::sendBlobToService), 10U);
    EXPECT_EQ(slot(&SdkClient::notifyServiceDown), 11U);
    EXPECT_EQ(slots<SdkClient>(), 12U);
    // Not overridden: they are found in the base's table only.
    EXPECT_TRUE(
        (std::is_same_v<decltype(&SdkClient::handleEvent), decltype(&SdkClientBase::handleEvent)>));
    EXPECT_TRUE((std::is_same_v<decltype(&SdkClient::cleanup), decltype(&SdkClientBase::cleanup)>));
}

// These have no table: nothing stands before their first field.
TEST(SlotsTest, OfNoTable) {
    EXPECT_FALSE(std::is_polymorphic_v<LumTimer>);
    EXPECT_FALSE(std::is_polymorphic_v<TimedEvent>);
    EXPECT_FALSE(std::is_polymorphic_v<lum::utils::EventManager>);
}

// ---- Fields: name, place and size with 64-bit addresses, place and size on 32-bit ARM. They
// follow from the sizes of what they are made of (those of glibc and libstdc++), in bytes, all
// aligned to their largest word:
//
//                          64    32
//     table's address       8     4
//     pointer               8     4
//     shared_ptr           16     8
//     vector               24    12
//     vector<bool>         40    20
//     queue (of a deque)   80    40
//     map                  48    24
//     mutex                40    24
//     shared_mutex         56    32
//     time_t, long          8     4

constexpr bool kHas64 = sizeof(void*) == 8;

TEST(FieldsTest, OfATimedCallback) {
    const Places places = {FIELD_PLACE(TimedEvent, mId), FIELD_PLACE(TimedEvent, mDeadline),
                           FIELD_PLACE(TimedEvent, mCallback), FIELD_PLACE(TimedEvent, mData),
                           FIELD_PLACE(TimedEvent, mDelay)};
    // On ARM 4 bytes are unused behind the data, at 20: 64-bit numbers are aligned to 8 there, too.
    EXPECT_EQ(places, placesHere({{"mId", 0, 4, 0, 4},
                                  {"mDeadline", 8, 16, 4, 8},
                                  {"mCallback", 24, 8, 12, 4},
                                  {"mData", 32, 8, 16, 4},
                                  {"mDelay", 40, 8, 24, 8}}));
    EXPECT_EQ(sizeof(TimedEvent), kHas64 ? 48U : 32U);
    EXPECT_EQ(alignof(TimedEvent), 8U);
}

TEST(FieldsTest, OfADeadline) {
    const Places places = {FIELD_PLACE(timespec, tv_sec), FIELD_PLACE(timespec, tv_nsec)};
    EXPECT_EQ(places, placesHere({{"tv_sec", 0, 8, 0, 4}, {"tv_nsec", 8, 8, 4, 4}}));
    EXPECT_TRUE(std::is_signed_v<time_t>);
}

// The heap is a vector and an order without fields, which takes up a word.
TEST(FieldsTest, OfTheTimer) {
    EXPECT_EQ(LumTimerPeer::places(), placesHere({{"mEvents", 0, 32, 0, 16},
                                                  {"mMonitor", 32, 8, 16, 4},
                                                  {"mLastTimerId", 40, 4, 20, 4}}));
}

TEST(FieldsTest, OfTheQueue) {
    EXPECT_EQ(lum::utils::LumEventHandlerPeer::places<Queue>(),
              placesHere({{"mEventFd", 24, 4, 12, 4},
                          {"mQueueLock", 32, 40, 16, 24},
                          {"mQueue", 72, 80, 40, 40}}));
}

class Handler : public lum::utils::LumEventHandler<int> {
  public:
    using LumEventHandler::LumEventHandler;
    void handleEvent(int /*value*/) override {}
};

// What lies before: the table's address and two references. There are no pointers to references,
// but what they hold is what they refer to.
TEST(FieldsTest, ReferencesOfTheQueue) {
    const LogCapture log;
    LumTimer timer(nullptr);
    lum::utils::EventManager manager;
    const Handler handler(manager, timer, "handler");
    const void* words[3] = {};
    std::memcpy(words, static_cast<const void*>(&handler), sizeof words);
    EXPECT_EQ(words[1], &timer);
    EXPECT_EQ(words[2], &manager);
}

// Behind the queue come its state and a flag, of 4 bytes each.
TEST(FieldsTest, OfTheTransport) {
    EXPECT_EQ(SdkClientBasePeer::places(), placesHere({{"mTimer", 160, 8, 88, 4},
                                                       {"mEventManager", 168, 8, 92, 4},
                                                       {"mRunning", 176, 1, 96, 1},
                                                       {"mGate", 184, 56, 100, 32},
                                                       {"mActiveTypes", 240, 40, 132, 20},
                                                       {"mListeners", 280, 48, 152, 24}}));
}

// The stub comes first, the base second: where they end is where the fields begin.
TEST(FieldsTest, OfTheBinderClient) {
    const Places places = SdkClientPeer::places();
    const size_t stub = sizeof(aidl::vendor::orn::data::lumservice::BnLumServiceCallback);
    const size_t begin = stub + sizeof(SdkClientBase);
    EXPECT_EQ(stub % alignof(SdkClientBase), 0U);
    EXPECT_EQ(places, placesHere({{"mService", begin, 16, begin, 8},
                                  {"mCallbackSelf", begin + 16, 16, begin + 8, 8},
                                  {"mDeathRecipient", begin + 32, 8, begin + 16, 4}}));
}

TEST(FieldsTest, OfTheBaseOfFeatureClients) {
    const Places places = {FIELD_PLACE(SdkBase, mLegacyStatusCb),
                           FIELD_PLACE(SdkBase, mBaseStatusCbV2), FIELD_PLACE(SdkBase, mSdkClient),
                           FIELD_PLACE(SdkBase, mTxnContext), FIELD_PLACE(SdkBase, mLock)};
    EXPECT_EQ(places, placesHere({{"mLegacyStatusCb", 8, 8, 4, 4},
                                  {"mBaseStatusCbV2", 16, 8, 8, 4},
                                  {"mSdkClient", 24, 16, 12, 8},
                                  {"mTxnContext", 40, 48, 20, 24},
                                  {"mLock", 88, 40, 44, 24}}));
    EXPECT_EQ(sizeof(SdkBase), kHas64 ? 128U : 68U);
}

TEST(FieldsTest, OfTheClient) {
    const Places places = {FIELD_PLACE(Sdf, mUsedIds),
                           FIELD_PLACE(Sdf, mFilterIds),
                           FIELD_PLACE(Sdf, mStatusCbV2),
                           FIELD_PLACE(Sdf, mFilterStatusCb),
                           FIELD_PLACE(Sdf, mGetFiltersCb),
                           FIELD_PLACE(Sdf, mPriorityQueueReportsCb),
                           FIELD_PLACE(Sdf, mGetPriorityQueueReportCb),
                           FIELD_PLACE(Sdf, mAutoFilterInfoCb),
                           FIELD_PLACE(Sdf, mLatencyCbs),
                           FIELD_PLACE(Sdf, mFilterCbs),
                           FIELD_PLACE(Sdf, mServiceUp)};
    EXPECT_EQ(places, placesHere({{"mUsedIds", 128, 24, 68, 12},
                                  {"mFilterIds", 152, 24, 80, 12},
                                  {"mStatusCbV2", 176, 8, 92, 4},
                                  {"mFilterStatusCb", 184, 8, 96, 4},
                                  {"mGetFiltersCb", 192, 8, 100, 4},
                                  {"mPriorityQueueReportsCb", 200, 8, 104, 4},
                                  {"mGetPriorityQueueReportCb", 208, 8, 108, 4},
                                  {"mAutoFilterInfoCb", 216, 8, 112, 4},
                                  {"mLatencyCbs", 224, 48, 116, 24},
                                  {"mFilterCbs", 272, 48, 140, 24},
                                  {"mServiceUp", 320, 1, 164, 1}}));
}

TEST(FieldsTest, OfAnEvent) {
    const Places places = {FIELD_PLACE(SdkClientEvent, mReserved),
                           FIELD_PLACE(SdkClientEvent, mRelease),
                           FIELD_PLACE(SdkClientEvent, mType), FIELD_PLACE(SdkClientEvent, mBlob),
                           FIELD_PLACE(SdkClientEvent, mKind)};
    EXPECT_EQ(places, placesHere({{"mReserved", 8, 4, 4, 4},
                                  {"mRelease", 12, 1, 8, 1},
                                  {"mType", 16, 4, 12, 4},
                                  {"mBlob", 24, 24, 16, 12},
                                  {"mKind", 48, 4, 28, 4}}));
    EXPECT_EQ(sizeof(SdkClientEvent), kHas64 ? 56U : 32U);
}

TEST(FieldsTest, EnumerationsOfTheTransportAreSigned) {
    EXPECT_TRUE((std::is_same_v<std::underlying_type_t<LumSdkClientType>, int32_t>));
    EXPECT_TRUE((std::is_same_v<std::underlying_type_t<SdkClientBase::SdkStatus>, int32_t>));
}

}  // namespace
