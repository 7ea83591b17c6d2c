// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

// What slot() gives for an operation that has no place in a table.
constexpr size_t kNoSlot = SIZE_MAX;

// The place of a virtual operation in its table: code compiled elsewhere calls by place. A pointer
// to a member function is two words. That to a virtual one holds its place in bytes in the first,
// and is marked as such by a bit that is otherwise 0: on ARM, where functions may begin at odd
// addresses, in the second word, elsewhere in the first.
template <typename Pointer>
size_t slot(Pointer pointer) {
    uintptr_t words[2] = {};
    static_assert(sizeof pointer == sizeof words);
    std::memcpy(words, &pointer, sizeof words);
#if defined(__arm__) || defined(__aarch64__)
    const bool isVirtual = (words[1] & 1) != 0;
#else
    const bool isVirtual = (words[0] & 1) != 0;
#endif
    return isVirtual ? words[0] / sizeof(void*) : kNoSlot;
}
