// SPDX-License-Identifier: Apache-2.0
#include "tell.h"

#include <lum_sdf_sdk.h>
#include <pthread.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>

void step(const char* what) {
    static int number;
    printf("\n%d. %s\n", ++number, what);
}

void showCall(const char* call, long long returned, long long expected) {
    // The older functions return 1 and 0, which are no codes.
    const bool isCode = returned <= 0 && expected <= 0;
    printf("    %s returned %lld%s%s\n", call, returned, isCode ? ": " : "",
           isCode ? sdfStatusV2Text(returned) : "");
    require(returned == expected, "%s returns %lld", call, expected);
}

long long showRequest(const char* call, long long returned) {
    printf("    %s returned %lld: %s\n", call, returned,
           returned > 0 ? "the id of the request" : sdfStatusV2Text(returned));
    require(returned > 0, "%s returns an id", call);
    return returned;
}

void require(bool happened, const char* format, ...) {
    if (happened) return;
    va_list arguments;
    va_start(arguments, format);
    fprintf(stderr, "\nThe demo failed. This did not happen: ");
    vfprintf(stderr, format, arguments);
    fprintf(stderr, ".\n");
    va_end(arguments);
    endDemo(1);
}

// Two threads must not call exit() at once: the one that comes second waits here until the other
// has ended the process.
_Noreturn void endDemo(int status) {
    static pthread_mutex_t ending = PTHREAD_MUTEX_INITIALIZER;
    pthread_mutex_lock(&ending);
    exit(status);
}
