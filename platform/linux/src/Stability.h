// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <cstdint>

// The word behind an object in a parcel: which partitions of a device its interface is kept stable
// for. Versions 11 and 13 to 15 of the platform write the level alone. Version 12 writes it in the
// highest byte, with the version of its parcels in the lowest.
enum StabilityLevel : int32_t {
    kUndeclared = 0,  // of a null reference
    kVendor = 0b000011,
    kSystem = 0b001100,
    kVintf = 0b111111,
};

// The word of a level as version 12 of the platform writes it.
constexpr int32_t packedStability(StabilityLevel level) {
    return static_cast<int32_t>(level) << 24 | 1;
}

constexpr bool isStability(int32_t word, StabilityLevel level) {
    return word == level || word == packedStability(level);
}

// Whether an object can have it.
constexpr bool isDeclaredStability(int32_t word) {
    return isStability(word, kVendor) || isStability(word, kSystem) || isStability(word, kVintf);
}

// The words of this process's objects.
class OwnStability {
  public:
    static int32_t word(StabilityLevel level) { return sPacked ? packedStability(level) : level; }
    // The service manager has written this word. From now on ours are written as it does.
    static void writeAs(int32_t word) { sPacked = (word & 0xff) == 1; }

  private:
    inline static std::atomic<bool> sPacked{false};
};
