// SPDX-License-Identifier: Apache-2.0
#pragma once

// What this system's registry of services says beside android/binder_manager.h, for programs that
// report to their user. A device does not have it.

#include <android/binder_status.h>

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

// Returns the device of the kernel's driver that this process uses, from the environment variable
// LUM_BINDER, which is read once; empty: none, but sockets. Never ends.
const char* LumServiceManager_device(void);

// Asks whether this process may look a name up: AServiceManager_checkService also returns null if
// it may not. Blocks for as long as the service manager takes.
// instance: not null.
// Returns a status, owned by the caller, or null when there is no memory. Over sockets it is OK.
// Over the kernel's driver it is OK if the service manager lets this process look, whether or not
// anybody serves the name; what the service manager refuses with; STATUS_DEAD_OBJECT when there is
// none; and EX_UNSUPPORTED_OPERATION when the device cannot be used.
AStatus* LumServiceManager_mayFind(const char* instance);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif
