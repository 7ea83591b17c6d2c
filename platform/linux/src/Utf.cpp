// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/src/Utf.h"

namespace {

constexpr uint32_t kMalformed = UINT32_MAX;
constexpr uint32_t kFirstSurrogate = 0xD800;
constexpr uint32_t kFirstLowSurrogate = 0xDC00;
constexpr uint32_t kLastSurrogate = 0xDFFF;
constexpr uint32_t kFirstSupplementary = 0x10000;
constexpr uint32_t kLastCodePoint = 0x10FFFF;

bool isSurrogate(uint32_t c) {
    return c >= kFirstSurrogate && c <= kLastSurrogate;
}

int utf8Size(uint32_t point) {
    if (point < 0x80) return 1;
    if (point < 0x800) return 2;
    return point < kFirstSupplementary ? 3 : 4;
}

// Takes one code point off the front of [*at, end), which is not empty; kMalformed if there is
// none.
uint32_t takeUtf8(const char** at, const char* end) {
    const auto lead = static_cast<uint8_t>(*(*at)++);
    if (lead < 0x80) return lead;
    if (lead < 0xC0 || lead >= 0xF8) return kMalformed;
    const uint32_t more = lead < 0xE0 ? 1 : lead < 0xF0 ? 2 : 3;
    uint32_t point = lead & (0x3FU >> more);
    for (uint32_t i = 0; i < more; ++i) {
        if (*at == end) return kMalformed;
        const auto next = static_cast<uint8_t>(*(*at)++);
        if ((next & 0xC0U) != 0x80U) return kMalformed;
        point = point << 6U | (next & 0x3FU);
    }
    // An encoding longer than needed is malformed.
    const bool tooLong = utf8Size(point) != static_cast<int>(more + 1);
    return tooLong || point > kLastCodePoint || isSurrogate(point) ? kMalformed : point;
}

uint32_t unitAt(const uint8_t* utf16, size_t index) {
    return static_cast<uint32_t>(utf16[2 * index]) | static_cast<uint32_t>(utf16[2 * index + 1])
                                                         << 8U;
}

// Takes one code point off the units from *index on, of which there is at least one.
uint32_t takeUtf16(const uint8_t* utf16, size_t* index, size_t count) {
    const uint32_t high = unitAt(utf16, (*index)++);
    if (!isSurrogate(high)) return high;
    if (high >= kFirstLowSurrogate || *index == count) return kMalformed;
    const uint32_t low = unitAt(utf16, (*index)++);
    if (low < kFirstLowSurrogate || low > kLastSurrogate) return kMalformed;
    return kFirstSupplementary + ((high - kFirstSurrogate) << 10U) + (low - kFirstLowSurrogate);
}

void putUnit(uint32_t unit, uint8_t** out) {
    *(*out)++ = static_cast<uint8_t>(unit & 0xFFU);
    *(*out)++ = static_cast<uint8_t>(unit >> 8U);
}

}  // namespace

int64_t utf16Length(const char* utf8, size_t size) {
    int64_t units = 0;
    const char* const end = utf8 + size;
    for (const char* at = utf8; at != end;) {
        const uint32_t point = takeUtf8(&at, end);
        if (point == kMalformed) return -1;
        units += point < kFirstSupplementary ? 1 : 2;
    }
    return units;
}

void utf8ToUtf16(const char* utf8, size_t size, uint8_t* out) {
    const char* const end = utf8 + size;
    for (const char* at = utf8; at != end;) {
        const uint32_t point = takeUtf8(&at, end);
        if (point < kFirstSupplementary) {
            putUnit(point, &out);
        } else {
            const uint32_t rest = point - kFirstSupplementary;
            putUnit(kFirstSurrogate + (rest >> 10U), &out);
            putUnit(kFirstLowSurrogate + (rest & 0x3FFU), &out);
        }
    }
}

int64_t utf8Length(const uint8_t* utf16, size_t count) {
    int64_t bytes = 0;
    for (size_t index = 0; index != count;) {
        const uint32_t point = takeUtf16(utf16, &index, count);
        if (point == kMalformed) return -1;
        bytes += utf8Size(point);
    }
    return bytes;
}

void utf16ToUtf8(const uint8_t* utf16, size_t count, char* out) {
    constexpr uint32_t kLeads[] = {0, 0xC0, 0xE0, 0xF0};
    for (size_t index = 0; index != count;) {
        const uint32_t point = takeUtf16(utf16, &index, count);
        const auto more = static_cast<uint32_t>(utf8Size(point)) - 1;
        *out++ = static_cast<char>(kLeads[more] | point >> (6U * more));
        for (uint32_t left = more; left > 0; --left) {
            *out++ = static_cast<char>(0x80U | (point >> (6U * (left - 1)) & 0x3FU));
        }
    }
}

bool isSameText(const uint8_t* utf16, size_t count, const char* utf8, size_t size) {
    const char* at = utf8;
    const char* const end = utf8 + size;
    size_t index = 0;
    while (index != count && at != end) {
        const uint32_t unit = unitAt(utf16, index);
        if (unit < 0x80) {  // as a rule
            if (unit != static_cast<uint8_t>(*at)) return false;
            ++index;
            ++at;
            continue;
        }
        const uint32_t point = takeUtf16(utf16, &index, count);
        if (point == kMalformed || point != takeUtf8(&at, end)) return false;
    }
    return index == count && at == end;
}
