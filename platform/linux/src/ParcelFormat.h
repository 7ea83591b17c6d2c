// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/linux/src/BinderDevice.h"

// What the writing and the reading of parcels have in common.

// Every value is filled up to a multiple of this.
constexpr size_t kParcelAlignment = 4;
constexpr uint64_t aligned(uint64_t size) {
    return (size + kParcelAlignment - 1) / kParcelAlignment * kParcelAlignment;
}

// What every call begins with, before the name of the interface: which checks of the caller's
// thread the callee joins (none, but it is to collect what they find), on whose behalf (nobody's),
// and which partition the caller is built for.
struct CallHeader {
    uint32_t strictMode = 0x80000000;
    int32_t workSource = -1;
    uint32_t partition = binderPartition();
};
