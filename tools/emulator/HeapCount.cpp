// SPDX-License-Identifier: Apache-2.0
#include "tools/emulator/HeapCount.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<int64_t> gBlocks{0};

void* counted(void* block) noexcept {
    if (block != nullptr) gBlocks.fetch_add(1, std::memory_order_relaxed);
    return block;
}

void* allocate(size_t size) noexcept {
    return counted(malloc(size == 0 ? 1 : size));
}

void* allocate(size_t size, std::align_val_t alignment) noexcept {
    const auto align = static_cast<size_t>(alignment);
    return counted(aligned_alloc(align, (size + align) / align * align));
}

void* orThrow(void* block) {
    if (block == nullptr) throw std::bad_alloc();
    return block;
}

void release(void* block) noexcept {
    if (block != nullptr) gBlocks.fetch_sub(1, std::memory_order_relaxed);
    free(block);
}

}  // namespace

int64_t heapBlocks() {
    return gBlocks.load(std::memory_order_relaxed);
}

// Every form, so that no block is handed out by one library and taken back by another.
// NOLINTBEGIN(misc-new-delete-overloads): the check does not see that the forms belong together.
// clang-format off
#define LUM_EVERYWHERE __attribute__((visibility("default")))
LUM_EVERYWHERE void* operator new(size_t size) { return orThrow(allocate(size)); }
LUM_EVERYWHERE void* operator new[](size_t size) { return orThrow(allocate(size)); }
LUM_EVERYWHERE void* operator new(size_t size, const std::nothrow_t&) noexcept { return allocate(size); }
LUM_EVERYWHERE void* operator new[](size_t size, const std::nothrow_t&) noexcept { return allocate(size); }
LUM_EVERYWHERE void* operator new(size_t size, std::align_val_t alignment) { return orThrow(allocate(size, alignment)); }
LUM_EVERYWHERE void* operator new[](size_t size, std::align_val_t alignment) { return orThrow(allocate(size, alignment)); }
LUM_EVERYWHERE void* operator new(size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept { return allocate(size, alignment); }
LUM_EVERYWHERE void* operator new[](size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept { return allocate(size, alignment); }
LUM_EVERYWHERE void operator delete(void* block) noexcept { release(block); }
LUM_EVERYWHERE void operator delete[](void* block) noexcept { release(block); }
LUM_EVERYWHERE void operator delete(void* block, size_t) noexcept { release(block); }
LUM_EVERYWHERE void operator delete[](void* block, size_t) noexcept { release(block); }
LUM_EVERYWHERE void operator delete(void* block, const std::nothrow_t&) noexcept { release(block); }
LUM_EVERYWHERE void operator delete[](void* block, const std::nothrow_t&) noexcept { release(block); }
LUM_EVERYWHERE void operator delete(void* block, std::align_val_t) noexcept { release(block); }
LUM_EVERYWHERE void operator delete[](void* block, std::align_val_t) noexcept { release(block); }
LUM_EVERYWHERE void operator delete(void* block, size_t, std::align_val_t) noexcept { release(block); }
LUM_EVERYWHERE void operator delete[](void* block, size_t, std::align_val_t) noexcept { release(block); }
LUM_EVERYWHERE void operator delete(void* block, std::align_val_t, const std::nothrow_t&) noexcept { release(block); }
LUM_EVERYWHERE void operator delete[](void* block, std::align_val_t, const std::nothrow_t&) noexcept { release(block); }
#undef LUM_EVERYWHERE
// clang-format on
// NOLINTEND(misc-new-delete-overloads)
