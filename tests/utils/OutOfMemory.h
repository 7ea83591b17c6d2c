// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <new>

#include "tests/support/AllocationLimit.h"

// Runs the action with no memory, with one allocation, with two and so on until it ends without
// std::bad_alloc, and `check` after each failure. Returns how many allocations it took.
inline long allocationsNeeded(const std::function<void()>& action,
                              const std::function<void()>& check) {
    for (long allocations = 0;; ++allocations) {
        try {
            const AllocationLimit limit(allocations);
            action();
            return allocations;
        } catch (const std::bad_alloc&) {
        }
        check();
    }
}
