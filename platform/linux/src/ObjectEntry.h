// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <linux/android/binder.h>

#include <cstddef>
#include <cstdint>

// An object in the bytes of a parcel: the flat object of the kernel's driver, then a word for its
// stability.
struct ObjectEntry {
    uint32_t type;
    uint32_t flags;
    uint64_t handle;
    uint64_t cookie;
    int32_t stability = 0;
} __attribute__((packed));
static_assert(offsetof(ObjectEntry, stability) == sizeof(flat_binder_object) &&
                  sizeof(ObjectEntry) == 28,
              "as it lies in parcels");

// A descriptor belongs to no partition: its entry is the flat object alone.
constexpr size_t kDescriptorEntrySize = sizeof(flat_binder_object);

// type: of the entry.
constexpr size_t entrySize(uint32_t type) {
    return type == BINDER_TYPE_FD ? kDescriptorEntrySize : sizeof(ObjectEntry);
}
