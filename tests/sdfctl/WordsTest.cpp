// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>
#include <lum_sdf_sdk.h>

#include <cstring>

#include "tools/sdfctl/Record.h"
#include "tools/sdfctl/Words.h"

namespace {

int64_t numberIn(const std::string& text, int64_t lowest, int64_t highest) {
    int64_t number = -99;
    const bool read = readNumber(text, lowest, highest, number);
    EXPECT_EQ(read, number != -99) << text;
    return number;
}

TEST(WordsTest, NumbersWithinTheirBounds) {
    EXPECT_EQ(numberIn("0", 0, 5), 0);
    EXPECT_EQ(numberIn("5", 0, 5), 5);
    EXPECT_EQ(numberIn("-3", -3, 5), -3);
    EXPECT_EQ(numberIn("0x1F", 0, 255), 31);
    EXPECT_EQ(numberIn("010", 0, 255), 10);
    EXPECT_EQ(numberIn("9223372036854775807", 0, INT64_MAX), INT64_MAX);
    EXPECT_EQ(numberIn("6", 0, 5), -99);
    EXPECT_EQ(numberIn("-1", 0, 5), -99);
}

TEST(WordsTest, WhatIsNoNumber) {
    for (const char* const text : {"", "-", "x", "1x", " 1", "1 ", "+1", "--1", "0x", "0xg", "1.5",
                                   "9223372036854775808", "0x10000000000000000"}) {
        EXPECT_EQ(numberIn(text, INT64_MIN, INT64_MAX), -99) << text;
    }
}

TEST(WordsTest, EachWordStandsForItsValueAndBack) {
    for (const Words* const words :
         {&slotWords(), &levelWords(), &oodWords(), &protocolWords(), &appTypeWords(),
          &filterStatusWords(), &familyWords(), &switchWords()}) {
        for (const Word& word : *words) {
            int32_t value = -99;
            EXPECT_TRUE(readWord(*words, word.text, value));
            EXPECT_EQ(value, word.value) << word.text;
            EXPECT_EQ(wordOf(*words, word.value), word.text);
        }
    }
}

TEST(WordsTest, ValuesOfTheInterface) {
    EXPECT_EQ(wordOf(slotWords(), SDF_SLOT_ID_UNSPECIFIED), "unspecified");
    EXPECT_EQ(wordOf(levelWords(), SDF_LATENCY_LVL_6), "level-6");
    EXPECT_EQ(wordOf(oodWords(), SDF_OOD_DISABLED_LVL), "disabled");
    EXPECT_EQ(wordOf(protocolWords(), SDF_PROTOCOL_TCPUDP), "tcpudp");
    EXPECT_EQ(wordOf(appTypeWords(), SDF_APP_TYPE_TRAFFIC_PRIO_31), "priority-31");
    EXPECT_EQ(wordOf(appTypeWords(), SDF_APP_TYPE_TRAFFIC_PRIO_BE), "best-effort");
    EXPECT_EQ(appTypeWords().size(), 33U);
    EXPECT_EQ(wordOf(filterStatusWords(), SDF_FILTER_ERROR_NO_PERMISSION), "no-permission");
}

TEST(WordsTest, AnyOtherNumberIsTakenAndShownAsItIs) {
    int32_t value = 0;
    EXPECT_TRUE(readWord(slotWords(), "-2147483648", value));
    EXPECT_EQ(value, INT32_MIN);
    EXPECT_EQ(wordOf(slotWords(), value), "-2147483648");
    EXPECT_FALSE(readWord(slotWords(), "2147483648", value));
    EXPECT_FALSE(readWord(slotWords(), "First", value));
    EXPECT_EQ(value, INT32_MIN);
}

TEST(WordsTest, AddressesAndBack) {
    for (const char* const text : {"192.0.2.1:5000", "192.0.2.1", "192.0.2.1:65535", "2001:db8::1",
                                   "[2001:db8::1]:443", "::", "none"}) {
        sockaddr_storage address{};
        address.ss_family = 99;
        EXPECT_TRUE(readAddress(text, address)) << text;
        EXPECT_EQ(addressText(address), text);
    }
    sockaddr_storage address{};
    EXPECT_TRUE(readAddress("[::1]", address));
    EXPECT_EQ(addressText(address), "::1");
    EXPECT_TRUE(readAddress("192.0.2.1:0", address));
    EXPECT_EQ(addressText(address), "192.0.2.1");
}

TEST(WordsTest, BytesAndFamiliesOfAnAddress) {
    sockaddr_storage address{};
    ASSERT_TRUE(readAddress("192.0.2.1:5000", address));
    sockaddr_storage expected{};
    expected.ss_family = AF_INET;
    const unsigned char bytes[] = {0x13, 0x88, 192, 0, 2, 1};  // the port, in network order, first
    memcpy(reinterpret_cast<char*>(&expected) + sizeof expected.ss_family, bytes, sizeof bytes);
    EXPECT_EQ(memcmp(&address, &expected, sizeof address), 0);
    address.ss_family = AF_UNIX;
    EXPECT_EQ(addressText(address), "family unix");
    address.ss_family = 65535;
    EXPECT_EQ(addressText(address), "family 65535");
    address.ss_family = AF_UNSPEC;  // not none: there is more in it
    EXPECT_EQ(addressText(address), "family unspecified");
}

TEST(WordsTest, WhatIsNoAddress) {
    for (const char* const text :
         {"", "None", "host", "192.0.2", "192.0.2.1:", "192.0.2.1:65536", "192.0.2.1:-1",
          "192.0.2.1:5x", "[192.0.2.1]:5", "[::1", "[::1]5", "[::1]:", "::1]:5", "[]:5", "1:2:3"}) {
        sockaddr_storage address{};
        EXPECT_FALSE(readAddress(text, address)) << text;
    }
}

TEST(WordsTest, PeopleAreNotShownWhatIsZero) {
    SdfAddFilterInfo info{};
    EXPECT_EQ(shown(describe(info), " "), "src=none dest=none");
    info.filter_arg16 = 16;
    info.ood = SDF_OOD_ENABLED_LVL;
    EXPECT_EQ(shown(describe(info), " "), "src=none dest=none ood=enabled arg16=16");
}

}  // namespace
