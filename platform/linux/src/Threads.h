// SPDX-License-Identifier: Apache-2.0
#pragma once

// Starts a thread that nobody waits for, with the signals blocked that a program handles on purpose
// (SignalMask.h). body: runs on the new thread, must not throw; argument: handed to it.
// Returns 0, or the error number of why no thread could be made.
int startDetachedThread(void* (*body)(void*), void* argument);

// Gives this thread the next of the names that the platform gives its binder threads: "binder:",
// the process, "_" and a hexadecimal number that counts up. The system keeps 15 characters.
void nameBinderThread();
