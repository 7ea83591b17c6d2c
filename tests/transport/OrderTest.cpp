// SPDX-License-Identifier: Apache-2.0
// The order of virtual operations and of public fields, which code compiled elsewhere relies on.

#include <gtest/gtest.h>

#include "tests/support/VirtualSlot.h"
#include "transport/SdkBase.h"
#include "transport/SdkClient.h"

namespace {

TEST(OrderTest, VirtualOperations) {
    // The destructor has places 0 and 1.
    EXPECT_EQ(slot(&LumEventBase::isMultiThreadEvent), 2U);
    EXPECT_EQ(slot(&SdkBase::blobListener), 2U);

    using Queue = lum::utils::LumEventHandler<std::shared_ptr<SdkClientEvent>>;
    EXPECT_EQ(slot(&Queue::handleEvent), 2U);
    EXPECT_EQ(slot(&SdkClientBase::handleEvent), 2U);
    EXPECT_EQ(slot(&SdkClientBase::connectLumSdkClient), 3U);
    EXPECT_EQ(slot(&SdkClientBase::isConnected), 4U);
    EXPECT_EQ(slot(&SdkClientBase::sendBlobToService), 5U);
    EXPECT_EQ(slot(&SdkClientBase::notifyServiceDown), 6U);
    EXPECT_EQ(slot(&SdkClientBase::cleanup), 7U);

    EXPECT_EQ(slot(&SdkClient::asBinder), 2U);
    EXPECT_EQ(slot(&SdkClient::isRemote), 3U);
    EXPECT_EQ(slot(&SdkClient::dump), 4U);
    EXPECT_EQ(slot(&SdkClient::handleShellCommand), 5U);
    EXPECT_EQ(slot(&SdkClient::sendBlob), 6U);
    // createBinder has place 7.
    EXPECT_EQ(slot(&SdkClient::connectLumSdkClient), 8U);
    EXPECT_EQ(slot(&SdkClient::isConnected), 9U);
    EXPECT_EQ(slot(&SdkClient::sendBlobToService), 10U);
    EXPECT_EQ(slot(&SdkClient::notifyServiceDown), 11U);
}

class Feature : public SdkBase {
    void blobListener(SdkClientBase::SdkStatus /*status*/,
                      const std::vector<uint8_t>& /*bytes*/) override {}
};

TEST(OrderTest, FieldsOfTheBaseOfFeatureClients) {
    const Feature feature;
    const auto at = [&](const void* field) {
        return static_cast<const char*>(field) - reinterpret_cast<const char*>(&feature);
    };
    const auto size = static_cast<ptrdiff_t>(sizeof(void*));
    EXPECT_EQ(at(&feature.mLegacyStatusCb), size);  // behind the table's address
    EXPECT_EQ(at(&feature.mBaseStatusCbV2), 2 * size);
    EXPECT_EQ(at(&feature.mSdkClient), 3 * size);
    EXPECT_EQ(at(&feature.mTxnContext), 5 * size);
    EXPECT_GT(at(&feature.mLock), at(&feature.mTxnContext));
}

TEST(OrderTest, FieldsOfAnEvent) {
    std::vector<uint8_t> blob{1};
    const SdkClientEvent event(LUM_SDK_CLIENT_SDF, blob);
    const auto at = [&](const void* field) {
        return static_cast<const char*>(field) - reinterpret_cast<const char*>(&event);
    };
    const auto size = static_cast<ptrdiff_t>(sizeof(void*));
    EXPECT_EQ(at(&event.mReserved), size);
    EXPECT_EQ(at(&event.mRelease), size + 4);
    EXPECT_EQ(at(&event.mType), size + 8);
    EXPECT_EQ(at(&event.mBlob), (size + 12 + size - 1) / size * size);
    EXPECT_EQ(at(&event.mKind), at(&event.mBlob) + 3 * size);
}

}  // namespace
