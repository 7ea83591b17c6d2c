// SPDX-License-Identifier: Apache-2.0
#include "tests/support/AllocationLimit.h"

#include <malloc.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>

namespace {

constexpr long kNoLimit = -1;

std::atomic<bool> gFirstRefused{false};
std::atomic<unsigned int> gRefusedEvery{0};
std::atomic<unsigned int> gAllocations{0};  // while every nth is refused
std::atomic<int64_t> gBlocks{0};
std::atomic<int64_t> gBytes{0};

// Of the calling thread.
struct Limit {
    long left;
    bool nextOnly;
};
// Constant, for those who allocate before the program's own variables are made.
thread_local Limit tLimit{kNoLimit, false};
thread_local bool tStarted = false;  // has allocated before
thread_local int tGrants = 0;

bool refused() {
    if (!tStarted) {
        tStarted = true;
        if (gFirstRefused) return true;
    }
    const unsigned int nth = gRefusedEvery;
    if (nth != 0 && tGrants == 0 && ++gAllocations % nth == 0) return true;
    if (tLimit.left == kNoLimit) return false;
    if (tLimit.left > 0) {
        --tLimit.left;
        return false;
    }
    if (tLimit.nextOnly) tLimit.left = kNoLimit;
    return true;
}

// added: 1, or -1.
void count(void* memory, int64_t added) {
    gBlocks.fetch_add(added, std::memory_order_relaxed);
    const auto size = static_cast<int64_t>(malloc_usable_size(memory));
    gBytes.fetch_add(added * size, std::memory_order_relaxed);
}

void* allocate(size_t size) {
    if (refused()) throw std::bad_alloc();
    void* const memory = malloc(size == 0 ? 1 : size);
    if (memory == nullptr) throw std::bad_alloc();
    count(memory, 1);
    return memset(memory, 0xA5, size);
}

void* allocateOrNull(size_t size) {
    try {
        return allocate(size);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

void release(void* memory) noexcept {
    if (memory != nullptr) count(memory, -1);
    free(memory);
}

}  // namespace

int64_t allocatedBlocks() {
    return gBlocks.load(std::memory_order_relaxed);
}

int64_t allocatedBytes() {
    return gBytes.load(std::memory_order_relaxed);
}

AllocationLimit::AllocationLimit(long count, Failing failing) {
    tLimit = {count, failing == kNextOnly};
}
AllocationLimit::~AllocationLimit() {
    tLimit = {kNoLimit, false};
}

void refuseEveryAllocation(unsigned int nth) {
    gRefusedEvery = nth;
}

AllocationGrant::AllocationGrant() {
    ++tGrants;
}
AllocationGrant::~AllocationGrant() {
    --tGrants;
}

FirstAllocationRefusal::FirstAllocationRefusal() {
    gFirstRefused = true;
}
FirstAllocationRefusal::~FirstAllocationRefusal() {
    gFirstRefused = false;
}

// The array forms too, which a sanitizer would otherwise supply. Exported, so that shared libraries
// take them as well.
#define LUM_EVERYWHERE __attribute__((visibility("default")))
LUM_EVERYWHERE void* operator new(size_t size) {
    return allocate(size);
}
LUM_EVERYWHERE void* operator new[](size_t size) {
    return allocate(size);
}
LUM_EVERYWHERE void* operator new(size_t size, const std::nothrow_t& /*tag*/) noexcept {
    return allocateOrNull(size);
}
LUM_EVERYWHERE void* operator new[](size_t size, const std::nothrow_t& /*tag*/) noexcept {
    return allocateOrNull(size);
}
LUM_EVERYWHERE void operator delete(void* memory) noexcept {
    release(memory);
}
LUM_EVERYWHERE void operator delete[](void* memory) noexcept {
    release(memory);
}
LUM_EVERYWHERE void operator delete(void* memory, size_t /*size*/) noexcept {
    release(memory);
}
LUM_EVERYWHERE void operator delete[](void* memory, size_t /*size*/) noexcept {
    release(memory);
}
