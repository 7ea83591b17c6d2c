// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <stdbool.h>

// What the demo tells its user: steps, calls with their results, and why it failed.

// Begins a step.
void step(const char* what);

// Shows a call with what it returned; RETURNS() ends the demo unless that is what is expected, and
// ID_OF() unless it is an id, which is its value.
#define RETURNS(expected, call) showCall(#call, call, expected)
#define ID_OF(call) ((unsigned int)showRequest(#call, call))

void showCall(const char* call, long long returned, long long expected);
long long showRequest(const char* call, long long returned);

// Ends the demo unless it happened. format: what should have, in the way of printf.
__attribute__((format(printf, 2, 3))) void require(bool happened, const char* format, ...);

// Ends the demo, from any thread.
_Noreturn void endDemo(int status);
