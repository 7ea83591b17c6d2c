// SPDX-License-Identifier: Apache-2.0
#pragma once

// The threads on which this process carries out calls of others. Valid C and C++; every function
// may be called on any thread.

#include <stdbool.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

// Starts the pool, if it is not started yet: before, no call of another process and no death
// notification is delivered. More threads are added as calls need them. Each bears a name of the
// form "binder:PID_N", and so does the calling thread from now on, whether or not the pool was
// started already.
void ABinderProcess_startThreadPool(void);

// Sets how many threads may be added beyond those started or joined on purpose; 15 at first. To be
// called before the pool is started.
// Returns whether the number was accepted.
bool ABinderProcess_setThreadPoolMaxThreadCount(uint32_t numThreads);

// Returns whether the pool is started.
bool ABinderProcess_isThreadPoolStarted(void);

// Makes this thread one of the pool, for good: it does not come back.
void ABinderProcess_joinThreadPool(void);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif
