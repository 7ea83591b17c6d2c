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

// ---- Fields, in the order in which they lie. How large each is, is the C++ library's business.

testing::AssertionResult inOrder(const Places& places) {
    for (size_t i = 1; i < places.size(); ++i) {
        if (places[i].offset < places[i - 1].offset + places[i - 1].size) {
            return testing::AssertionFailure()
                   << places[i].name << " before " << places[i - 1].name;
        }
    }
    return testing::AssertionSuccess();
}

TEST(FieldsTest, OfTheTimer) {
    EXPECT_TRUE(inOrder({FIELD_PLACE(TimedEvent, mId), FIELD_PLACE(TimedEvent, mDeadline),
                         FIELD_PLACE(TimedEvent, mCallback), FIELD_PLACE(TimedEvent, mData),
                         FIELD_PLACE(TimedEvent, mDelay)}));
    EXPECT_TRUE(inOrder(LumTimerPeer::places()));
}

TEST(FieldsTest, OfTheQueue) {
    EXPECT_TRUE(inOrder(lum::utils::LumEventHandlerPeer::places<Queue>()));
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

TEST(FieldsTest, OfTheTransport) {
    EXPECT_TRUE(inOrder(SdkClientBasePeer::places()));
    EXPECT_TRUE(inOrder(SdkClientPeer::places()));
    EXPECT_TRUE(inOrder({FIELD_PLACE(SdkClientEvent, mReserved),
                         FIELD_PLACE(SdkClientEvent, mRelease), FIELD_PLACE(SdkClientEvent, mType),
                         FIELD_PLACE(SdkClientEvent, mBlob), FIELD_PLACE(SdkClientEvent, mKind)}));
}

// The stub comes first, the base second, and then what the class adds.
TEST(FieldsTest, OfTheBinderClient) {
    const size_t stub = sizeof(aidl::vendor::orn::data::lumservice::BnLumServiceCallback);
    EXPECT_EQ(SdkClientPeer::places().front().offset, stub + sizeof(SdkClientBase));
}

TEST(FieldsTest, OfTheClient) {
    EXPECT_TRUE(inOrder({FIELD_PLACE(SdkBase, mLegacyStatusCb),
                         FIELD_PLACE(SdkBase, mBaseStatusCbV2), FIELD_PLACE(SdkBase, mSdkClient),
                         FIELD_PLACE(SdkBase, mTxnContext), FIELD_PLACE(SdkBase, mLock)}));
    EXPECT_TRUE(inOrder({FIELD_PLACE(Sdf, mUsedIds), FIELD_PLACE(Sdf, mFilterIds),
                         FIELD_PLACE(Sdf, mStatusCbV2), FIELD_PLACE(Sdf, mFilterStatusCb),
                         FIELD_PLACE(Sdf, mGetFiltersCb), FIELD_PLACE(Sdf, mPriorityQueueReportsCb),
                         FIELD_PLACE(Sdf, mGetPriorityQueueReportCb),
                         FIELD_PLACE(Sdf, mAutoFilterInfoCb), FIELD_PLACE(Sdf, mLatencyCbs),
                         FIELD_PLACE(Sdf, mFilterCbs), FIELD_PLACE(Sdf, mServiceUp)}));
}

TEST(FieldsTest, EnumerationsOfTheTransportAreSigned) {
    EXPECT_TRUE((std::is_same_v<std::underlying_type_t<LumSdkClientType>, int32_t>));
    EXPECT_TRUE((std::is_same_v<std::underlying_type_t<SdkClientBase::SdkStatus>, int32_t>));
}

}  // namespace
