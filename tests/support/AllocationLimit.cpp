// SPDX-License-Identifier: Apache-2.0
#include "tests/support/AllocationLimit.h"

#include <cstddef>
#include <cstdlib>
#include <new>

namespace {

thread_local long tAllocationsLeft = -1;  // no limit

}  // namespace

AllocationLimit::AllocationLimit(long count) {
    tAllocationsLeft = count;
}
AllocationLimit::~AllocationLimit() {
    tAllocationsLeft = -1;
}

void* operator new(size_t size) {
    if (tAllocationsLeft == 0) throw std::bad_alloc();
    if (tAllocationsLeft > 0) --tAllocationsLeft;
    void* const memory = malloc(size == 0 ? 1 : size);
    if (memory == nullptr) throw std::bad_alloc();
    return memory;
}
void* operator new(size_t size, const std::nothrow_t& /*tag*/) noexcept {
    try {
        return operator new(size);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}
void operator delete(void* memory) noexcept {
    free(memory);
}
void operator delete(void* memory, size_t /*size*/) noexcept {
    free(memory);
}
