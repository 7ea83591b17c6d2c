// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <memory>

#include "tests/api/ClientFixture.h"
#include "tests/api/ClientState.h"
#include "tests/api/Requests.h"
#include "tests/api/ScriptedRand.h"
#include "tests/support/Hex.h"

namespace {

class LifecycleTest : public ClientTest {
  protected:
    // A client of both generations without a transport, nothing recorded.
    static void createWithoutTransport() {
        sdk().transport = nullptr;
        ASSERT_EQ(lum_sdf_enable(app::onLegacy), 1);
        ASSERT_EQ(createSdfClient(app::onV2), 0);
        app::takeCalls();
    }
};

TEST_F(LifecycleTest, CreateWithoutCallbackIsRefused) {
    for (const bool client : {false, true}) {
        if (client) startUp();
        const ClientState before;
        EXPECT_EQ(createSdfClient(nullptr), -2);
        EXPECT_EQ(lum_sdf_enable(nullptr), 0);
        EXPECT_EQ(ClientState().differences(before), "");
        EXPECT_EQ(posted(), Texts{});
    }
}

TEST_F(LifecycleTest, DestroyWithoutAClient) {
    EXPECT_EQ(destroySdfClient(), -5);
    EXPECT_EQ(lum_sdf_disable(), 0);
    EXPECT_TRUE(sdk().destroyed.empty());
}

TEST_F(LifecycleTest, NewClientIsEmpty) {
    const ClientState nothing;
    ASSERT_EQ(createSdfClient(app::onV2), 0);
    EXPECT_EQ(ClientState().differences(nothing), "instance v2 transport obtained");
    EXPECT_EQ(client().mStatusCbV2, app::onV2);
    EXPECT_EQ(client().mBaseStatusCbV2, nullptr);
    EXPECT_TRUE(client().mTxnContext.empty());
}

TEST_F(LifecycleTest, CreateAndAgain) {
    EXPECT_EQ(createSdfClient(app::onV2), 0);
    EXPECT_EQ(sdk().obtained, std::vector<LumSdkClientType>{LUM_SDK_CLIENT_SDF});
    EXPECT_EQ(client().mSdkClient, sdk().transport);
    EXPECT_EQ(posted(), Texts{kEnable});
    EXPECT_EQ(setLatency(), -8);
    EXPECT_EQ(posted(), Texts{});
    EXPECT_EQ(effectOf(service::statusInd("06")), (Texts{"v2(-7)", "changed serviceUp"}));
    // The client and its listener are used again, and the service stays up.
    const ClientState before;
    EXPECT_EQ(createSdfClient(app::onOtherV2), 0);
    EXPECT_EQ(ClientState().differences(before), "v2");
    EXPECT_EQ(posted(), Texts{kEnable});
    EXPECT_EQ(effectOf(service::statusInd("06")), Texts{"otherV2(-7)"});
    // Both generations share it.
    EXPECT_EQ(lum_sdf_enable(app::onLegacy), 1);
    EXPECT_EQ(posted(), Texts{kEnable});
    EXPECT_EQ(sdk().obtained.size(), 1U);
    EXPECT_EQ(effectOf(service::statusInd("06")), (Texts{"legacy(5)", "otherV2(-7)"}));
}

TEST_F(LifecycleTest, StatusThatComesBeforeCreateReturns) {
    app::inside("v2", [] { EXPECT_GT(setLatency(), 0); });
    sdk().duringGet = [] { receive(service::statusInd("06")); };
    EXPECT_EQ(createSdfClient(app::onV2), 0);
    EXPECT_TRUE(client().mServiceUp);
    EXPECT_EQ(app::takeCalls(), Calls{"v2(-7)"});
}

TEST_F(LifecycleTest, ServiceUpAgainAfterDown) {
    startUp();
    report(SdkClientBase::SDK_SERVICE_DOWN);
    EXPECT_EQ(setLatency(), -8);
    EXPECT_EQ(createSdfClient(app::onV2), 0);
    EXPECT_EQ(setLatency(), -8);
    receive(service::statusInd("06"));
    EXPECT_GT(setLatency(), 0);
    EXPECT_EQ(app::takeCalls(), (Calls{"v2(-8)", "v2(-7)"}));
}

// Either destroy ends the client for both generations; what is awaited is dropped uncalled.
TEST_F(LifecycleTest, Destroy) {
    for (const auto& [destroy, result] :
         {std::pair(&destroySdfClient, 0LL), std::pair(&lum_sdf_disable, 1LL)}) {
        startUpWithAll();
        sdk().destroyed.clear();
        const std::weak_ptr<Sdf> object = Sdf::mInstance;
        EXPECT_EQ(destroy(), result);
        EXPECT_EQ(posted(), Texts{kDisable});
        EXPECT_EQ(sdk().destroyed, std::vector<LumSdkClientType>{LUM_SDK_CLIENT_SDF});
        EXPECT_FALSE(Sdf::mInstance);
        EXPECT_TRUE(object.expired());
        EXPECT_EQ(setLatency(), -5);
        EXPECT_EQ(destroySdfClient(), -5);
        EXPECT_EQ(lum_sdf_disable(), 0);
        EXPECT_EQ(app::takeCalls(), Calls{});
    }
    EXPECT_EQ(sdk().obtained.size(), 2U);
}

// While a destroy waits for the transport, what it was called for is already gone: only the other
// generation's callback still hears of a refused message.
TEST_F(LifecycleTest, DestroyEmptiesItsOwnStatusSlotFirst) {
    sdk().duringDestroy = [] {
        EXPECT_EQ(client().mSdkClient, nullptr);
        report(SdkClientBase::SDK_SEND_FAILED);
    };
    ASSERT_EQ(createSdfClient(app::onV2), 0);
    ASSERT_EQ(lum_sdf_enable(app::onLegacy), 1);
    EXPECT_EQ(destroySdfClient(), 0);
    EXPECT_EQ(app::takeCalls(), Calls{"legacy(2)"});

    ASSERT_EQ(createSdfClient(app::onV2), 0);
    ASSERT_EQ(lum_sdf_enable(app::onLegacy), 1);
    EXPECT_EQ(lum_sdf_disable(), 1);
    EXPECT_EQ(app::takeCalls(), Calls{"v2(-3)"});
}

TEST_F(LifecycleTest, CreateWithoutATransport) {
    const auto transport = std::exchange(sdk().transport, nullptr);
    EXPECT_EQ(createSdfClient(app::onV2), 0);
    ASSERT_TRUE(Sdf::mInstance);
    EXPECT_EQ(client().mStatusCbV2, app::onV2);
    EXPECT_EQ(client().mSdkClient, nullptr);
    EXPECT_EQ(app::takeCalls(), Calls{});  // shown by the results of later calls
    EXPECT_EQ(setLatency(), -5);
    // The next one has a transport.
    const ClientState before;
    sdk().transport = transport;
    EXPECT_EQ(createSdfClient(app::onV2), 0);
    EXPECT_EQ(ClientState().differences(before), "transport obtained");
    EXPECT_EQ(transport->takeText(), Texts{kEnable});
    receive(service::statusInd("06"));
    EXPECT_GT(setLatency(), 0);
}

// To the base's callback alone, or else to the older one.
TEST_F(LifecycleTest, EnableWithoutATransportIsReported) {
    sdk().transport = nullptr;
    EXPECT_EQ(lum_sdf_enable(app::onLegacy), 1);
    EXPECT_EQ(app::takeCalls(), Calls{"legacy(2)"});
    EXPECT_EQ(createSdfClient(app::onV2), 0);
    EXPECT_EQ(app::takeCalls(), Calls{"legacy(2)"});
    client().mBaseStatusCbV2 = app::onOtherV2;
    EXPECT_EQ(createSdfClient(app::onV2), 0);
    EXPECT_EQ(app::takeCalls(), Calls{"otherV2(-3)"});
}

TEST_F(LifecycleTest, DestroyWithoutATransportIsReportedAndChangesNothing) {
    createWithoutTransport();
    for (const auto& [destroy, result] :
         {std::pair(&destroySdfClient, -5LL), std::pair(&lum_sdf_disable, 0LL)}) {
        client().mServiceUp = true;
        const ClientState before;
        EXPECT_EQ(destroy(), result);
        EXPECT_EQ(ClientState().differences(before), "serviceUp");
        EXPECT_EQ(app::takeCalls(), (Calls{"legacy(2)", "v2(-3)"}));
    }
    client().mLegacyStatusCb = nullptr;
    client().mStatusCbV2 = nullptr;
    EXPECT_EQ(destroySdfClient(), -5);
    EXPECT_EQ(lum_sdf_disable(), 0);
    EXPECT_TRUE(Sdf::mInstance);
}

TEST_F(LifecycleTest, ObjectThatGoesLetsTheTransportGo) {
    auto object = std::make_unique<Sdf>();
    object->mSdkClient = sdk().transport;
    object.reset();
    EXPECT_EQ(sdk().destroyed, std::vector<LumSdkClientType>{LUM_SDK_CLIENT_SDF});
    EXPECT_EQ(sdk().transport.use_count(), 1);
}

// What arrives for an earlier client is nothing to the present one, or to nobody.
TEST_F(LifecycleTest, WhatArrivesForAnEarlierClientIsDropped) {
    startUpWithAll();
    const SdkClientBase::Listener earlier = sdk().listener;
    const std::shared_ptr<Sdf> object = Sdf::mInstance;
    ASSERT_EQ(destroySdfClient(), 0);
    const std::vector<uint8_t> up = fromHex(service::statusInd("06"));
    const std::vector<uint8_t> levels = fromHex(service::effectiveLevels("07"));
    const auto expectDropped = [&] {
        const ClientState before;
        earlier(SdkClientBase::SDK_BLOB_RECEIVED, up);
        earlier(SdkClientBase::SDK_BLOB_RECEIVED, levels);
        earlier(SdkClientBase::SDK_SEND_FAILED, {});
        earlier(SdkClientBase::SDK_SERVICE_DOWN, {});
        object->handleSdfStatusInd(SDF_STATUS_SERVICE_UP);
        EXPECT_EQ(app::takeCalls(), Calls{});
        EXPECT_EQ(ClientState().differences(before), "");
    };
    expectDropped();
    startUpWithAll();
    expectDropped();
    client().mServiceUp = false;
    expectDropped();
}

// A client made while a destroy on another thread still waits has no transport yet; it stays when
// that destroy ends.
TEST_F(LifecycleTest, CreateWhileADestroyWaits) {
    startUp();
    const std::shared_ptr<Sdf> before = Sdf::mInstance;
    sdk().duringDestroy = [] {
        EXPECT_EQ(setLatency(), -5);
        EXPECT_EQ(destroySdfClient(), -5);
        EXPECT_EQ(lum_sdf_disable(), 0);
        EXPECT_EQ(createSdfClient(app::onOtherV2), 0);
        EXPECT_EQ(app::takeCalls(), Calls{});
        EXPECT_EQ(lum_sdf_enable(app::onLegacy), 1);
        EXPECT_EQ(app::takeCalls(), Calls{"legacy(2)"});
        EXPECT_EQ(setLatency(), -5);
        EXPECT_EQ(destroySdfClient(), -5);
        EXPECT_EQ(app::takeCalls(), (Calls{"legacy(2)", "otherV2(-3)"}));
    };
    EXPECT_EQ(destroySdfClient(), 0);
    EXPECT_EQ(sdk().obtained.size(), 1U);
    ASSERT_TRUE(Sdf::mInstance);
    EXPECT_NE(Sdf::mInstance, before);
    EXPECT_EQ(createSdfClient(app::onOtherV2), 0);
    EXPECT_EQ(sdk().obtained.size(), 2U);
    EXPECT_EQ(client().mSdkClient, sdk().transport);
    sdk().duringDestroy = nullptr;
    EXPECT_EQ(destroySdfClient(), 0);
}

}  // namespace
