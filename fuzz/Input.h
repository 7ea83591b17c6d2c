// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

// The bytes that libFuzzer made up, read as decisions from the first to the last, so that a byte
// that is changed, put in or taken out changes one decision and leaves those before it. Past the
// end every decision is 0, the plainest there is: nothing special, the lowest value of a range.
class Input {
  public:
    Input(const uint8_t* bytes, size_t size) : mNext(bytes), mEnd(bytes + size) {}
    Input(const Input&) = delete;
    Input& operator=(const Input&) = delete;

    bool empty() const { return mNext == mEnd; }

    uint8_t byte() { return empty() ? uint8_t{0} : *mNext++; }
    bool flag() { return (byte() & 1) != 0; }
    // A number below limit, which is at most 256.
    unsigned int pick(unsigned int limit) { return byte() % limit; }
    // Whether something happens that does so once in `times`.
    bool rarely(unsigned int times) { return pick(times) == times - 1; }

    // Any number of a type, small ones more often.
    template <typename Number>
    Number number() {
        const unsigned int kind = pick(4);
        if (kind < 2) return static_cast<Number>(byte());
        uint64_t value = 0;
        for (size_t i = 0; i < sizeof(Number); ++i) value = value << 8 | byte();
        // The ends of the range and what lies next to them.
        if (kind == 2) value = static_cast<uint64_t>(static_cast<int64_t>(value & 7) - 4);
        return static_cast<Number>(value);
    }

    // A value in the range or next to it, rarely any other.
    template <typename Enum>
    Enum around(Enum first, Enum last) {
        if (rarely(16)) return static_cast<Enum>(number<int32_t>());
        const int lowest = first;
        const int highest = last;
        const int value =
            lowest + static_cast<int>(pick(static_cast<unsigned int>(highest - lowest + 3)));
        return static_cast<Enum>(value == highest + 2 ? lowest - 1 : value);
    }

    // So many of the bytes that are left, or all of them.
    std::vector<uint8_t> bytes(size_t count) {
        const uint8_t* const first = mNext;
        mNext += std::min(count, static_cast<size_t>(mEnd - mNext));
        return {first, mNext};
    }
    std::vector<uint8_t> rest() { return bytes(static_cast<size_t>(mEnd - mNext)); }

  private:
    const uint8_t* mNext;
    const uint8_t* const mEnd;
};
