// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <cstdlib>
#include <set>

#include "tests/api/ClientFixture.h"
#include "tests/api/ScriptedRand.h"

namespace {

using Ids = std::vector<unsigned int>;

TEST(Ids, SkipsZeroPendingAndFilterIds) {
    Sdf client;
    client.mUsedIds = {4, 6};
    client.mFilterIds = {5, 8};
    scriptRand({0, 4, 5, 6, 8, 0, 7, 9});
    EXPECT_EQ(client.getNextUniqueId(), 7U);
    EXPECT_EQ(client.mUsedIds, (Ids{4, 6, 7}));
    EXPECT_EQ(client.mFilterIds, (Ids{5, 8}));
    EXPECT_EQ(scriptedRandLeft(), 1U);
}

TEST(Ids, FirstDrawThatIsFreeIsTaken) {
    Sdf client;
    scriptRand({RAND_MAX, 1});
    EXPECT_EQ(client.getNextUniqueId(), static_cast<unsigned int>(RAND_MAX));
    EXPECT_EQ(client.getNextUniqueId(), 1U);
    EXPECT_EQ(client.mUsedIds, (Ids{RAND_MAX, 1}));
}

// Draws from so few numbers that most are taken; what is never given out twice must not come back
// until it is released.
TEST(Ids, NeverGivesOutWhatIsTaken) {
    Sdf client;
    client.mFilterIds = {1, 2, 3};
    std::vector<int> draws;
    for (int round = 0; round < 4; ++round) {
        for (int value = 0; value < 50; ++value) draws.push_back(value);
    }
    scriptRand(draws);
    std::set<unsigned int> given;
    for (int i = 0; i < 46; ++i) {
        const unsigned int id = client.getNextUniqueId();
        EXPECT_TRUE(id >= 4 && id < 50) << id;
        EXPECT_TRUE(given.insert(id).second) << id;
    }
    client.forgetRequest(&Sdf::mLatencyCbs, 17);
    EXPECT_EQ(client.getNextUniqueId(), 17U);
}

void exitWithFirstIds() {
    Sdf client;
    const Ids expected = {1804289383, 846930886, 1681692777, 1714636915, 1957747793};
    for (const unsigned int id : expected) {
        if (client.getNextUniqueId() != id) exit(1);
    }
    exit(client.mUsedIds == expected ? 0 : 2);
}

// The C library's sequence from its default seed: the same in every process.
TEST(Ids, OfAFreshProcess) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");  // a process of its own, not a fork of this one
    EXPECT_EXIT(exitWithFirstIds(), ::testing::ExitedWithCode(0), "");
}

}  // namespace
