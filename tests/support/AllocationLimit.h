// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

// Returns how many blocks operator new has handed out in this process and operator delete has not
// had back, on all threads; those with an alignment of their own left out. Exact, unlike what the
// allocator says of itself, which counts what it keeps for threads.
int64_t allocatedBlocks();
// The same in bytes, as the allocator rounds them.
int64_t allocatedBytes();

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

// From now on every nth allocation, of all threads together, throws std::bad_alloc; with 0, none
// does.
void refuseEveryAllocation(unsigned int nth);

// While one lives, the calling thread gets what refuseEveryAllocation() would refuse it.
class AllocationGrant {
  public:
    AllocationGrant();
    ~AllocationGrant();
    AllocationGrant(const AllocationGrant&) = delete;
    AllocationGrant& operator=(const AllocationGrant&) = delete;
};

// While it lives, the first allocation of every new thread throws std::bad_alloc, and only that.
class FirstAllocationRefusal {
  public:
    FirstAllocationRefusal();
    ~FirstAllocationRefusal();
    FirstAllocationRefusal(const FirstAllocationRefusal&) = delete;
    FirstAllocationRefusal& operator=(const FirstAllocationRefusal&) = delete;
};
