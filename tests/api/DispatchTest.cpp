// SPDX-License-Identifier: Apache-2.0
// Dispatch of states and levels, and what all messages have in common; of what the service says of
// filters and queues see FilterDispatchTest.cpp.
#include <google/protobuf/stubs/logging.h>
#include <gtest/gtest.h>

#include <iterator>
#include <random>

#include "tests/api/ClientFixture.h"
#include "tests/api/Requests.h"
#include "tests/support/Hex.h"

namespace {

using service::effectiveLevels;
using service::field;
using service::message;

class DispatchTest : public ClientTest {
  protected:
    void SetUp() override { startOver(); }

    // Everything is registered; requests 7 (levels) and 8 (a filter) wait; filter 300 is confirmed.
    static void startOver() {
        destroySdfClient();
        startUpWithAll();
    }
};

TEST_F(DispatchTest, StatusReachesBothCallbacks) {
    const std::string unknown = "log 6: Unknown Status!";
    const struct {
        const char* wire;
        Texts effect;
    } rows[] = {
        {"00", {"legacy(-1)", "v2(-1)", "changed serviceUp"}},
        {"01", {"legacy(0)", "v2(0)", "changed serviceUp"}},
        {"02", {"legacy(1)", "v2(-2)", "changed serviceUp"}},
        {"03", {"legacy(2)", "v2(-3)", "changed serviceUp"}},
        {"04", {"legacy(3)", "v2(-4)", "changed serviceUp"}},
        {"05", {"legacy(4)", "v2(-5)", "changed serviceUp"}},
        {"06", {"legacy(5)", "v2(-7)"}},
        {"07", {"legacy(6)", "v2(-8)", "changed serviceUp"}},
        {"08", {"legacy(7)", unknown, "v2(-1)", "changed serviceUp"}},
        {"0A", {unknown, "legacy(-1)", "v2(-1)", "changed serviceUp"}},
    };
    for (const auto& row : rows) {
        client().mServiceUp = true;
        EXPECT_EQ(effectOf(service::statusInd(row.wire)), row.effect);
        EXPECT_EQ(setLatency() == SDF_V2_SERVICE_DOWN, std::string(row.wire) != "06");
    }
}

TEST_F(DispatchTest, ServiceUpIsNotedBeforeTheCallbacks) {
    client().mServiceUp = false;
    app::inside("legacy", [] { EXPECT_TRUE(client().mServiceUp); });
    EXPECT_EQ(effectOf(service::statusInd("06")),
              (Texts{"legacy(5)", "v2(-7)", "changed serviceUp"}));
}

TEST_F(DispatchTest, StatusOfTheTransport) {
    const struct {
        int status;
        Calls calls;
        bool up;
    } rows[] = {
        {SdkClientBase::SDK_SEND_FAILED, {"legacy(2)", "v2(-3)"}, false},
        {SdkClientBase::SDK_SERVICE_DOWN, {"legacy(6)", "v2(-8)"}, false},
        {SdkClientBase::SDK_SERVICE_UP, {}, true},
        {-1, {}, true},
        {4, {}, true},
        {INT32_MAX, {}, true},
    };
    for (const bool callbacks : {true, false}) {
        for (const auto& row : rows) {
            client().mServiceUp = true;
            report(static_cast<SdkClientBase::SdkStatus>(row.status), service::statusInd("07"));
            EXPECT_EQ(app::takeCalls(), callbacks ? row.calls : Calls{}) << row.status;
            EXPECT_EQ(client().mServiceUp, row.up) << row.status;
        }
        client().mLegacyStatusCb = nullptr;
        client().mStatusCbV2 = nullptr;
    }
    client().mServiceUp = false;
    EXPECT_EQ(effectOf(service::statusInd("06")), Texts{"changed serviceUp"});
}

// ---- EFFECTIVE_LEVELS_CB

TEST_F(DispatchTest, EffectiveLevels) {
    const std::string changed = "changed usedIds latencyCbs";
    const struct {
        std::string hex;
        Texts effect;
    } rows[] = {
        {effectiveLevels("07"), {"levels(7,6,3)", changed}},
        {effectiveLevels("87 80 80 80 10"), {"levels(7,6,3)", changed}},  // 2^32 + 7
        {effectiveLevels("FF FF FF FF FF FF FF FF FF 01"), {"levels(4294967295,6,3)", changed}},
        {"08 01 10 07 1A 06 12 04 08 06 10 7F", {"levels(7,1,1)", changed}},  // no such levels
        {"08 01 10 07 1A 02 12 00", {"levels(7,1,1)", changed}},              // an empty body
        {effectiveLevels("09"), {}},                                          // nobody waits
        {"08 01 1A 06 12 04 08 05 10 02", {}},                                // id 0
        {effectiveLevels("06"), {}},  // no callback: the id stays reserved
    };
    for (const auto& row : rows) {
        client().mUsedIds = {6, 7, 8, 7, UINT32_MAX};
        client().mLatencyCbs = {{5, nullptr}, {7, app::onLevels}, {UINT32_MAX, app::onLevels}};
        EXPECT_EQ(effectOf(row.hex), row.effect) << row.hex;
        if (row.effect.empty()) continue;
        const bool is7 = row.effect[0][7] == '7';
        EXPECT_EQ(client().mUsedIds, is7 ? (Ids{6, 8, 7, UINT32_MAX}) : (Ids{6, 7, 8, 7}));
        EXPECT_EQ(client().mLatencyCbs.count(is7 ? 7 : UINT32_MAX), 0U);
        EXPECT_EQ(effectOf(row.hex), Texts{}) << "a second answer to " << row.hex;
    }
}

TEST_F(DispatchTest, EffectiveLevelsAreStillAwaitedDuringTheCallback) {
    app::inside("levels", [] {
        EXPECT_EQ(client().mUsedIds, (Ids{7, 8}));
        EXPECT_EQ(client().mLatencyCbs.count(7), 1U);
    });
    receive(effectiveLevels("07"));
    EXPECT_EQ(app::takeCalls(), Calls{"levels(7,6,3)"});
}

// ---- All messages

// One of each, which all have somebody waiting, for the events 0 to 6.
const std::string kBodies[] = {
    "08 06",
    "08 05 10 02",
    "08 01 " + field("12", "08 AC 02 10 03 1A 02 68 69") + " " + field("12", "08 08 10 01"),
    field("0A", "08 08 10 01 1A 02 68 69"),
    field("12", "08 AC 02 10 01 1A 02 68 69 20 05 28 02 30 E8 07 38 02") + " " +
        field("12", "08 09"),
    field("12", "08 05 10 80 80 80 80 10 18 07") + " " + field("12", "08 06"),
    // From 1.2.3.4 to 5.6.7.8.
    "08 AC 02 " + field("12", "0A 07 31 2E 32 2E 33 2E 34 12 07 35 2E 36 2E 37 2E 38 60 21") +
        " 18 01",
};

TEST_F(DispatchTest, EveryEventWithEveryBody) {
    // The last three are 255, 2^31 and -1.
    for (const char* event : {"00", "01", "02", "03", "04", "05", "06", "07", "08", "7F", "FF 01",
                              "80 80 80 80 08", "FF FF FF FF FF FF FF FF FF 01"}) {
        const std::string head = std::string("10 07 08 ") + event;
        for (int body = 0; body < 7; ++body) {
            SCOPED_TRACE(head + ", body " + std::to_string(body));
            startOver();
            const Texts effect = effectOf(head + message(0, body, kBodies[body]).substr(5));
            EXPECT_EQ(effect.empty(), "0" + std::to_string(body) != event);
        }
        startOver();
        EXPECT_EQ(effectOf(head), Texts{});
        EXPECT_EQ(effectOf(head + " 1A 00"), Texts{});
    }
    EXPECT_EQ(effectOf(""), Texts{});
    EXPECT_EQ(effectOf("1A 00"), Texts{});
}

// A message that ends early is dispatched as far as it was read: a body or an entry is there as
// soon as its tag is, a number when its last byte is.
TEST_F(DispatchTest, CutAtEveryByte) {
    const struct {
        std::string whole;
        std::map<size_t, Texts> effects;  // by the length from which on it does that
    } rows[] = {
        {"08 01 10 07 1A 06 12 04 08 05 10 02",
         {{0, {}},
          {7, {"levels(7,1,1)", "changed usedIds latencyCbs"}},
          {10, {"levels(7,6,1)", "changed usedIds latencyCbs"}},
          {12, {"levels(7,6,3)", "changed usedIds latencyCbs"}}}},
        {"08 02 1A 0C 1A 0A 12 02 08 05 12 04 08 06 10 03",
         {{0, {}},
          {7, {"filterStatus(0,0)"}},
          {10, {"filterStatus(5,0)"}},
          {11, {"filterStatus(5,0)", "filterStatus(0,0)"}},
          {14, {"filterStatus(5,0)", "filterStatus(6,0)"}},
          {16, {"filterStatus(5,0)", "filterStatus(6,3)"}}}},
        {"08 03 1A 08 22 06 0A 04 08 08 10 04",
         {{0, {}},
          {10, {"added(8,0)", "changed usedIds filterIds filterCbs"}},
          {12, {"added(8,4)", "changed usedIds filterCbs"}}}},
    };
    for (const auto& row : rows) {
        std::vector<uint8_t> bytes = fromHex(row.whole);
        for (;; bytes.pop_back()) {
            startOver();
            client().mServiceUp = false;
            const auto expected = std::prev(row.effects.upper_bound(bytes.size()));
            EXPECT_EQ(effectOf(bytes), expected->second) << toHex(bytes);
            if (bytes.empty()) break;
        }
    }
}

TEST_F(DispatchTest, UnreadableBytesAreDropped) {
    for (const char* hex : {"FF", "FF FF FF FF FF FF FF FF FF FF FF", "00", "0C",
                            "1A FF FF FF FF 0F", "08", "0A FF"}) {
        EXPECT_EQ(effectOf(hex), Texts{}) << hex;
    }
}

// Text that is not UTF-8 ends the reading: what stands behind it is not read.
TEST_F(DispatchTest, TextThatIsNotUtf8) {
    const google::protobuf::LogSilencer silencer;
    EXPECT_EQ(
        effectOf(message(2, field("12", "08 05 10 01 1A 01 FF") + " " + field("12", "08 06"))),
        Texts{"filterStatus(5,1)"});
    EXPECT_EQ(effectOf(message(3, field("0A", "08 08 1A 01 FF 10 04"))),
              (Texts{"added(8,0)", "changed usedIds filterIds filterCbs"}));
}

// Sound messages with bytes changed, and any bytes at all: the client goes on.
TEST_F(DispatchTest, RandomBytes) {
    const google::protobuf::LogSilencer silencer;
    std::mt19937 random(20240611);
    for (int round = 0; round < 5000; ++round) {
        const int event = round % 8;
        std::vector<uint8_t> bytes(random() % 40);
        if (event < 7) bytes = fromHex("10 07 " + message(event, kBodies[event]));
        for (uint8_t& byte : bytes) {
            if (event == 7 || random() % 8 == 0) byte = static_cast<uint8_t>(random());
        }
        sdk().listener(SdkClientBase::SDK_BLOB_RECEIVED, bytes);
    }
    client().mServiceUp = false;
    app::takeCalls();
    EXPECT_EQ(effectOf(service::statusInd("06")),
              (Texts{"legacy(5)", "v2(-7)", "changed serviceUp"}));
}

}  // namespace
