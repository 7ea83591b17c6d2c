// SPDX-License-Identifier: Apache-2.0
// An application in plain C11 that prints what it gets: every result of a function with all its 64
// bits, and what its callbacks are called with.

#include <arpa/inet.h>
#include <lum_sdf_sdk.h>
#include <netinet/in.h>
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include "tests/abi/PublicTypes.h"
#include "tests/support/FullFlow.h"

enum { kLimitSeconds = 30 };

// Held by main() except while it waits, so that what a callback prints comes behind the function
// that brought it about.
static pthread_mutex_t gLock = PTHREAD_MUTEX_INITIALIZER;
static pthread_cond_t gCalled = PTHREAD_COND_INITIALIZER;
static int gCalls;

static void endOfCallback(void) {
    ++gCalls;
    pthread_cond_signal(&gCalled);
    pthread_mutex_unlock(&gLock);
}

static void waitForCallbacks(int count) {
    struct timespec limit;
    timespec_get(&limit, TIME_UTC);
    limit.tv_sec += kLimitSeconds;
    while (gCalls < count) {
        if (pthread_cond_timedwait(&gCalled, &gLock, &limit) != 0) {
            fputs("a callback does not come\n", stderr);
            exit(EXIT_FAILURE);
        }
    }
    gCalls -= count;
}

static void onStatus(int status) {
    pthread_mutex_lock(&gLock);
    printf("status %d\n", status);
    endOfCallback();
}

static void onLegacyStatus(status_e status) {
    pthread_mutex_lock(&gLock);
    printf("legacy status %d\n", status);
    endOfCallback();
}

static void onLevels(long long id, SdfLatencyLvl first, SdfLatencyLvl second) {
    pthread_mutex_lock(&gLock);
    printf("levels %016llx %d %d\n", id, first, second);
    endOfCallback();
}

static void onAdded(unsigned int id, SdfFilterStatus status) {
    pthread_mutex_lock(&gLock);
    printf("added %08x %d\n", id, status);
    endOfCallback();
}

static void onFilter(unsigned int id, SdfFilterStatus status, SdfLatencyLvl first,
                     SdfLatencyLvl second, SdfOod ood, unsigned int timer) {
    pthread_mutex_lock(&gLock);
    printf("filter %08x %d %d %d %d %08x\n", id, status, first, second, ood, timer);
    endOfCallback();
}

static void onReport(unsigned int key, uint64_t first, uint64_t second) {
    pthread_mutex_lock(&gLock);
    printf("report %08x %016llx %016llx\n", key, (unsigned long long)first,
           (unsigned long long)second);
    endOfCallback();
}

static void printBytes(const char* name, const void* data, size_t size) {
    const unsigned char* bytes = data;
    printf("  %s", name);
    for (size_t i = 0; i < size; ++i) printf(" %02X", bytes[i]);
    printf("\n");
}

static void onAuto(unsigned int id, SdfAddFilterInfo info) {
    pthread_mutex_lock(&gLock);
    printf("auto %08x\n", id);
#define PRINT_MEMBER(MEMBER) printBytes(#MEMBER, &info.MEMBER, sizeof info.MEMBER);
    ABI_MEMBERS(PRINT_MEMBER)
    endOfCallback();
}

static void setAddress(struct sockaddr_storage* storage, const char* text, uint16_t port) {
    struct sockaddr_in6 address;
    memset(&address, 0, sizeof address);
    address.sin6_family = AF_INET6;
    address.sin6_port = htons(port);
    inet_pton(AF_INET6, text, &address.sin6_addr);
    memcpy(storage, &address, sizeof address);
}

static SdfAddFilterInfo makeFlow(void) {
    SdfAddFilterInfo info;
    memset(&info, 0, sizeof info);
    setAddress(&info.src_addr, "2001:db8::1", 443);
    setAddress(&info.dest_addr, "fe80::a:9", 53);
    fillFlow(&info);
    return info;
}

static void printResult(const char* function, long long result) {
    printf("%s %016llx\n", function, result);
}

int main(void) {
    const unsigned int unknown = 0x80000001U;
    SdfAddFilterInfo info = makeFlow();

    setvbuf(stdout, NULL, _IOLBF, 0);
    pthread_mutex_lock(&gLock);
    printResult("sdfUpdateOod", sdfUpdateOod(unknown, SDF_OOD_ENABLED_LVL));
    printResult("createSdfClient", createSdfClient(NULL));
    printResult("createSdfClient", createSdfClient(onStatus));
    waitForCallbacks(1);
    printResult("lum_sdf_enable", lum_sdf_enable(onLegacyStatus));
    waitForCallbacks(2);

    printResult("sdfUpdateOod", sdfUpdateOod(unknown, SDF_OOD_ENABLED_LVL));
    printResult("sdfSetLatencyLvl", sdfSetLatencyLvl(SDF_SLOT_ID_UNSPECIFIED, SDF_LATENCY_LVL_2,
                                                     SDF_LATENCY_LVL_4, true, onLevels));
    waitForCallbacks(1);
    printResult("sdfAddFilter", sdfAddFilter(info, onAdded));
    waitForCallbacks(1);
    info.filter_arg20 = 21;
    printResult("sdfAddFilterV2", sdfAddFilterV2(info, 251, onAdded));
    waitForCallbacks(1);
    printResult("sdfGetFilters", sdfGetFilters(onFilter));
    waitForCallbacks(1);
    printResult("sdfGetPriorityQueueReport", sdfGetPriorityQueueReport(onReport));
    waitForCallbacks(1);
    printResult("sdfRegAutoFilterInfo", sdfRegAutoFilterInfo(onAuto));
    printResult("sdfEnHighPerfGaming", sdfEnHighPerfGaming(true));
    waitForCallbacks(1);

    pthread_mutex_unlock(&gLock);  // a callback that still runs must not be kept from ending
    printResult("lum_sdf_disable", lum_sdf_disable());
    printResult("lum_sdf_disable", lum_sdf_disable());
    printResult("destroySdfClient", destroySdfClient());
    return EXIT_SUCCESS;
}
