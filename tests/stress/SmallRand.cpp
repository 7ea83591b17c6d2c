// SPDX-License-Identifier: Apache-2.0
#include <atomic>
#include <cstdint>
#include <cstdlib>

// In place of the C library's rand(): so few values that requests keep drawing ids which are still
// in use, and 0. Any thread.
extern "C" int rand() noexcept {
    constexpr uint64_t kValues = 192;
    static std::atomic<uint64_t> draws{0};
    // The multiplier spreads successive numbers over the upper half.
    const uint64_t mixed = draws.fetch_add(1, std::memory_order_relaxed) * 0x9E3779B97F4A7C15U;
    return static_cast<int>((mixed >> 32U) % kValues);
}
