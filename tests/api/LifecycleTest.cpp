// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>

#include "tests/api/ClientFixture.h"
#include "tests/api/ScriptedRand.h"
#include "tests/support/Hex.h"

namespace {

using Texts = std::vector<std::string>;

class LifecycleTest : public ClientTest {};

long long setLatency() {
    return sdfSetLatencyLvl(SDF_SLOT_ID_FIRST, SDF_LATENCY_LVL_1, SDF_LATENCY_LVL_6, false,
                            app::onLevels);
}

TEST_F(LifecycleTest, CreateWithoutCallbackIsRefused) {
    EXPECT_EQ(createSdfClient(nullptr), -2);
    EXPECT_EQ(lum_sdf_enable(nullptr), 0);
    EXPECT_FALSE(Sdf::mInstance);
    EXPECT_TRUE(sdk().obtained.empty());
}

TEST_F(LifecycleTest, CreateWithoutCallbackLeavesAClientAlone) {
    startUp();
    EXPECT_EQ(createSdfClient(nullptr), -2);
    EXPECT_EQ(lum_sdf_enable(nullptr), 0);
    EXPECT_EQ(client().mStatusCbV2, app::onV2);
    EXPECT_EQ(client().mLegacyStatusCb, nullptr);
    EXPECT_TRUE(client().mServiceUp);
    EXPECT_EQ(sdk().transport->takeText(), Texts{});
}

TEST_F(LifecycleTest, DestroyWithoutAClient) {
    EXPECT_EQ(destroySdfClient(), -5);
    EXPECT_EQ(lum_sdf_disable(), 0);
    EXPECT_TRUE(sdk().destroyed.empty());
}

TEST_F(LifecycleTest, NewClientIsEmpty) {
    ASSERT_EQ(createSdfClient(app::onV2), 0);
    EXPECT_EQ(client().mLegacyStatusCb, nullptr);
    EXPECT_EQ(client().mBaseStatusCbV2, nullptr);
    EXPECT_EQ(client().mStatusCbV2, app::onV2);
    EXPECT_EQ(client().mFilterStatusCb, nullptr);
    EXPECT_EQ(client().mGetFiltersCb, nullptr);
    EXPECT_EQ(client().mPriorityQueueReportsCb, nullptr);
    EXPECT_EQ(client().mGetPriorityQueueReportCb, nullptr);
    EXPECT_EQ(client().mAutoFilterInfoCb, nullptr);
    EXPECT_TRUE(client().mUsedIds.empty());
    EXPECT_TRUE(client().mFilterIds.empty());
    EXPECT_TRUE(client().mLatencyCbs.empty());
    EXPECT_TRUE(client().mFilterCbs.empty());
    EXPECT_TRUE(client().mTxnContext.empty());
    EXPECT_FALSE(client().mServiceUp);
}

TEST_F(LifecycleTest, CreateObtainsTheTransportWithTheEnableRequest) {
    EXPECT_EQ(createSdfClient(app::onV2), 0);
    EXPECT_EQ(sdk().obtained, std::vector<LumSdkClientType>{LUM_SDK_CLIENT_SDF});
    EXPECT_EQ(client().mSdkClient, sdk().transport);
    EXPECT_EQ(sdk().transport->takeText(), Texts{kEnable});
    EXPECT_EQ(app::takeCalls(), Calls{});
}

TEST_F(LifecycleTest, EnableObtainsTheTransportWithTheEnableRequest) {
    EXPECT_EQ(lum_sdf_enable(app::onLegacy), 1);
    EXPECT_EQ(client().mLegacyStatusCb, app::onLegacy);
    EXPECT_EQ(client().mStatusCbV2, nullptr);
    EXPECT_EQ(sdk().obtained.size(), 1U);
    EXPECT_EQ(sdk().transport->takeText(), Texts{kEnable});
    EXPECT_EQ(app::takeCalls(), Calls{});
}

TEST_F(LifecycleTest, SecondCreateReusesTheClient) {
    ASSERT_EQ(createSdfClient(app::onV2), 0);
    const std::shared_ptr<Sdf> before = Sdf::mInstance;
    sdk().transport->take();
    EXPECT_EQ(createSdfClient(app::onOtherV2), 0);
    EXPECT_EQ(Sdf::mInstance, before);
    EXPECT_EQ(sdk().obtained.size(), 1U);  // the listener is not registered again
    EXPECT_EQ(sdk().transport->takeText(), Texts{kEnable});
    receive(service::statusInd("06"));
    EXPECT_EQ(app::takeCalls(), Calls{"otherV2(-7)"});
}

TEST_F(LifecycleTest, SecondEnableReusesTheClient) {
    ASSERT_EQ(lum_sdf_enable(app::onLegacy), 1);
    sdk().transport->take();
    EXPECT_EQ(lum_sdf_enable(app::onOtherLegacy), 1);
    EXPECT_EQ(sdk().obtained.size(), 1U);
    EXPECT_EQ(sdk().transport->takeText(), Texts{kEnable});
    receive(service::statusInd("06"));
    EXPECT_EQ(app::takeCalls(), Calls{"otherLegacy(5)"});
}

TEST_F(LifecycleTest, BothGenerationsShareTheClient) {
    ASSERT_EQ(createSdfClient(app::onV2), 0);
    ASSERT_EQ(lum_sdf_enable(app::onLegacy), 1);
    EXPECT_EQ(sdk().obtained.size(), 1U);
    EXPECT_EQ(sdk().transport->takeText(), (Texts{kEnable, kEnable}));
    receive(service::statusInd("06"));
    EXPECT_EQ(app::takeCalls(), (Calls{"legacy(5)", "v2(-7)"}));
}

TEST_F(LifecycleTest, CreateKeepsServiceUp) {
    startUp();
    EXPECT_EQ(createSdfClient(app::onV2), 0);
    EXPECT_TRUE(client().mServiceUp);
}

TEST_F(LifecycleTest, StatusThatComesBeforeCreateReturns) {
    sdk().duringGet = [] { receive(service::statusInd("06")); };
    EXPECT_EQ(createSdfClient(app::onV2), 0);
    EXPECT_TRUE(client().mServiceUp);
    EXPECT_EQ(app::takeCalls(), Calls{"v2(-7)"});
}

TEST_F(LifecycleTest, ServiceUpOfTheTransportIsNotServiceUp) {
    sdk().duringGet = [] { report(SdkClientBase::SDK_SERVICE_UP); };
    EXPECT_EQ(createSdfClient(app::onV2), 0);
    EXPECT_FALSE(client().mServiceUp);
    EXPECT_EQ(app::takeCalls(), Calls{});
}

TEST_F(LifecycleTest, RequestBeforeServiceUpIsRefused) {
    ASSERT_EQ(createSdfClient(app::onV2), 0);
    sdk().transport->take();
    EXPECT_EQ(setLatency(), -8);
    EXPECT_EQ(sdk().transport->takeText(), Texts{});
}

TEST_F(LifecycleTest, AnyOtherStatusTakesTheServiceDown) {
    for (const char* status : {"00", "01", "02", "03", "04", "05", "07", "08", "0A"}) {
        startUp();
        EXPECT_GT(setLatency(), 0);
        receive(service::statusInd(status));
        EXPECT_EQ(setLatency(), -8) << status;
        EXPECT_EQ(destroySdfClient(), 0);
    }
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

TEST_F(LifecycleTest, Destroy) {
    startUp();
    const std::weak_ptr<Sdf> object = Sdf::mInstance;
    EXPECT_EQ(destroySdfClient(), 0);
    EXPECT_EQ(sdk().transport->takeText(), Texts{kDisable});
    EXPECT_EQ(sdk().destroyed, std::vector<LumSdkClientType>{LUM_SDK_CLIENT_SDF});
    EXPECT_FALSE(Sdf::mInstance);
    EXPECT_TRUE(object.expired());
    EXPECT_EQ(setLatency(), -5);
    EXPECT_EQ(destroySdfClient(), -5);
    EXPECT_EQ(app::takeCalls(), Calls{});
}

TEST_F(LifecycleTest, Disable) {
    ASSERT_EQ(lum_sdf_enable(app::onLegacy), 1);
    sdk().transport->take();
    const std::weak_ptr<Sdf> object = Sdf::mInstance;
    EXPECT_EQ(lum_sdf_disable(), 1);
    EXPECT_EQ(sdk().transport->takeText(), Texts{kDisable});
    EXPECT_EQ(sdk().destroyed.size(), 1U);
    EXPECT_TRUE(object.expired());
    EXPECT_EQ(lum_sdf_disable(), 0);
    EXPECT_EQ(app::takeCalls(), Calls{});
}

TEST_F(LifecycleTest, EitherDestroyEndsBothGenerations) {
    for (const auto& [destroy, result] :
         {std::pair(&destroySdfClient, 0LL), std::pair(&lum_sdf_disable, 1LL)}) {
        ASSERT_EQ(createSdfClient(app::onV2), 0);
        ASSERT_EQ(lum_sdf_enable(app::onLegacy), 1);
        EXPECT_EQ(destroy(), result);
        EXPECT_FALSE(Sdf::mInstance);
        EXPECT_EQ(destroySdfClient(), -5);
        EXPECT_EQ(lum_sdf_disable(), 0);
    }
}

TEST_F(LifecycleTest, AwaitedCallbacksAreDroppedUncalled) {
    startUp();
    ASSERT_GT(setLatency(), 0);
    EXPECT_EQ(destroySdfClient(), 0);
    EXPECT_EQ(app::takeCalls(), Calls{});
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
    sdk().transport = nullptr;
    EXPECT_EQ(createSdfClient(app::onV2), 0);
    ASSERT_TRUE(Sdf::mInstance);
    EXPECT_EQ(client().mStatusCbV2, app::onV2);
    EXPECT_EQ(client().mSdkClient, nullptr);
    EXPECT_EQ(app::takeCalls(), Calls{});  // told by the results of later calls
    EXPECT_EQ(setLatency(), -5);
}

TEST_F(LifecycleTest, EnableWithoutATransportIsReported) {
    sdk().transport = nullptr;
    EXPECT_EQ(lum_sdf_enable(app::onLegacy), 1);
    EXPECT_EQ(app::takeCalls(), Calls{"legacy(2)"});
    EXPECT_EQ(createSdfClient(app::onV2), 0);
    EXPECT_EQ(app::takeCalls(), Calls{"legacy(2)"});
}

TEST_F(LifecycleTest, BaseCallbackGoesBeforeTheOlderOne) {
    sdk().transport = nullptr;
    ASSERT_EQ(lum_sdf_enable(app::onLegacy), 1);
    app::takeCalls();
    client().mBaseStatusCbV2 = app::onOtherV2;
    EXPECT_EQ(createSdfClient(app::onV2), 0);
    EXPECT_EQ(app::takeCalls(), Calls{"otherV2(-3)"});
}

TEST_F(LifecycleTest, CreateAgainOnceATransportCanBeHad) {
    const auto transport = std::exchange(sdk().transport, nullptr);
    ASSERT_EQ(createSdfClient(app::onV2), 0);
    const std::shared_ptr<Sdf> before = Sdf::mInstance;
    sdk().transport = transport;
    EXPECT_EQ(createSdfClient(app::onV2), 0);
    EXPECT_EQ(Sdf::mInstance, before);
    EXPECT_EQ(client().mSdkClient, transport);
    EXPECT_EQ(transport->takeText(), Texts{kEnable});
    receive(service::statusInd("06"));
    EXPECT_GT(setLatency(), 0);
}

TEST_F(LifecycleTest, DestroyWithoutATransportIsReportedAndChangesNothing) {
    sdk().transport = nullptr;
    ASSERT_EQ(lum_sdf_enable(app::onLegacy), 1);
    ASSERT_EQ(createSdfClient(app::onV2), 0);
    app::takeCalls();
    const std::shared_ptr<Sdf> before = Sdf::mInstance;
    client().mServiceUp = true;
    EXPECT_EQ(destroySdfClient(), -5);
    EXPECT_FALSE(client().mServiceUp);
    EXPECT_EQ(app::takeCalls(), (Calls{"legacy(2)", "v2(-3)"}));

    client().mServiceUp = true;
    EXPECT_EQ(lum_sdf_disable(), 0);
    EXPECT_FALSE(client().mServiceUp);
    EXPECT_EQ(app::takeCalls(), (Calls{"legacy(2)", "v2(-3)"}));

    EXPECT_EQ(Sdf::mInstance, before);
    EXPECT_EQ(client().mLegacyStatusCb, app::onLegacy);
    EXPECT_EQ(client().mStatusCbV2, app::onV2);
    EXPECT_TRUE(sdk().destroyed.empty());
}

TEST_F(LifecycleTest, DestroyWithoutATransportAndWithoutCallbacks) {
    std::atomic_store(&Sdf::mInstance, std::make_shared<Sdf>());
    EXPECT_EQ(destroySdfClient(), -5);
    EXPECT_EQ(lum_sdf_disable(), 0);
    EXPECT_TRUE(Sdf::mInstance);
}

TEST_F(LifecycleTest, EveryRoundIsANewClient) {
    for (int round = 0; round < 20; ++round) {
        startUp();
        ASSERT_GT(setLatency(), 0);
        ASSERT_EQ(destroySdfClient(), 0);
    }
    EXPECT_EQ(sdk().obtained.size(), 20U);
    EXPECT_EQ(sdk().destroyed.size(), 20U);
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
    startUp();
    scriptRand({7});
    ASSERT_EQ(setLatency(), 7);
    const SdkClientBase::Listener earlier = sdk().listener;
    ASSERT_EQ(lum_sdf_enable(app::onLegacy), 1);
    const std::shared_ptr<Sdf> object = Sdf::mInstance;
    ASSERT_EQ(destroySdfClient(), 0);
    const std::vector<uint8_t> up = fromHex(service::statusInd("06"));
    const std::vector<uint8_t> levels = fromHex(service::effectiveLevels("07"));
    const auto reportAll = [&] {
        earlier(SdkClientBase::SDK_BLOB_RECEIVED, up);
        earlier(SdkClientBase::SDK_BLOB_RECEIVED, levels);
        earlier(SdkClientBase::SDK_SEND_FAILED, {});
        earlier(SdkClientBase::SDK_SERVICE_DOWN, {});
        object->handleSdfStatusInd(SDF_STATUS_SERVICE_UP);
    };
    reportAll();
    EXPECT_EQ(app::takeCalls(), Calls{});

    startUp();
    reportAll();
    EXPECT_EQ(app::takeCalls(), Calls{});
    EXPECT_TRUE(client().mServiceUp);
    report(SdkClientBase::SDK_SERVICE_DOWN);
    app::takeCalls();
    reportAll();
    EXPECT_EQ(app::takeCalls(), Calls{});
    EXPECT_FALSE(client().mServiceUp);
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
        EXPECT_EQ(app::takeCalls(), Calls{});
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

TEST_F(LifecycleTest, ExitWithoutDestroy) {
    EXPECT_EXIT(
        {
            startUp();
            setLatency();
            exit(0);
        },
        ::testing::ExitedWithCode(0), "");
}

}  // namespace
