// SPDX-License-Identifier: Apache-2.0
#include "tests/support/AllocationLimit.h"

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <new>

namespace {

constexpr long kNoLimit = -1;

std::atomic<bool> gFirstRefused{false};

// Of the calling thread.
struct Limit {
    long left;
    bool nextOnly;
};
// Constant, for those who allocate before the program's own variables are made.
thread_local Limit tLimit{kNoLimit, false};
thread_local bool tStarted = false;  // has allocated before

bool refused() {
    if (!tStarted) {
        tStarted = true;
        if (gFirstRefused) return true;
    }
    if (tLimit.left == kNoLimit) return false;
    if (tLimit.left > 0) {
        --tLimit.left;
        return false;
    }
    if (tLimit.nextOnly) tLimit.left = kNoLimit;
    return true;
}

void* allocate(size_t size) {
    if (refused()) throw std::bad_alloc();
    void* const memory = malloc(size == 0 ? 1 : size);
    if (memory == nullptr) throw std::bad_alloc();
    return memset(memory, 0xA5, size);
}

void* allocateOrNull(size_t size) {
    try {
        return allocate(size);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

}  // namespace

AllocationLimit::AllocationLimit(long count, Failing failing) {
    tLimit = {count, failing == kNextOnly};
}
AllocationLimit::~AllocationLimit() {
    tLimit = {kNoLimit, false};
}

FirstAllocationRefusal::FirstAllocationRefusal() {
    gFirstRefused = true;
}
FirstAllocationRefusal::~FirstAllocationRefusal() {
    gFirstRefused = false;
}

// The array forms too, which a sanitizer would otherwise supply.
void* operator new(size_t size) {
    return allocate(size);
}
void* operator new[](size_t size) {
    return allocate(size);
}
void* operator new(size_t size, const std::nothrow_t& /*tag*/) noexcept {
    return allocateOrNull(size);
}
void* operator new[](size_t size, const std::nothrow_t& /*tag*/) noexcept {
    return allocateOrNull(size);
}
void operator delete(void* memory) noexcept {
    free(memory);
}
void operator delete[](void* memory) noexcept {
    free(memory);
}
void operator delete(void* memory, size_t /*size*/) noexcept {
    free(memory);
}
void operator delete[](void* memory, size_t /*size*/) noexcept {
    free(memory);
}
