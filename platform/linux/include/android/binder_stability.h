// SPDX-License-Identifier: Apache-2.0
#pragma once

// Who may talk to whom: interfaces that are shared within one partition of a device only are
// marked, and so is each call of them. This system is built as vendor software. Valid C and C++.

#include <android/binder_ibinder.h>

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

// More flags of AIBinder_transact.
enum {
    // The call belongs to an interface within the vendor partition.
    FLAG_PRIVATE_VENDOR = 0x10000000,
};

#ifdef __ANDROID_VENDOR__

// The flag that generated code adds to calls of interfaces without a wider promise.
enum {
    FLAG_PRIVATE_LOCAL = FLAG_PRIVATE_VENDOR,
};

// Marks a local object as belonging to the vendor partition. To be called before the object leaves
// the process; marking twice is allowed. binder: not null.
void AIBinder_markVendorStability(AIBinder* binder);

// Marks a local object as belonging to the partition that this source file is compiled for.
// binder: not null.
static inline void AIBinder_markCompilationUnitStability(AIBinder* binder) {
    AIBinder_markVendorStability(binder);
}

#endif  // __ANDROID_VENDOR__

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif
