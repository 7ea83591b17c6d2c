// SPDX-License-Identifier: Apache-2.0
#pragma once

// The threads on which this process carries out calls of others. Valid C and C++; every function
// may be called on any thread.

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

// Starts the pool, if it is not started yet: before, no call of another process and no death
// notification is delivered. More threads are added as calls need them, up to 16. Each bears a name
// of the form "binder:PID_N", and so does the calling thread from now on, whether or not the pool
// was started already.
void ABinderProcess_startThreadPool(void);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif
