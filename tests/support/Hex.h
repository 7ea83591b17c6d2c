// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

// Bytes written as text in tests: two hexadecimal digits each, spaces between them as one likes.
// Expected bytes stay readable and failure messages show them.

inline std::vector<uint8_t> fromHex(const std::string& text) {
    std::vector<uint8_t> bytes;
    std::string digits;
    for (const char c : text) {
        if (c == ' ') continue;
        digits += c;
        if (digits.size() < 2) continue;
        size_t used = 0;
        bytes.push_back(static_cast<uint8_t>(std::stoul(digits, &used, 16)));
        if (used != 2) throw std::invalid_argument("not hexadecimal: " + digits);
        digits.clear();
    }
    if (!digits.empty()) throw std::invalid_argument("half a byte at the end of: " + text);
    return bytes;
}

template <typename Bytes>
std::string toHex(const Bytes& bytes) {
    constexpr char kDigits[] = "0123456789ABCDEF";
    std::string text;
    for (const auto byte : bytes) {
        if (!text.empty()) text += ' ';
        text += kDigits[static_cast<uint8_t>(byte) >> 4];
        text += kDigits[static_cast<uint8_t>(byte) & 15];
    }
    return text;
}

inline std::string repeatHex(const std::string& text, int times) {
    std::string all;
    for (int i = 0; i < times; ++i) all += (all.empty() ? "" : " ") + text;
    return all;
}
