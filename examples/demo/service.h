// SPDX-License-Identifier: Apache-2.0
#pragma once

// The service, a process of its own.

// program: the service emulator. To be called before other threads are made.
void prepareService(const char* program);

// Starts it and waits until clients can find it; ends the demo if that does not come to pass.
void startService(void);

// Kills it, as when it crashes.
void killService(void);

// Its process; 0 while there is none.
int processOfService(void);
