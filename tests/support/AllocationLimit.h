// SPDX-License-Identifier: Apache-2.0
#pragma once

// While it lives, the calling thread gets `count` allocations from operator new; then
// std::bad_alloc is thrown by every further one, or by the next one only. One at a time for each
// thread. What operator new gives is filled, so that what nobody has initialised does not look
// harmless.
class AllocationLimit {
  public:
    enum Failing { kAllFurther, kNextOnly };

    explicit AllocationLimit(long count, Failing failing = kAllFurther);
    ~AllocationLimit();
    AllocationLimit(const AllocationLimit&) = delete;
    AllocationLimit& operator=(const AllocationLimit&) = delete;
};

// While it lives, the first allocation of every new thread throws std::bad_alloc, and only that.
class FirstAllocationRefusal {
  public:
    FirstAllocationRefusal();
    ~FirstAllocationRefusal();
    FirstAllocationRefusal(const FirstAllocationRefusal&) = delete;
    FirstAllocationRefusal& operator=(const FirstAllocationRefusal&) = delete;
};
