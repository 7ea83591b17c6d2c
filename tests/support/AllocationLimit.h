// SPDX-License-Identifier: Apache-2.0
#pragma once

// While it lives, the calling thread gets `count` allocations from operator new; the next ones
// throw std::bad_alloc.
class AllocationLimit {
  public:
    explicit AllocationLimit(long count);
    ~AllocationLimit();
    AllocationLimit(const AllocationLimit&) = delete;
    AllocationLimit& operator=(const AllocationLimit&) = delete;
};
