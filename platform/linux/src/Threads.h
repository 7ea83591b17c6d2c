// SPDX-License-Identifier: Apache-2.0
#pragma once

// Starts a thread that nobody waits for, with the signals blocked that a program handles on purpose
// (SignalMask.h). body: runs on the new thread, must not throw; argument: handed to it.
// Returns 0, or the error number of why no thread could be made.
int startDetachedThread(void* (*body)(void*), void* argument);
