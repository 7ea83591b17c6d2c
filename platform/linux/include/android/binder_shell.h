// SPDX-License-Identifier: Apache-2.0
#pragma once

// Shell commands to binder objects. Valid C and C++.

#include <android/binder_ibinder.h>

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)
// NOLINTBEGIN(modernize-use-using): C has typedef alone

// Carries out a shell command on a local object.
// binder: the object; in, out, err: descriptors that belong to the caller; argv: argc texts.
// Returns STATUS_OK or an error.
typedef binder_status_t (*AIBinder_handleShellCommand)(AIBinder* binder, int in, int out, int err,
                                                       const char** argv, uint32_t argc);

// Sets the function that carries out shell commands. To be called before the first object of the
// class is made. clazz: not null; handler: may be null, for none.
void AIBinder_Class_setHandleShellCommand(AIBinder_Class* clazz,
                                          AIBinder_handleShellCommand handler);

// NOLINTEND(modernize-use-using)
#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif
