// SPDX-License-Identifier: Apache-2.0
#define _GNU_SOURCE
#include "callbacks.h"

#include <inttypes.h>
#include <netdb.h>
#include <pthread.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

// Calls are counted. One is here at a time, from when it is taken until it is let go; further ones
// wait for their turn.
static pthread_mutex_t gLock = PTHREAD_MUTEX_INITIALIZER;
static pthread_cond_t gChanged;  // made in startListening(), on the clock that deadlines are in
static bool gListening;
static unsigned int gTaken;
static unsigned int gSeen;  // by the main thread
static unsigned int gLetGo;
static char gCall[256];   // the call that is here, as the main thread is to show it
static char gThread[64];  // that made it

// Which of the process's threads is this?
static void nameThisThread(char* text, size_t size) {
    const char* kind = gettid() == getpid() ? "the main thread" : "another thread";
    snprintf(text, size, "%s (thread %d)", kind, gettid());
}

// Hands the call over to the main thread, and waits until that waits for the next one.
__attribute__((format(printf, 1, 2))) static void handOver(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    pthread_mutex_lock(&gLock);
    while (gListening && gTaken != gLetGo) pthread_cond_wait(&gChanged, &gLock);
    if (gListening) {
        vsnprintf(gCall, sizeof gCall, format, arguments);
        nameThisThread(gThread, sizeof gThread);
        const unsigned int mine = ++gTaken;
        pthread_cond_broadcast(&gChanged);
        while (gListening && gLetGo < mine) pthread_cond_wait(&gChanged, &gLock);
    }
    pthread_mutex_unlock(&gLock);
    va_end(arguments);
}

void onStatus(int status) {
    handOver("onStatus(%d: %s)", status, sdfStatusV2Text(status));
}

void onOldStatus(status_e status) {
    handOver("onOldStatus(%d: %s)", (int)status, sdfStatusText(status));
}

void onLevels(long long id, SdfLatencyLvl first, SdfLatencyLvl second) {
    handOver("onLevels(%lld, %s, %s)", id, sdfLatencyLvlText(first), sdfLatencyLvlText(second));
}

void onAdded(unsigned int id, SdfFilterStatus status) {
    handOver("onAdded(%u, %s)", id, sdfFilterStatusText(status));
}

void onFilterStatus(unsigned int id, SdfFilterStatus status) {
    handOver("onFilterStatus(%u, %s)", id, sdfFilterStatusText(status));
}

void onListed(unsigned int id, SdfFilterStatus status, SdfLatencyLvl first, SdfLatencyLvl second,
              SdfOod ood, unsigned int pdcpTimer) {
    handOver("onListed(%u, %s, %s, %s, OOD %s, PDCP timer %u)", id, sdfFilterStatusText(status),
             sdfLatencyLvlText(first), sdfLatencyLvlText(second), sdfOodText(ood), pdcpTimer);
}

void onReport(unsigned int key, uint64_t first, uint64_t second) {
    handOver("onReport(%u, %" PRIu64 ", %" PRIu64 ")", key, first, second);
}

void onPeriodicReport(unsigned int key, uint64_t first, uint64_t second) {
    handOver("onPeriodicReport(%u, %" PRIu64 ", %" PRIu64 ")", key, first, second);
}

// An address and its port; empty when there is none.
static void describe(const struct sockaddr_storage* address, char* text, size_t size) {
    char host[NI_MAXHOST] = "";
    char port[NI_MAXSERV] = "";
    text[0] = '\0';
    if (address->ss_family == AF_UNSPEC) return;
    getnameinfo((const struct sockaddr*)address, sizeof *address, host, sizeof host, port,
                sizeof port, NI_NUMERICHOST | NI_NUMERICSERV);
    snprintf(text, size, "%.*s port %.*s", 64, host, 8, port);
}

void onAutoFilter(unsigned int id, SdfAddFilterInfo info) {
    char source[80];
    char destination[80];
    describe(&info.src_addr, source, sizeof source);
    describe(&info.dest_addr, destination, sizeof destination);
    if (source[0] == '\0') {
        handOver("onAutoFilter(%u, not active)", id);
    } else {
        handOver("onAutoFilter(%u, %s from %s to %s, %s)", id, sdfProtocolText(info.protocol),
                 source, destination, sdfFilterAppTypeText(info.app_type));
    }
}

static void makeCondition(void) {
    pthread_condattr_t monotonic;
    pthread_condattr_init(&monotonic);
    pthread_condattr_setclock(&monotonic, CLOCK_MONOTONIC);
    pthread_cond_init(&gChanged, &monotonic);
    pthread_condattr_destroy(&monotonic);
}

void startListening(void) {
    static pthread_once_t made = PTHREAD_ONCE_INIT;
    pthread_once(&made, makeCondition);
    pthread_mutex_lock(&gLock);
    gListening = true;
    pthread_mutex_unlock(&gLock);
}

void stopListening(void) {
    pthread_mutex_lock(&gLock);
    gListening = false;
    gSeen = gTaken;
    gLetGo = gTaken;
    pthread_cond_broadcast(&gChanged);
    pthread_mutex_unlock(&gLock);
}

void letGo(void) {
    pthread_mutex_lock(&gLock);
    gLetGo = gSeen;
    pthread_cond_broadcast(&gChanged);
    pthread_mutex_unlock(&gLock);
}

// Lets the last call return, waits for the next one, shows it and copies it to `call`; false when
// the time is up first.
static bool nextCall(const struct timespec* deadline, char call[sizeof gCall]) {
    int error = 0;
    letGo();
    pthread_mutex_lock(&gLock);
    while (gTaken == gSeen && error == 0) {
        error = pthread_cond_timedwait(&gChanged, &gLock, deadline);
    }
    const bool came = gTaken != gSeen;
    gSeen = gTaken;
    if (came) {
        printf("    callback %s, brought by %s\n", gCall, gThread);
        memcpy(call, gCall, sizeof gCall);
    }
    pthread_mutex_unlock(&gLock);
    return came;
}

bool called(int seconds, const char* format, ...) {
    char wanted[sizeof gCall];
    char call[sizeof gCall];
    struct timespec deadline;
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(wanted, sizeof wanted, format, arguments);
    va_end(arguments);
    clock_gettime(CLOCK_MONOTONIC, &deadline);
    deadline.tv_sec += seconds;
    while (nextCall(&deadline, call)) {
        if (strncmp(call, wanted, strlen(wanted)) == 0) return true;
    }
    return false;
}
