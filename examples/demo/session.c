// SPDX-License-Identifier: Apache-2.0
#define _GNU_SOURCE
#include "session.h"

#include <lum_sdf_session.h>
#include <poll.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#include "callbacks.h"
#include "service.h"
#include "tell.h"

static const char* gAwaited;  // how the call of a callback begins that is waited for
static bool gCame;

__attribute__((format(printf, 1, 2))) static void show(const char* format, ...) {
    char call[160];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(call, sizeof call, format, arguments);
    va_end(arguments);
    const char* const thread = gettid() == getpid() ? "the main thread" : "another thread";
    printf("    callback %s, brought by %s (thread %d)\n", call, thread, gettid());
    if (strncmp(call, gAwaited, strlen(gAwaited)) == 0) gCame = true;
}

static void onState(SdfSession* session, SdfSessionState state, int reason, void* user) {
    (void)session, (void)user;
    if (reason == 0) {
        show("onState(%s)", sdfSessionStateText(state));
    } else {
        show("onState(%s, %d: %s)", sdfSessionStateText(state), reason, sdfSessionText(reason));
    }
}

static void onLevelsInForce(SdfSession* session, SdfSlotID slot, int error, SdfLatencyLvl first,
                            SdfLatencyLvl second, void* user) {
    (void)session, (void)slot, (void)user;
    show("onLevelsInForce(%s, %s, %s)", sdfSessionText(error), sdfLatencyLvlText(first),
         sdfLatencyLvlText(second));
}

static void onFilter(SdfFilter* filter, SdfFilterState state, SdfFilterStatus why, void* user) {
    (void)filter, (void)why, (void)user;
    show("onFilter(%s)", sdfFilterStateText(state));
}

static void onList(SdfSession* session, int result, SdfFilter* filter, unsigned int id,
                   SdfFilterStatus status, SdfLatencyLvl first, SdfLatencyLvl second, SdfOod ood,
                   unsigned int pdcpTimer, void* user) {
    (void)session, (void)id, (void)ood, (void)pdcpTimer;
    if (result == 1) {
        show("onList(%s, %s, %s, %s)", filter == *(SdfFilter**)user ? "our filter" : "another",
             sdfFilterStatusText(status), sdfLatencyLvlText(first), sdfLatencyLvlText(second));
    } else {
        show("onList(the end: %s)", sdfSessionText(result));
    }
}

// The application's loop, until a callback is called in this way.
static void dispatchUntil(SdfSession* session, const char* call) {
    struct pollfd waited = {.fd = sdfSessionFd(session), .events = POLLIN};
    const time_t end = time(NULL) + kLimitSeconds;
    gAwaited = call;
    for (gCame = false; !gCame; sdfSessionDispatch(session)) {
        require(time(NULL) < end && poll(&waited, 1, kLimitSeconds * 1000) == 1, "a callback: %s",
                call);
    }
}

void showSession(const SdfAddFilterInfo* flow) {
    SdfSession* session = NULL;
    SdfFilter* filter = NULL;

    step("Now with a session. We say at once what we want; it is sent when the service is up.");
    RETURNS(0, sdfSessionOpen(onState, NULL, &session));
    RETURNS(0, sdfSessionSetLevels(session, SDF_SLOT_ID_FIRST, SDF_LATENCY_LVL_2, SDF_LATENCY_LVL_4,
                                   false, onLevelsInForce, NULL));
    RETURNS(0, sdfFilterAdd(session, flow, onFilter, NULL, &filter));

    step("Our loop calls sdfSessionDispatch(). Callbacks come from there only, on our own thread.");
    dispatchUntil(session, "onFilter(active)");

    step("The service is killed.");
    printf("    kill -9 %d\n", processOfService());
    killService();
    dispatchUntil(session, "onFilter(lost)");

    step("We want other levels for the filter. There is no service; the request is recorded.");
    RETURNS(0, sdfFilterSetLevels(filter, SDF_LATENCY_LVL_1, SDF_LATENCY_LVL_3));

    step("The service is started again. Our loop is all that runs: the session comes back.");
    startService();
    dispatchUntil(session, "onFilter(active)");

    step("The service lists our filter, once and with its new levels.");
    RETURNS(0, sdfSessionAskFilters(session, 0, onList, &filter));
    dispatchUntil(session, "onList(the end");

    step("The session is closed, and the service learns that we leave.");
    RETURNS(0, sdfSessionClose(session, kLimitSeconds * 1000));
}
