// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

// The place of a virtual operation in its table: code compiled elsewhere calls by place. A pointer
// to a virtual member begins with that place in bytes (on some processors plus one).
template <typename Pointer>
size_t slot(Pointer pointer) {
    uintptr_t first = 0;
    static_assert(sizeof pointer == 2 * sizeof first);
    std::memcpy(&first, &pointer, sizeof first);
    return (first & ~uintptr_t{1}) / sizeof(void*);
}
