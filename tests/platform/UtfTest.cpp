// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <string>
#include <utility>
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

TEST(Utf, WellFormedTextConvertsBothWays) {
    const std::vector<std::pair<const char*, const char*>> texts = {
        {"", ""},
        {"00", "00 00"},
        {"41", "41 00"},
        {"7F", "7F 00"},
        {"C2 80", "80 00"},
        {"C3 A4", "E4 00"},
        {"DF BF", "FF 07"},
        {"E0 A0 80", "00 08"},
        {"E2 82 AC", "AC 20"},
        {"ED 9F BF", "FF D7"},           // the last before the surrogates
        {"EE 80 80", "00 E0"},           // the first after them
        {"EF BF BF", "FF FF"},           // the last of one unit
        {"F0 90 80 80", "00 D8 00 DC"},  // the first of two
        {"F0 9F 98 80", "3D D8 00 DE"},  // U+1F600
        {"F4 8F BF BF", "FF DB FF DF"},  // the last there is
        // All sizes in a row.
        {"61 C3 A4 E2 82 AC F0 9F 98 80 7A", "61 00 E4 00 AC 20 3D D8 00 DE 7A 00"}};
    for (const auto& [utf8, utf16] : texts) {
        EXPECT_EQ(utf16, toUtf16(fromHex(utf8)));
        EXPECT_EQ(utf8, toUtf8(fromHex(utf16)));
    }
}

TEST(Utf, MalformedUtf8IsRefused) {
    const std::vector<std::pair<const char*, std::vector<const char*>>> kinds = {
        {"no first byte", {"80", "BF", "FF", "FE", "F8 88 80 80 80", "41 80", "C3 A4 A4"}},
        {"ends too early", {"C3", "E2 82", "F0 9F 98"}},
        {"another one begins too early", {"C3 41", "E2 82 41", "F0 9F 98 41"}},
        {"longer than needed", {"C0 80", "C1 BF", "E0 9F BF", "F0 8F BF BF"}},
        {"surrogates", {"ED A0 80", "ED BF BF"}},
        {"behind the last there is", {"F4 90 80 80", "F7 BF BF BF"}},
    };
    for (const auto& [kind, texts] : kinds) {
        for (const char* const text : texts) EXPECT_EQ("malformed", toUtf16(fromHex(text))) << kind;
    }
}

TEST(Utf, MalformedUtf16IsRefused) {
    const std::vector<std::pair<const char*, std::vector<const char*>>> kinds = {
        {"high, and nothing", {"00 D8", "FF DB"}},
        {"low without high", {"00 DC", "FF DF", "41 00 3D D8 00 DE 00 DE"}},
        {"high, and no low", {"00 D8 41 00", "00 D8 00 D8 00 DC", "00 D8 00 E0"}},
    };
    for (const auto& [kind, texts] : kinds) {
        for (const char* const text : texts) EXPECT_EQ("malformed", toUtf8(fromHex(text))) << kind;
    }
}

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

}  // namespace
