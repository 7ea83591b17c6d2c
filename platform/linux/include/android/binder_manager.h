// SPDX-License-Identifier: Apache-2.0
#pragma once

// The registry of services: objects that other processes find by name. Valid C and C++; every
// function may be called on any thread.

#include <android/binder_ibinder.h>
#include <android/binder_status.h>

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

// Makes a local object known under a name, for as long as this process lives. The registry keeps a
// reference. A name that is served already, here or by another process, gets the new object; those
// who hold the old one keep it.
// binder: not null, local; instance: the name, not null: 1 to 127 characters (letters, digits, and
// those of "._-/"), then a zero.
// Returns EX_NONE, or why it could not be done, which is logged too: EX_ILLEGAL_ARGUMENT for
// arguments that are not as said, or a directory whose path is too long for a socket's; EX_SECURITY
// if the socket directory is not this user's alone; EX_ILLEGAL_STATE if the system lacks what it
// takes; EX_TRANSACTION_FAILED when there is no memory. Over the kernel's driver also what the
// service manager refuses with, EX_TRANSACTION_FAILED when there is none, and
// EX_UNSUPPORTED_OPERATION when the device cannot be used.
binder_exception_t AServiceManager_addService(AIBinder* binder, const char* instance);

// Returns the object of that name with one strong reference, owned by the caller; null if nobody
// serves it, as nobody can with a name that AServiceManager_addService refuses. Never waits for a
// service to appear. instance: not null.
AIBinder* AServiceManager_checkService(const char* instance);

// Returns the object of that name with one strong reference, owned by the caller. A device waits,
// without limit, until somebody serves the name, and so does this over the kernel's driver, unless
// the service manager refuses or is missing, or there is no memory. Over sockets the call does not
// wait: it returns null at once when nobody serves the name. instance: not null.
AIBinder* AServiceManager_waitForService(const char* instance);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif
