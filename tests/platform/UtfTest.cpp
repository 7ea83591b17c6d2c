// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "platform/linux/src/Utf.h"
#include "tests/support/Hex.h"

namespace {

// Converts UTF-8 bytes; "malformed" where they are not UTF-8.
std::string toUtf16(const std::vector<uint8_t>& utf8) {
    // A buffer of just that size, so that a read behind its end does not go unnoticed.
    const std::vector<char> text(utf8.begin(), utf8.end());
    const int64_t units = utf16Length(text.data(), text.size());
    if (units < 0) return "malformed";
    std::vector<uint8_t> out(static_cast<size_t>(units) * 2);
    utf8ToUtf16(text.data(), text.size(), out.data());
    return toHex(out);
}

std::string toUtf8(const std::vector<uint8_t>& utf16) {
    const int64_t size = utf8Length(utf16.data(), utf16.size() / 2);
    if (size < 0) return "malformed";
    std::vector<char> out(static_cast<size_t>(size));
    utf16ToUtf8(utf16.data(), utf16.size() / 2, out.data());
    return toHex(out);
}

struct Text {
    const char* utf8;
    const char* utf16;
};

class WellFormed : public testing::TestWithParam<Text> {};

TEST_P(WellFormed, ConvertsBothWays) {
    EXPECT_EQ(GetParam().utf16, toUtf16(fromHex(GetParam().utf8)));
    EXPECT_EQ(GetParam().utf8, toUtf8(fromHex(GetParam().utf16)));
}

INSTANTIATE_TEST_SUITE_P(
    Utf, WellFormed,
    testing::Values(Text{"", ""}, Text{"00", "00 00"}, Text{"41", "41 00"}, Text{"7F", "7F 00"},
                    Text{"C2 80", "80 00"}, Text{"C3 A4", "E4 00"}, Text{"DF BF", "FF 07"},
                    Text{"E0 A0 80", "00 08"}, Text{"E2 82 AC", "AC 20"},
                    Text{"ED 9F BF", "FF D7"},                // the last before the surrogates
                    Text{"EE 80 80", "00 E0"},                // the first after them
                    Text{"EF BF BF", "FF FF"},                // the last of one unit
                    Text{"F0 90 80 80", "00 D8 00 DC"},       // the first of two
                    Text{"F0 9F 98 80", "3D D8 00 DE"},       // U+1F600
                    Text{"F4 8F BF BF", "FF DB FF DF"},       // the last there is
                    Text{"61 C3 A4 E2 82 AC F0 9F 98 80 7A",  // all sizes in a row
                         "61 00 E4 00 AC 20 3D D8 00 DE 7A 00"}));

class MalformedUtf8 : public testing::TestWithParam<const char*> {};

TEST_P(MalformedUtf8, IsRefused) {
    EXPECT_EQ("malformed", toUtf16(fromHex(GetParam())));
}

INSTANTIATE_TEST_SUITE_P(Utf, MalformedUtf8,
                         testing::Values("80", "BF", "FF", "FE", "F8 88 80 80 80",
                                         "C3",           // ends too early
                                         "E2 82",        //
                                         "F0 9F 98",     //
                                         "C3 41",        // another one begins too early
                                         "E2 82 41",     //
                                         "F0 9F 98 41",  //
                                         "C0 80",        // longer than needed
                                         "C1 BF",        //
                                         "E0 9F BF",     //
                                         "F0 8F BF BF",  //
                                         "ED A0 80",     // surrogates
                                         "ED BF BF",     //
                                         "F4 90 80 80",  // behind the last there is
                                         "F7 BF BF BF", "41 80", "C3 A4 A4"));

class MalformedUtf16 : public testing::TestWithParam<const char*> {};

TEST_P(MalformedUtf16, IsRefused) {
    EXPECT_EQ("malformed", toUtf8(fromHex(GetParam())));
}

INSTANTIATE_TEST_SUITE_P(Utf, MalformedUtf16,
                         testing::Values("00 D8",                    // high, and nothing
                                         "FF DB",                    //
                                         "00 DC",                    // low without high
                                         "FF DF",                    //
                                         "00 D8 41 00",              // high, and no low
                                         "00 D8 00 D8 00 DC",        //
                                         "00 D8 00 E0",              //
                                         "41 00 3D D8 00 DE 00 DE")  // one low too many
);

bool same(const char* utf16, const char* utf8) {
    const std::vector<uint8_t> units = fromHex(utf16);
    const std::vector<uint8_t> bytes = fromHex(utf8);
    const std::vector<char> text(bytes.begin(), bytes.end());
    return isSameText(units.data(), units.size() / 2, text.data(), text.size());
}

TEST(Utf, SameTextDiffersFromAnother) {
    EXPECT_TRUE(same("", ""));
    EXPECT_TRUE(same("61 00 3D D8 00 DE", "61 F0 9F 98 80"));
    EXPECT_FALSE(same("61 00", ""));
    EXPECT_FALSE(same("", "61"));
    EXPECT_FALSE(same("61 00 62 00", "61"));
    EXPECT_FALSE(same("61 00", "61 62"));
    EXPECT_FALSE(same("61 00", "41"));
    EXPECT_FALSE(same("61 01", "61"));
    // Malformed in the same way is not the same.
    EXPECT_FALSE(same("00 D8", "ED A0 80"));
    EXPECT_FALSE(same("00 D8", "FF"));
}

TEST(Utf, EveryCodePointSurvivesTheWayThereAndBack) {
    for (uint32_t point = 0; point <= 0x10FFFF; ++point) {
        std::vector<uint8_t> utf16;
        if (point >= 0xD800 && point <= 0xDFFF) continue;
        if (point < 0x10000) {
            utf16 = {static_cast<uint8_t>(point), static_cast<uint8_t>(point >> 8U)};
        } else {
            const uint32_t high = 0xD800 + ((point - 0x10000) >> 10U);
            const uint32_t low = 0xDC00 + ((point - 0x10000) & 0x3FFU);
            utf16 = {static_cast<uint8_t>(high), static_cast<uint8_t>(high >> 8U),
                     static_cast<uint8_t>(low), static_cast<uint8_t>(low >> 8U)};
        }
        const int64_t size = utf8Length(utf16.data(), utf16.size() / 2);
        ASSERT_EQ(point < 0x80 ? 1 : point < 0x800 ? 2 : point < 0x10000 ? 3 : 4, size) << point;
        std::vector<char> utf8(static_cast<size_t>(size));
        utf16ToUtf8(utf16.data(), utf16.size() / 2, utf8.data());
        ASSERT_EQ(static_cast<int64_t>(utf16.size() / 2), utf16Length(utf8.data(), utf8.size()));
        std::vector<uint8_t> back(utf16.size());
        utf8ToUtf16(utf8.data(), utf8.size(), back.data());
        ASSERT_EQ(utf16, back) << point;
    }
}

TEST(Utf, WhateverIsAcceptedConvertsBackToItself) {
    std::mt19937 random(1);
    // Few different bytes, so that well-formed sequences are not rare.
    const std::vector<uint8_t> choice = fromHex("41 7F 80 BF 9F A0 90 8F C2 DF E0 E2 ED F0 F4");
    int accepted = 0;
    for (int i = 0; i < 200000; ++i) {
        std::vector<uint8_t> bytes(random() % 6);
        for (uint8_t& byte : bytes) byte = choice[random() % choice.size()];
        const std::string utf16 = toUtf16(bytes);
        if (utf16 != "malformed") {
            ++accepted;
            ASSERT_EQ(toHex(bytes), toUtf8(fromHex(utf16)));
        }
    }
    EXPECT_GT(accepted, 1000);
}

}  // namespace
