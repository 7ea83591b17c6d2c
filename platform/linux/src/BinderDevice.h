// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <linux/android/binder.h>

#include <cstdint>
#include <string_view>

// The word in a call that says which partition its caller is built for.
enum Partition : uint32_t {
    kVendorPartition = B_PACK_CHARS('V', 'N', 'D', 'R'),
    kSystemPartition = B_PACK_CHARS('S', 'Y', 'S', 'T'),
};

// All callers at one driver's device have the same: the vendor's where its name ends with
// vndbinder, as containers prefix it, and without one, otherwise the system's.
Partition partitionAt(std::string_view device);
// That of this process's calls, at its device (lum/service_manager.h). Needs no memory.
Partition binderPartition();
