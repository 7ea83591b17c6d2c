// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <functional>

#include "tests/soak/Growth.h"

namespace {

using Rests = std::vector<Member::Rest>;
using Growth = std::vector<std::string>;

constexpr int64_t kKib = 1024;

// Of a process that holds the same each time.
Rests rests(size_t count) {
    Member::Rest rest{};
    rest.figures.memory = 1000 * kKib;
    rest.figures.descriptors = 11;
    rest.figures.threads = 4;
    rest.blocks = 100;
    rest.bytes = 30 * kKib;
    return Rests(count, rest);
}

// Of one that holds more, or less, in the given ones.
Rests rests(size_t count, size_t begin, size_t end,
            const std::function<void(Member::Rest&)>& change) {
    Rests all = rests(count);
    for (size_t i = begin; i < end; ++i) change(all[i]);
    return all;
}

// What a session held at rest, in blocks, while a soak of an hour found nothing.
constexpr int64_t kSession[] = {
    155, 156, 151, 151, 156, 151, 153, 151, 151, 155, 163, 163, 165, 151, 151, 163, 153, 153,
    157, 155, 155, 161, 155, 160, 157, 163, 163, 170, 151, 151, 155, 153, 153, 157, 151, 151,
    151, 151, 151, 153, 157, 157, 157, 155, 155, 155, 157, 157, 153, 159, 159, 153, 155, 155,
    159, 151, 151, 153, 155, 155, 155, 152, 166, 153, 159, 159, 161, 153, 153, 155, 157, 158,
    159, 153, 153, 155, 166, 161, 165, 153, 153, 155, 153, 153, 155, 161, 161, 165, 151, 151,
    153, 151, 151, 157, 151, 151, 155, 153, 153, 157, 153, 153, 157, 151, 151, 155, 160, 155,
    159, 153, 153, 155, 155, 155, 159, 158, 153, 160, 153, 153, 158, 153, 153, 159, 151};
constexpr size_t kTimes = sizeof kSession / sizeof *kSession;

// The same with a leak of one block every so many rests.
Growth ofSession(size_t begin, size_t count, size_t leakingEach) {
    Rests all = rests(count);
    for (size_t i = 0; i < count; ++i) {
        all[i].blocks = kSession[begin + i] + static_cast<int64_t>(i / leakingEach);
    }
    return growthOf(all);
}

TEST(GrowthTest, OneRestShowsNone) {
    EXPECT_EQ(growthOf({}), Growth{});
    EXPECT_EQ(growthOf(rests(1)), Growth{});
    EXPECT_EQ(growthOf(rests(100)), Growth{});
}

TEST(GrowthTest, LastRestHoldsMoreThanTheFirst) {
    const auto atMost = [](Member::Rest& rest) {
        rest.figures.memory += 2048 * kKib;
        rest.blocks += 64;
        rest.bytes += 64 * kKib;
    };
    const auto more = [&](Member::Rest& rest) {
        atMost(rest);
        ++rest.figures.memory;
        ++rest.blocks;
        ++rest.bytes;
        ++rest.figures.descriptors;
    };
    EXPECT_EQ(growthOf(rests(2, 1, 2, atMost)), Growth{});
    const Growth expected{
        "bytes of memory from 1024000 to 3121153 since the first time at rest",
        "blocks of heap from 100 to 165 since the first time at rest",
        "bytes of heap from 30720 to 96257 since the first time at rest",
        "descriptors from 11 to 12 since the first time at rest",
    };
    EXPECT_EQ(growthOf(rests(2, 1, 2, more)), expected);
    EXPECT_EQ(growthOf(rests(7, 6, 7, more)), expected);
    // It is the last that counts.
    EXPECT_EQ(growthOf(rests(7, 1, 6, more)), Growth{});
}

TEST(GrowthTest, ThreadsMayComeAndKeepSome) {
    EXPECT_EQ(growthOf(rests(2, 1, 2,
                             [](Member::Rest& rest) {
                                 rest.figures.threads += 15;
                                 rest.figures.memory += (2048 + 15 * 512) * kKib;
                                 rest.blocks += 64 + 15 * 8;
                                 rest.bytes += (64 + 15 * 8) * kKib;
                             })),
              Growth{});
    EXPECT_EQ(growthOf(rests(2, 1, 2, [](Member::Rest& rest) { rest.figures.threads += 16; })),
              Growth{"threads from 4 to 20 since the first time at rest"});
}

// The second quarter is 2 and 3, the last 6 and 7.
TEST(GrowthTest, LastQuarterHoldsMoreThanTheSecond) {
    const auto atMost = [](Member::Rest& rest) {
        rest.figures.memory += 512 * kKib;
        rest.blocks += 6 + 16;
        rest.bytes += (8 + 16) * kKib;
    };
    const auto more = [&](Member::Rest& rest) {
        atMost(rest);
        ++rest.figures.memory;
        ++rest.blocks;
        ++rest.bytes;
    };
    EXPECT_EQ(growthOf(rests(8, 6, 8, atMost)), Growth{});
    EXPECT_EQ(growthOf(rests(8, 6, 8, more)),
              (Growth{"bytes of memory from 1024000 to 1548289 from the second quarter to the last",
                      "blocks of heap from 100 to 123 from the second quarter to the last",
                      "bytes of heap from 30720 to 55297 from the second quarter to the last"}));
    // The least of each.
    EXPECT_EQ(growthOf(rests(8, 7, 8, more)), Growth{});
    EXPECT_EQ(growthOf(rests(8, 3, 8, more)).size(), 3U);
    EXPECT_EQ(growthOf(rests(8, 2, 8, more)), Growth{});
    EXPECT_EQ(growthOf(rests(8, 6, 8, [](Member::Rest& rest) { rest.figures.threads += 2; })),
              Growth{"threads from 4 to 6 from the second quarter to the last"});
}

TEST(GrowthTest, MoreRestsAllowLess) {
    const auto more = [](Member::Rest& rest) { rest.blocks += 6 + 32 / 16; };
    EXPECT_EQ(growthOf(rests(64, 48, 64, more)), Growth{});
    EXPECT_EQ(growthOf(rests(68, 51, 68, more)),
              Growth{"blocks of heap from 100 to 108 from the second quarter to the last"});
}

TEST(GrowthTest, WhatVariesIsNoGrowth) {
    for (size_t count = 1; count <= kTimes; ++count) {
        for (size_t begin = 0; begin + count <= kTimes; ++begin) {
            EXPECT_EQ(ofSession(begin, count, kTimes), Growth{}) << count << " from " << begin;
        }
    }
}

// Without it both quarters have 151 at the least: of the leak, the second has 6 by then, the
// last 18.
TEST(GrowthTest, SlowLeakShowsInWhatVaries) {
    EXPECT_EQ(ofSession(0, kTimes, 5),
              Growth{"blocks of heap from 157 to 169 from the second quarter to the last"});
    EXPECT_EQ(ofSession(0, 55, 1).size(), 1U);
}

}  // namespace
