// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>

// Conversions between the UTF-8 of programs and the UTF-16 of parcels. Strict both ways: what is
// not well formed is refused, so that a text means the same on both sides. UTF-16 units are
// little-endian and need not be aligned. No function allocates or throws.

// Returns how many UTF-16 units `size` bytes of UTF-8 become, -1 if they are not UTF-8.
int64_t utf16Length(const char* utf8, size_t size);

// Converts well-formed UTF-8. out: memory for utf16Length() units.
void utf8ToUtf16(const char* utf8, size_t size, uint8_t* out);

// Returns how many bytes of UTF-8 `count` units become, -1 if they are not UTF-16.
int64_t utf8Length(const uint8_t* utf16, size_t count);

// Converts well-formed UTF-16. out: memory for utf8Length() bytes.
void utf16ToUtf8(const uint8_t* utf16, size_t count, char* out);

// Whether `count` units and `size` bytes are the same text; false if either is malformed.
bool isSameText(const uint8_t* utf16, size_t count, const char* utf8, size_t size);
