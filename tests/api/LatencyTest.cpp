// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include "tests/api/ClientFixture.h"
#include "tests/api/ScriptedRand.h"

namespace {

using Ids = std::vector<unsigned int>;
using Texts = std::vector<std::string>;

class LatencyTest : public ClientTest {
  protected:
    static long long set(int slot, int first, int second, bool flag = false,
                         SdfEffectiveLevelsCb cb = app::onLevels) {
        return sdfSetLatencyLvl(static_cast<SdfSlotID>(slot), static_cast<SdfLatencyLvl>(first),
                                static_cast<SdfLatencyLvl>(second), flag, cb);
    }

    static void expectNothingRecorded() {
        EXPECT_TRUE(client().mUsedIds.empty());
        EXPECT_TRUE(client().mLatencyCbs.empty());
        EXPECT_EQ(sdk().transport->takeText(), Texts{});
        EXPECT_EQ(scriptedRandLeft(), 1U);  // no id was drawn
    }
};

TEST_F(LatencyTest, WithoutAClientOrATransport) {
    EXPECT_EQ(set(0, 1, 1), -5);
    EXPECT_EQ(set(2, 0, 7, false, nullptr), -5);
    sdk().transport = nullptr;
    ASSERT_EQ(createSdfClient(app::onV2), 0);
    EXPECT_EQ(set(0, 1, 1), -5);
    EXPECT_EQ(set(2, 0, 7, false, nullptr), -5);
}

TEST_F(LatencyTest, InvalidArguments) {
    startUp();
    for (const bool up : {true, false}) {
        client().mServiceUp = up;  // the arguments are looked at first
        scriptRand({7});
        EXPECT_EQ(set(0, 1, 1, false, nullptr), -2);
        for (const int slot : {-2, 2, 3, INT32_MIN, INT32_MAX}) EXPECT_EQ(set(slot, 1, 1), -2);
        for (const int level : {0, 7, -1, INT32_MIN, INT32_MAX}) {
            EXPECT_EQ(set(0, level, 1), -2);
            EXPECT_EQ(set(0, 1, level), -2);
        }
        expectNothingRecorded();
    }
}

TEST_F(LatencyTest, ServiceDown) {
    startUp();
    client().mServiceUp = false;
    scriptRand({7});
    EXPECT_EQ(set(-1, 1, 6), -8);
    EXPECT_EQ(set(0, 6, 1, true), -8);
    expectNothingRecorded();
}

TEST_F(LatencyTest, Bytes) {
    const struct {
        int id;
        int slot;
        int first;
        int second;
        bool flag;
        const char* event;
    } rows[] = {
        // Slot "unspecified" and level 1 are zeros on the wire and are left out.
        {0x6B8B4567, -1, 1, 6, true, "5: 08 01 10 E7 8A AD DC 06 1A 06 1A 04 18 05 20 01"},
        {1, 0, 6, 1, false, "5: 08 01 10 01 1A 06 1A 04 08 01 10 05"},
        {300, 1, 2, 3, true, "5: 08 01 10 AC 02 1A 0A 1A 08 08 02 10 01 18 02 20 01"},
        {127, -1, 1, 1, false, "5: 08 01 10 7F 1A 02 1A 00"},
        {INT32_MAX, 1, 4, 5, false, "5: 08 01 10 FF FF FF FF 07 1A 08 1A 06 08 02 10 03 18 04"},
    };
    startUp();
    for (const auto& row : rows) {
        scriptRand({row.id});
        EXPECT_EQ(set(row.slot, row.first, row.second, row.flag), row.id);
        EXPECT_EQ(sdk().transport->takeText(), Texts{row.event});
    }
}

// As bindings from other languages may call it.
TEST_F(LatencyTest, FlagIsTheLowBitOfWhateverIsPassedForTheBool) {
    using WithNumber =
        long long (*)(SdfSlotID, SdfLatencyLvl, SdfLatencyLvl, unsigned, SdfEffectiveLevelsCb);
    const auto set = reinterpret_cast<WithNumber>(reinterpret_cast<void (*)()>(sdfSetLatencyLvl));
    startUp();
    for (const unsigned flag : {0U, 1U, 2U, 3U, 254U, 255U}) {
        scriptRand({1});
        EXPECT_EQ(set(SDF_SLOT_ID_FIRST, SDF_LATENCY_LVL_1, SDF_LATENCY_LVL_2, flag, app::onLevels),
                  1);
        EXPECT_EQ(sdk().transport->takeText(),
                  Texts{flag % 2 == 0 ? "5: 08 01 10 01 1A 06 1A 04 08 01 18 01"
                                      : "5: 08 01 10 01 1A 08 1A 06 08 01 18 01 20 01"})
            << flag;
        client().mUsedIds.clear();
    }
}

TEST_F(LatencyTest, EachRequestHasItsOwnIdAndCallback) {
    startUp();
    scriptRand({5, 5, 3});
    EXPECT_EQ(set(0, 1, 1), 5);
    EXPECT_EQ(set(0, 1, 1, false, app::onOtherLevels), 3);
    EXPECT_EQ(client().mUsedIds, (Ids{5, 3}));
    EXPECT_EQ(client().mLatencyCbs.at(5), app::onLevels);
    EXPECT_EQ(client().mLatencyCbs.at(3), app::onOtherLevels);
    EXPECT_EQ(client().mLatencyCbs.size(), 2U);
}

TEST_F(LatencyTest, AnEarlierEntryUnderTheIdStays) {
    startUp();
    client().mLatencyCbs[5] = app::onOtherLevels;
    scriptRand({5});
    EXPECT_EQ(set(0, 1, 1), 5);
    EXPECT_EQ(client().mLatencyCbs.at(5), app::onOtherLevels);
}

TEST_F(LatencyTest, CallbackComesWithTheId) {
    startUp();
    scriptRand({300});
    ASSERT_EQ(set(0, 1, 1), 300);
    receive(service::effectiveLevels("AC 02"));
    EXPECT_EQ(app::takeCalls(), Calls{"levels(300,6,3)"});
}

}  // namespace
