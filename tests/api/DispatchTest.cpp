// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <random>

#include "tests/api/ClientFixture.h"
#include "tests/api/ScriptedRand.h"
#include "tests/support/Hex.h"
#include "tests/support/LogCapture.h"

namespace {

using Ids = std::vector<unsigned int>;

class DispatchTest : public ClientTest {
  protected:
    // Service up, both status callbacks, and the requests 7 and 9 awaiting their levels.
    void SetUp() override {
        startUp();
        ASSERT_EQ(lum_sdf_enable(app::onLegacy), 1);
        scriptRand({7, 9});
        ASSERT_EQ(set(app::onLevels), 7);
        ASSERT_EQ(set(app::onOtherLevels), 9);
        sdk().transport->take();
    }

    static long long set(SdfEffectiveLevelsCb cb) {
        return sdfSetLatencyLvl(SDF_SLOT_ID_FIRST, SDF_LATENCY_LVL_1, SDF_LATENCY_LVL_1, false, cb);
    }

    static void expectBothAwaited() {
        EXPECT_EQ(client().mUsedIds, (Ids{7, 9}));
        EXPECT_EQ(client().mLatencyCbs.size(), 2U);
    }
};

TEST_F(DispatchTest, StatusReachesBothCallbacks) {
    const struct {
        const char* wire;
        const char* legacy;
        const char* v2;
        bool logged;  // how often "Unknown Status!" is logged is 1 or 0
    } rows[] = {
        {"00", "legacy(-1)", "v2(-1)", false}, {"01", "legacy(0)", "v2(0)", false},
        {"02", "legacy(1)", "v2(-2)", false},  {"03", "legacy(2)", "v2(-3)", false},
        {"04", "legacy(3)", "v2(-4)", false},  {"05", "legacy(4)", "v2(-5)", false},
        {"06", "legacy(5)", "v2(-7)", false},  {"07", "legacy(6)", "v2(-8)", false},
        {"08", "legacy(7)", "v2(-1)", true},   {"0A", "legacy(-1)", "v2(-1)", true},
    };
    for (const auto& row : rows) {
        const LogCapture log;
        client().mServiceUp = true;
        receive(service::statusInd(row.wire));
        EXPECT_EQ(app::takeCalls(), (Calls{row.legacy, row.v2}));
        EXPECT_EQ(client().mServiceUp, std::string(row.wire) == "06");
        EXPECT_EQ(log.lines(), row.logged ? std::vector<LogLine>{logE("Unknown Status!")}
                                          : std::vector<LogLine>{});
    }
    expectBothAwaited();
}

TEST_F(DispatchTest, ServiceUpIsNotedBeforeTheCallbacks) {
    client().mServiceUp = false;
    app::inside("legacy", [] { EXPECT_TRUE(client().mServiceUp); });
    receive(service::statusInd("06"));
    EXPECT_EQ(app::takeCalls(), (Calls{"legacy(5)", "v2(-7)"}));
}

TEST_F(DispatchTest, SendFailed) {
    report(SdkClientBase::SDK_SEND_FAILED);
    EXPECT_EQ(app::takeCalls(), (Calls{"legacy(2)", "v2(-3)"}));
    EXPECT_FALSE(client().mServiceUp);
    expectBothAwaited();
}

TEST_F(DispatchTest, ServiceDown) {
    report(SdkClientBase::SDK_SERVICE_DOWN);
    EXPECT_EQ(app::takeCalls(), (Calls{"legacy(6)", "v2(-8)"}));
    EXPECT_FALSE(client().mServiceUp);
    expectBothAwaited();
}

TEST_F(DispatchTest, WithoutCallbacksOnlyTheFlagChanges) {
    client().mLegacyStatusCb = nullptr;
    client().mStatusCbV2 = nullptr;
    for (const auto status : {SdkClientBase::SDK_SEND_FAILED, SdkClientBase::SDK_SERVICE_DOWN}) {
        client().mServiceUp = true;
        report(status);
        EXPECT_FALSE(client().mServiceUp);
    }
    receive(service::statusInd("06"));
    EXPECT_TRUE(client().mServiceUp);
    EXPECT_EQ(app::takeCalls(), Calls{});
    expectBothAwaited();
}

TEST_F(DispatchTest, OtherTransportStatusesAreIgnored) {
    for (const int32_t status : {-1, 3, 4, INT32_MAX}) {
        report(static_cast<SdkClientBase::SdkStatus>(status), service::statusInd("07"));
    }
    EXPECT_TRUE(client().mServiceUp);
    EXPECT_EQ(app::takeCalls(), Calls{});
}

TEST_F(DispatchTest, EffectiveLevels) {
    receive(service::effectiveLevels("07"));
    EXPECT_EQ(app::takeCalls(), Calls{"levels(7,6,3)"});
    EXPECT_EQ(client().mUsedIds, Ids{9});
    EXPECT_EQ(client().mLatencyCbs.size(), 1U);
    receive(service::effectiveLevels("09"));
    EXPECT_EQ(app::takeCalls(), Calls{"otherLevels(9,6,3)"});
    EXPECT_TRUE(client().mUsedIds.empty());
    EXPECT_TRUE(client().mLatencyCbs.empty());
}

TEST_F(DispatchTest, EffectiveLevelsAreStillRecordedDuringTheCallback) {
    app::inside("levels", [] { expectBothAwaited(); });
    receive(service::effectiveLevels("07"));
    EXPECT_EQ(app::takeCalls(), Calls{"levels(7,6,3)"});
}

TEST_F(DispatchTest, EffectiveLevelsComeOnce) {
    receive(service::effectiveLevels("07"));
    receive(service::effectiveLevels("07"));
    EXPECT_EQ(app::takeCalls(), Calls{"levels(7,6,3)"});
    EXPECT_EQ(client().mUsedIds, Ids{9});
}

TEST_F(DispatchTest, EffectiveLevelsOfAnUnknownRequest) {
    receive(service::effectiveLevels("08"));
    receive("08 01 1A 06 12 04 08 05 10 02");  // id 0
    EXPECT_EQ(app::takeCalls(), Calls{});
    expectBothAwaited();
}

// With no callback recorded the id stays reserved.
TEST_F(DispatchTest, EffectiveLevelsWithoutACallbackReleaseNothing) {
    client().mLatencyCbs.erase(7);
    receive(service::effectiveLevels("07"));
    EXPECT_EQ(app::takeCalls(), Calls{});
    EXPECT_EQ(client().mUsedIds, (Ids{7, 9}));
}

TEST_F(DispatchTest, EffectiveLevelsMatchOnTheLowHalfOfTheId) {
    receive(service::effectiveLevels("87 80 80 80 10"));  // 2^32 + 7
    EXPECT_EQ(app::takeCalls(), Calls{"levels(7,6,3)"});
    EXPECT_EQ(client().mUsedIds, Ids{9});
}

TEST_F(DispatchTest, EffectiveLevelsIdIsNeverNegative) {
    client().mLatencyCbs[UINT32_MAX] = app::onLevels;
    receive(service::effectiveLevels("FF FF FF FF FF FF FF FF FF 01"));  // all ones
    EXPECT_EQ(app::takeCalls(), Calls{"levels(4294967295,6,3)"});
    EXPECT_EQ(client().mLatencyCbs.count(UINT32_MAX), 0U);
}

TEST_F(DispatchTest, OnlyTheFirstOccurrenceOfTheIdIsReleased) {
    client().mUsedIds = {9, 7, 8, 7, 1};
    receive(service::effectiveLevels("07"));
    EXPECT_EQ(client().mUsedIds, (Ids{9, 8, 7, 1}));
}

TEST_F(DispatchTest, EffectiveLevelsOutsideTheEnumerationAreLevelOne) {
    receive("08 01 10 07 1A 06 12 04 08 06 10 7F");
    EXPECT_EQ(app::takeCalls(), Calls{"levels(7,1,1)"});
}

TEST_F(DispatchTest, EffectiveLevelsEmptyBodyIsLevelOne) {
    receive("08 01 10 07 1A 02 12 00");
    EXPECT_EQ(app::takeCalls(), Calls{"levels(7,1,1)"});
    EXPECT_EQ(client().mUsedIds, Ids{9});
}

TEST_F(DispatchTest, BodyOfAnotherEventIsDropped) {
    for (const char* hex : {
             "",                                     // nothing
             "1A 00",                                // no member
             "1A 06 12 04 08 05 10 02",              // status event, levels
             "10 07 1A 06 12 04 08 05 10 02",        // the same with an id
             "08 01 10 07",                          // levels event, no body
             "08 01 10 07 1A 00",                    // levels event, no member
             "08 01 10 07 1A 04 0A 02 08 06",        // levels event, status
             "08 01 10 07 1A 02 3A 00",              // levels event, automatic filter
             "08 07 1A 04 0A 02 08 06",              // unknown event
             "08 07 10 07 1A 06 12 04 08 05 10 02",  // unknown event
             "08 FF FF FF FF FF FF FF FF FF 01 1A 04 0A 02 08 07",  // event -1
         }) {
        receive(hex);
        EXPECT_EQ(app::takeCalls(), Calls{}) << hex;
        EXPECT_TRUE(client().mServiceUp) << hex;
        expectBothAwaited();
    }
}

// A message that ends early is dispatched as far as it was read.
TEST_F(DispatchTest, StatusCutAtEveryByte) {
    const std::vector<uint8_t> whole = fromHex("10 05 1A 04 0A 02 08 06");
    const Calls nothing;
    const Calls unread = {"legacy(-1)", "v2(-1)"};  // the body was begun, its status not read
    const std::vector<Calls> expected = {nothing, nothing, nothing,
                                         nothing, nothing, unread,
                                         unread,  unread,  {"legacy(5)", "v2(-7)"}};
    for (size_t length = 0; length <= whole.size(); ++length) {
        client().mServiceUp = false;
        sdk().listener(SdkClientBase::SDK_BLOB_RECEIVED,
                       {whole.begin(), whole.begin() + static_cast<long>(length)});
        EXPECT_EQ(app::takeCalls(), expected[length]) << length;
        EXPECT_EQ(client().mServiceUp, length == whole.size()) << length;
    }
}

TEST_F(DispatchTest, EffectiveLevelsCutAtEveryByte) {
    const std::vector<uint8_t> whole = fromHex(service::effectiveLevels("07"));
    // By length: up to the levels' member there is nothing to dispatch; then the levels read so
    // far.
    const std::vector<const char*> expected = {
        nullptr,         nullptr,         nullptr,         nullptr,         nullptr,
        nullptr,         nullptr,         "levels(7,1,1)", "levels(7,1,1)", "levels(7,1,1)",
        "levels(7,6,1)", "levels(7,6,1)", "levels(7,6,3)"};
    for (size_t length = 0; length <= whole.size(); ++length) {
        client().mUsedIds = {7, 9};
        client().mLatencyCbs[7] = app::onLevels;
        sdk().listener(SdkClientBase::SDK_BLOB_RECEIVED,
                       {whole.begin(), whole.begin() + static_cast<long>(length)});
        if (expected[length] == nullptr) {
            EXPECT_EQ(app::takeCalls(), Calls{}) << length;
            expectBothAwaited();
        } else {
            EXPECT_EQ(app::takeCalls(), Calls{expected[length]}) << length;
            EXPECT_EQ(client().mUsedIds, Ids{9}) << length;
        }
    }
}

TEST_F(DispatchTest, UnreadableBytesAreDropped) {
    for (const char* hex : {"FF", "FF FF FF FF FF FF FF FF FF FF FF", "00", "0C",
                            "1A FF FF FF FF 0F", "08", "0A FF"}) {
        receive(hex);
        EXPECT_EQ(app::takeCalls(), Calls{}) << hex;
    }
    EXPECT_TRUE(client().mServiceUp);
    expectBothAwaited();
}

// Any bytes at all: nothing is called that is not awaited, and the client goes on.
TEST_F(DispatchTest, RandomBytes) {
    std::mt19937 random(20240611);
    const std::vector<uint8_t> levels = fromHex(service::effectiveLevels("07"));
    for (int round = 0; round < 20000; ++round) {
        std::vector<uint8_t> bytes(random() % 40);
        for (uint8_t& byte : bytes) byte = static_cast<uint8_t>(random());
        if (round % 2 == 0) {
            bytes = levels;
            bytes[random() % bytes.size()] = static_cast<uint8_t>(random());
        }
        sdk().listener(SdkClientBase::SDK_BLOB_RECEIVED, bytes);
        ASSERT_EQ(client().mUsedIds.size(), client().mLatencyCbs.size());
        ASSERT_LE(client().mUsedIds.size(), 2U);
    }
    app::takeCalls();
    receive(service::statusInd("06"));
    EXPECT_EQ(app::takeCalls(), (Calls{"legacy(5)", "v2(-7)"}));
}

}  // namespace
