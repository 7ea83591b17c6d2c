// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <lum_sdf_sdk.h>
#include <stdbool.h>

// The callbacks of the bare interface. To tell its story in order, the demo goes on in its main
// thread, and a callback that has been called waits there until the main thread waits for the next
// one. So what the main thread asks for meanwhile is asked for while nothing else is being
// delivered, which is right with every build of the library. An application has its callbacks ask
// for themselves, and return soon; see docs/recovery.md. Or it has a session.

enum { kLimitSeconds = 30 };  // after this time something counts as not happening

void onStatus(int status);
void onOldStatus(status_e status);
void onLevels(long long id, SdfLatencyLvl first, SdfLatencyLvl second);
void onAdded(unsigned int id, SdfFilterStatus status);
void onFilterStatus(unsigned int id, SdfFilterStatus status);
void onListed(unsigned int id, SdfFilterStatus status, SdfLatencyLvl first, SdfLatencyLvl second,
              SdfOod ood, unsigned int pdcpTimer);
void onReport(unsigned int key, uint64_t first, uint64_t second);
void onPeriodicReport(unsigned int key, uint64_t first, uint64_t second);
void onAutoFilter(unsigned int id, SdfAddFilterInfo info);

// From now on callbacks are waited for.
void startListening(void);

// Lets the callback that was shown last return.
void letGo(void);

// Lets a callback that waits return, and all later ones: for destroying the client, which waits for
// callbacks on the library's own thread.
void stopListening(void);

// Shows every call of a callback until one begins in this way, as printf writes it; false when that
// has not happened after so many seconds.
__attribute__((format(printf, 2, 3))) bool called(int seconds, const char* format, ...);

// Ends the demo unless it is called in time.
#define EXPECT(...) require(called(kLimitSeconds, __VA_ARGS__), "a callback: " __VA_ARGS__)
