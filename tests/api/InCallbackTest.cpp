// SPDX-License-Identifier: Apache-2.0
// The application calls the interface from inside its callbacks.
#include <gtest/gtest.h>

#include "tests/api/ClientFixture.h"
#include "tests/api/ScriptedRand.h"
#include "tests/support/Hex.h"

namespace {

using Ids = std::vector<unsigned int>;
using Texts = std::vector<std::string>;

long long setLatency(SdfEffectiveLevelsCb cb = app::onLevels) {
    return sdfSetLatencyLvl(SDF_SLOT_ID_FIRST, SDF_LATENCY_LVL_1, SDF_LATENCY_LVL_1, false, cb);
}

class InCallbackTest : public ClientTest {
  protected:
    // Both status callbacks, the service up, and request 7 awaiting its levels.
    void SetUp() override {
        startUp();
        ASSERT_EQ(lum_sdf_enable(app::onLegacy), 1);
        scriptRand({7});
        ASSERT_EQ(setLatency(), 7);
        sdk().transport->take();
    }
};

TEST_F(InCallbackTest, FirstStatusCallbackDestroys) {
    app::inside("legacy", [] { EXPECT_EQ(destroySdfClient(), 0); });
    report(SdkClientBase::SDK_SERVICE_DOWN);
    EXPECT_EQ(app::takeCalls(), Calls{"legacy(6)"});
    EXPECT_FALSE(Sdf::mInstance);
    EXPECT_EQ(sdk().transport->takeText(), Texts{kDisable});
}

TEST_F(InCallbackTest, FirstStatusCallbackDisables) {
    // The V2 slot is not the one that lum_sdf_disable() empties.
    app::inside("legacy", [] { EXPECT_EQ(lum_sdf_disable(), 1); });
    receive(service::statusInd("06"));
    EXPECT_EQ(app::takeCalls(), Calls{"legacy(5)"});
    EXPECT_FALSE(Sdf::mInstance);
}

TEST_F(InCallbackTest, FirstStatusCallbackDestroysAndCreates) {
    app::inside("legacy", [] {
        EXPECT_EQ(lum_sdf_disable(), 1);
        EXPECT_EQ(createSdfClient(app::onOtherV2), 0);
    });
    receive(service::statusInd("06"));
    EXPECT_EQ(app::takeCalls(), Calls{"legacy(5)"});
    ASSERT_TRUE(Sdf::mInstance);
    EXPECT_FALSE(client().mServiceUp);  // that was the earlier client's
    EXPECT_EQ(setLatency(), -8);
    receive(service::statusInd("06"));
    EXPECT_EQ(app::takeCalls(), Calls{"otherV2(-7)"});
}

TEST_F(InCallbackTest, FirstStatusCallbackReplacesTheSecond) {
    app::inside("legacy", [] { EXPECT_EQ(createSdfClient(app::onOtherV2), 0); });
    receive(service::statusInd("06"));
    EXPECT_EQ(app::takeCalls(), (Calls{"legacy(5)", "otherV2(-7)"}));
}

TEST_F(InCallbackTest, FirstStatusCallbackReplacesItself) {
    app::inside("legacy", [] { EXPECT_EQ(lum_sdf_enable(app::onOtherLegacy), 1); });
    receive(service::statusInd("06"));
    EXPECT_EQ(app::takeCalls(), (Calls{"legacy(5)", "v2(-7)"}));
    receive(service::statusInd("06"));
    EXPECT_EQ(app::takeCalls(), (Calls{"otherLegacy(5)", "v2(-7)"}));
}

TEST_F(InCallbackTest, SecondStatusCallbackDestroys) {
    app::inside("v2", [] { EXPECT_EQ(destroySdfClient(), 0); });
    receive(service::statusInd("06"));
    EXPECT_EQ(app::takeCalls(), (Calls{"legacy(5)", "v2(-7)"}));
    EXPECT_FALSE(Sdf::mInstance);
}

TEST_F(InCallbackTest, RequestAtServiceUp) {
    client().mServiceUp = false;
    scriptRand({8, 9});
    app::inside("legacy", [] { EXPECT_EQ(setLatency(), 8); });
    app::inside("v2", [] { EXPECT_EQ(setLatency(), 9); });
    receive(service::statusInd("06"));
    EXPECT_EQ(client().mUsedIds, (Ids{7, 8, 9}));
}

TEST_F(InCallbackTest, CreateAtServiceDown) {
    app::inside("v2", [] {
        EXPECT_EQ(setLatency(), -8);
        EXPECT_EQ(createSdfClient(app::onV2), 0);
    });
    report(SdkClientBase::SDK_SERVICE_DOWN);
    EXPECT_EQ(sdk().transport->takeText(), Texts{kEnable});
    EXPECT_EQ(sdk().obtained.size(), 1U);
}

TEST_F(InCallbackTest, LevelsCallbackRequestsAgain) {
    scriptRand({7, 8});  // 7 is still taken
    app::inside("levels", [] { EXPECT_EQ(setLatency(app::onOtherLevels), 8); });
    receive(service::effectiveLevels("07"));
    EXPECT_EQ(client().mUsedIds, Ids{8});
    EXPECT_EQ(client().mLatencyCbs.size(), 1U);
    receive(service::effectiveLevels("08"));
    EXPECT_EQ(app::takeCalls(), (Calls{"levels(7,6,3)", "otherLevels(8,6,3)"}));
}

TEST_F(InCallbackTest, LevelsCallbackRequestsVeryOften) {
    app::inside("levels", [] {
        for (int i = 0; i < 1000; ++i) EXPECT_GT(setLatency(), 0);
    });
    receive(service::effectiveLevels("07"));
    EXPECT_EQ(client().mUsedIds.size(), 1000U);
    EXPECT_EQ(client().mLatencyCbs.size(), 1000U);
    EXPECT_EQ(client().mLatencyCbs.count(7), 0U);
}

TEST_F(InCallbackTest, LevelsCallbackDestroys) {
    app::inside("levels", [] { EXPECT_EQ(destroySdfClient(), 0); });
    receive(service::effectiveLevels("07"));
    EXPECT_EQ(app::takeCalls(), Calls{"levels(7,6,3)"});
    EXPECT_FALSE(Sdf::mInstance);
}

TEST_F(InCallbackTest, LevelsCallbackDestroysAndCreates) {
    app::inside("levels", [] {
        EXPECT_EQ(destroySdfClient(), 0);
        EXPECT_EQ(createSdfClient(app::onOtherV2), 0);
        receive(service::statusInd("06"));
        scriptRand({7});
        EXPECT_EQ(setLatency(app::onOtherLevels), 7);
    });
    receive(service::effectiveLevels("07"));
    // The new client has a request of its own under the same id.
    EXPECT_EQ(client().mUsedIds, Ids{7});
    EXPECT_EQ(client().mLatencyCbs.size(), 1U);
    app::takeCalls();
    receive(service::effectiveLevels("07"));
    EXPECT_EQ(app::takeCalls(), Calls{"otherLevels(7,6,3)"});
}

// The dispatcher itself keeps the object alive, whatever its caller holds: otherwise the new client
// may come to lie where the earlier one lay, and pass for it.
TEST_F(InCallbackTest, DispatcherKeepsTheObject) {
    Sdf* const object = Sdf::mInstance.get();
    app::inside("levels", [] {
        EXPECT_EQ(destroySdfClient(), 0);
        EXPECT_EQ(createSdfClient(app::onV2), 0);
        client().mServiceUp = true;
        scriptRand({7});
        EXPECT_EQ(setLatency(app::onOtherLevels), 7);
    });
    const std::vector<uint8_t> levels = fromHex(service::effectiveLevels("07"));
    object->blobListener(SdkClientBase::SDK_BLOB_RECEIVED, levels);
    EXPECT_EQ(app::takeCalls(), Calls{"levels(7,6,3)"});
    EXPECT_EQ(client().mUsedIds, Ids{7});
    EXPECT_EQ(client().mLatencyCbs.size(), 1U);
}

TEST_F(InCallbackTest, StatusHandlerKeepsTheObject) {
    Sdf* const object = Sdf::mInstance.get();
    app::inside("legacy", [] {
        EXPECT_EQ(destroySdfClient(), 0);
        EXPECT_EQ(createSdfClient(app::onOtherV2), 0);
    });
    object->handleSdfStatusInd(SDF_STATUS_SERVICE_UP);
    EXPECT_EQ(app::takeCalls(), Calls{"legacy(5)"});
    EXPECT_FALSE(client().mServiceUp);
}

// The callback that says there is no transport creates and destroys again, and is not called from
// inside itself without end.
TEST_F(InCallbackTest, NoTransportAtCreate) {
    ASSERT_EQ(destroySdfClient(), 0);
    sdk().transport = nullptr;
    app::inside("legacy", [] {
        EXPECT_EQ(lum_sdf_enable(app::onLegacy), 1);
        EXPECT_EQ(createSdfClient(app::onV2), 0);
        EXPECT_EQ(setLatency(), -5);
        EXPECT_EQ(lum_sdf_disable(), 0);
        EXPECT_EQ(destroySdfClient(), -5);
    });
    EXPECT_EQ(lum_sdf_enable(app::onLegacy), 1);
    EXPECT_EQ(app::takeCalls(), Calls{"legacy(2)"});
    EXPECT_EQ(lum_sdf_enable(app::onLegacy), 1);
    EXPECT_EQ(app::takeCalls(), Calls{"legacy(2)"});
}

TEST_F(InCallbackTest, NoTransportAtDestroy) {
    ASSERT_EQ(destroySdfClient(), 0);
    sdk().transport = nullptr;
    ASSERT_EQ(createSdfClient(app::onV2), 0);
    ASSERT_EQ(lum_sdf_enable(app::onLegacy), 1);
    app::takeCalls();
    for (const char* callback : {"legacy", "v2"}) {
        app::inside(callback, [] {
            EXPECT_EQ(lum_sdf_disable(), 0);
            EXPECT_EQ(destroySdfClient(), -5);
            EXPECT_EQ(createSdfClient(app::onV2), 0);
        });
    }
    EXPECT_EQ(destroySdfClient(), -5);
    EXPECT_EQ(app::takeCalls(), (Calls{"legacy(2)", "v2(-3)"}));
    EXPECT_EQ(lum_sdf_disable(), 0);
    EXPECT_EQ(app::takeCalls(), (Calls{"legacy(2)", "v2(-3)"}));
}

TEST_F(InCallbackTest, NoTransportAtFirstThenOneFromInside) {
    ASSERT_EQ(destroySdfClient(), 0);
    const auto transport = std::exchange(sdk().transport, nullptr);
    app::inside("legacy", [&] {
        app::inside("legacy", nullptr);
        sdk().transport = transport;
        EXPECT_EQ(createSdfClient(app::onV2), 0);
    });
    EXPECT_EQ(lum_sdf_enable(app::onLegacy), 1);
    EXPECT_EQ(client().mSdkClient, transport);
    receive(service::statusInd("06"));
    EXPECT_EQ(app::takeCalls(), (Calls{"legacy(2)", "legacy(5)", "v2(-7)"}));
}

// The first of the two callbacks that say there is no transport makes one and destroys the client:
// the second is not called.
TEST_F(InCallbackTest, NoTransportAtDestroyAndGoneBetween) {
    ASSERT_EQ(destroySdfClient(), 0);
    const auto transport = std::exchange(sdk().transport, nullptr);
    ASSERT_EQ(createSdfClient(app::onV2), 0);
    ASSERT_EQ(lum_sdf_enable(app::onLegacy), 1);
    app::takeCalls();
    app::inside("legacy", [&] {
        sdk().transport = transport;
        EXPECT_EQ(createSdfClient(app::onV2), 0);
        EXPECT_EQ(destroySdfClient(), 0);
    });
    EXPECT_EQ(destroySdfClient(), -5);
    EXPECT_EQ(app::takeCalls(), Calls{"legacy(2)"});
    EXPECT_FALSE(Sdf::mInstance);
}

// A refused message is reported while a destroy waits; that callback may do anything.
TEST_F(InCallbackTest, WhileADestroyWaits) {
    sdk().duringDestroy = [] { report(SdkClientBase::SDK_SEND_FAILED); };
    app::inside("legacy", [] {
        EXPECT_EQ(setLatency(), -5);
        EXPECT_EQ(destroySdfClient(), -5);
        EXPECT_EQ(lum_sdf_disable(), 0);
        EXPECT_EQ(createSdfClient(app::onOtherV2), 0);
        EXPECT_EQ(setLatency(), -5);
    });
    EXPECT_EQ(destroySdfClient(), 0);
    EXPECT_EQ(app::takeCalls(), Calls{"legacy(2)"});
    ASSERT_TRUE(Sdf::mInstance);
    EXPECT_EQ(client().mStatusCbV2, app::onOtherV2);
    EXPECT_EQ(client().mLegacyStatusCb, nullptr);
    EXPECT_EQ(createSdfClient(app::onOtherV2), 0);
    receive(service::statusInd("06"));
    EXPECT_EQ(app::takeCalls(), Calls{"otherV2(-7)"});
}

TEST_F(InCallbackTest, WhileACreateObtainsTheTransport) {
    ASSERT_EQ(destroySdfClient(), 0);
    app::inside("v2", [] {
        scriptRand({8});
        EXPECT_EQ(setLatency(), 8);
    });
    sdk().duringGet = [] { receive(service::statusInd("06")); };
    EXPECT_EQ(createSdfClient(app::onV2), 0);
    EXPECT_EQ(client().mUsedIds, Ids{8});
}

// Every callback, every pair of calls from inside it; the client can be used afterwards.
TEST_F(InCallbackTest, EveryCallFromEveryCallback) {
    const std::vector<std::function<void()>> calls = {
        [] { createSdfClient(app::onOtherV2); },
        [] { lum_sdf_enable(app::onOtherLegacy); },
        [] { destroySdfClient(); },
        [] { lum_sdf_disable(); },
        [] { setLatency(); },
        [] { setLatency(app::onOtherLevels); },
    };
    const std::vector<std::function<void()>> deliveries = {
        [] { receive(service::statusInd("06")); },
        [] { receive(service::statusInd("03")); },
        [] { report(SdkClientBase::SDK_SEND_FAILED); },
        [] { report(SdkClientBase::SDK_SERVICE_DOWN); },
        [] { receive(service::effectiveLevels("07")); },
    };
    ASSERT_EQ(destroySdfClient(), 0);
    for (const char* callback : {"legacy", "v2", "levels"}) {
        for (const auto& deliver : deliveries) {
            for (const auto& first : calls) {
                for (const auto& second : calls) {
                    app::reset();
                    SetUp();
                    app::inside(callback, [&] {
                        first();
                        second();
                    });
                    deliver();
                    app::reset();
                    destroySdfClient();
                    ASSERT_FALSE(Sdf::mInstance);
                }
            }
        }
    }
}

}  // namespace
