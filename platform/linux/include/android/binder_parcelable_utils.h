// SPDX-License-Identifier: Apache-2.0
#pragma once

// What the classes of structures and unions need, beside their parcels.

#include <cstdint>
#include <cstdio>
#include <cstdlib>

namespace ndk {

// How widely the layout of a structure is promised not to change.
using parcelable_stability_t = int32_t;
enum {
    STABILITY_LOCAL,  // among what is built together
    STABILITY_VINTF,  // between the partitions of a device
};

}  // namespace ndk

#ifndef __BIONIC__
// Android's C library has this in assert.h: says where something impossible happened, and aborts.
// file, function, message: texts, not null; line: from 1.
[[noreturn]] inline void __assert2(const char* file, int line, const char* function,
                                   const char* message) {
    std::fprintf(stderr, "%s:%d: %s: %s\n", file, line, function, message);
    std::abort();
}
#endif
