// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/socket.h>

#include <cstdint>
#include <string>
#include <vector>

// The texts that stand for the values of the interface on the command line and in what is printed.

struct Word {
    std::string text;
    int32_t value;
};

// The words of one kind of value. No two have the same text; of those with the same value the first
// is the one that is printed.
using Words = std::vector<Word>;

const Words& slotWords();
const Words& levelWords();
const Words& oodWords();
const Words& protocolWords();
const Words& appTypeWords();
const Words& filterStatusWords();
const Words& familyWords();
const Words& switchWords();

// Reads a whole number, decimal or hexadecimal after 0x. Returns false, and leaves `value` as it
// is, when the text is no number or the number lies outside of the two bounds, which are included.
bool readNumber(const std::string& text, int64_t lowest, int64_t highest, int64_t& value);

// Reads one of the words, or any number of 32 bits: what the library makes of a number without a
// word is for the library to say. Returns false, and leaves `value` as it is, for other text.
bool readWord(const Words& words, const std::string& text, int32_t& value);

// The word for a value, or its number when there is none.
std::string wordOf(const Words& words, int32_t value);

// All of them.
std::vector<std::string> textsOf(const Words& words);

// Texts with commas between.
std::string listOf(const std::vector<std::string>& texts);
inline std::string listOf(const Words& words) {
    return listOf(textsOf(words));
}

// The same for an error message: of many only some.
std::string shortListOf(const Words& words);

// Reads the address and port of one end of a flow: 192.0.2.1:5000, [2001:db8::1]:443, an address
// without a port (192.0.2.1, 2001:db8::1, [2001:db8::1]), or "none", which is all 0. Returns false,
// and leaves `address` as it is, for other text.
bool readAddress(const std::string& text, sockaddr_storage& address);

// The same text for an address; the port is left out when it is 0. "family " and a word or number
// for one that is neither IPv4 nor IPv6, nor none.
std::string addressText(const sockaddr_storage& address);
