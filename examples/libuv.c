// SPDX-License-Identifier: Apache-2.0
//
// lum_sdf_libuv: a session in a program whose loop is libuv's. It keeps low latency for all traffic
// and prints what becomes of it. Ends on SIGINT.

#define _POSIX_C_SOURCE 200809L
#include <lum_sdf_session.h>
#include <stdio.h>
#include <stdlib.h>
#include <uv.h>

static void onState(SdfSession* session, SdfSessionState state, int reason, void* user) {
    (void)session, (void)user;
    printf("service: %s\n", reason == 0 ? sdfSessionStateText(state) : sdfSessionText(reason));
}

static void onLevels(SdfSession* session, SdfSlotID slot, int error, SdfLatencyLvl first,
                     SdfLatencyLvl second, void* user) {
    (void)session, (void)slot, (void)user;
    if (error != 0) {
        printf("latency: %s\n", sdfSessionText(error));
    } else {
        printf("latency: %s, %s\n", sdfLatencyLvlText(first), sdfLatencyLvlText(second));
    }
}

static void onReadable(uv_poll_t* poll, int status, int events) {
    (void)status, (void)events;
    sdfSessionDispatch(poll->data);
}

static void onSignal(uv_signal_t* signal, int number) {
    (void)number;
    uv_stop(signal->loop);
}

// Ends the program when a function of the session or of libuv has failed.
static void check(int error, const char* (*textOf)(int)) {
    if (error == 0) return;
    fprintf(stderr, "lum_sdf_libuv: %s\n", textOf(error));
    exit(1);
}

int main(void) {
    uv_loop_t* const loop = uv_default_loop();
    uv_signal_t signal;
    uv_poll_t poll;
    SdfSession* session = NULL;
    setvbuf(stdout, NULL, _IOLBF, BUFSIZ);
    check(loop == NULL ? UV_ENOMEM : 0, uv_strerror);
    check(sdfSessionOpen(onState, NULL, &session), sdfSessionText);
    check(sdfSessionSetLevels(session, SDF_SLOT_ID_FIRST, SDF_LATENCY_LVL_1, SDF_LATENCY_LVL_2,
                              false, onLevels, NULL),
          sdfSessionText);
    check(uv_poll_init(loop, &poll, sdfSessionFd(session)), uv_strerror);
    poll.data = session;
    check(uv_poll_start(&poll, UV_READABLE, onReadable), uv_strerror);
    check(uv_signal_init(loop, &signal), uv_strerror);
    check(uv_signal_start(&signal, onSignal, SIGINT), uv_strerror);
    uv_run(loop, UV_RUN_DEFAULT);
    uv_poll_stop(&poll);  // before the descriptor goes
    sdfSessionClose(session, 0);
    return 0;
}
