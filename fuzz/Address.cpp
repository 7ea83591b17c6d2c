// SPDX-License-Identifier: Apache-2.0
// An address and a number as sdfctl reads them. What is written of an address that was read reads
// as the same address; an address of any content has a text.
#include <algorithm>
#include <cstring>
#include <string>

#include "fuzz/Check.h"
#include "fuzz/Input.h"
#include "tools/sdfctl/Words.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    const std::string text(bytes, bytes + size);
    sockaddr_storage address{};
    if (readAddress(text, address)) {
        sockaddr_storage again{};
        check(readAddress(addressText(address), again), "cannot read the text of an address");
        check(memcmp(&address, &again, sizeof address) == 0, "reads the text as another address");
    } else {
        const sockaddr_storage before{};
        check(memcmp(&address, &before, sizeof address) == 0, "changed by what cannot be read");
    }
    memcpy(&address, bytes, std::min(size, sizeof address));
    check(!addressText(address).empty(), "an address without a text");

    int64_t number = 0;
    constexpr int64_t kLowest = -5;
    constexpr int64_t kHighest = 4294967295;
    if (readNumber(text, kLowest, kHighest, number)) {
        check(number >= kLowest && number <= kHighest, "a number out of its bounds");
        int64_t again = 0;
        check(readNumber(std::to_string(number), kLowest, kHighest, again) && again == number,
              "reads a number's text as another");
    }
    int32_t word = 0;
    for (const Words* const words : {&slotWords(), &levelWords(), &appTypeWords()}) {
        int32_t again = 0;
        if (!readWord(*words, text, word)) continue;
        check(readWord(*words, wordOf(*words, word), again) && again == word,
              "reads a word as another");
    }
    return 0;
}
