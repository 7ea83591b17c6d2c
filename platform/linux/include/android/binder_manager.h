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
// reference.
// binder: not null; instance: the name, not null, ends in zero.
// Returns EX_NONE, or why it could not be done; a name that another living process serves is
// refused with EX_ILLEGAL_STATE.
binder_exception_t AServiceManager_addService(AIBinder* binder, const char* instance);

// Returns the object of that name with one strong reference, owned by the caller; null if nobody
// serves it. Never waits for a service to appear. instance: not null.
AIBinder* AServiceManager_checkService(const char* instance);

// As AServiceManager_checkService, but on a device this call first waits for a few seconds. Here it
// does not wait.
AIBinder* AServiceManager_getService(const char* instance);

// Returns the object of that name with one strong reference, owned by the caller. A device waits,
// without limit, until somebody serves the name. Here the call does not wait: it returns null at
// once when nobody serves it. instance: not null.
AIBinder* AServiceManager_waitForService(const char* instance);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif
