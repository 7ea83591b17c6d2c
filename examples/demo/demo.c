// SPDX-License-Identifier: Apache-2.0
//
// lum_sdf_demo [SERVICE]: shows an application and the data service at work together, every
// function of the bare interface at least once and the loss of the service included, and then a
// session, and says step by step what happens. SERVICE is the program of the service emulator, by
// default lum_sdf_emulator, looked for as a shell would; the demo starts it, kills it and starts it
// again, as processes of its own.
//
// Exits with status 0 if everything happened that should, else says what did not.

#define _GNU_SOURCE
#include <arpa/inet.h>
#include <lum_sdf_sdk.h>
#include <pthread.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include "callbacks.h"
#include "service.h"
#include "session.h"
#include "tell.h"

// An attempt to connect takes the library up to 3.15 seconds. Asking more often would queue up.
enum { kAskAgainSeconds = 5 };

// ---- The flows that filters are added for, between addresses set aside for examples -----------

static SdfAddFilterInfo describeFlow(SdfLatencyLvl level) {
    // What is not set must be 0, and is.
    return (SdfAddFilterInfo){
        .first_level = level, .second_level = level, .ood = SDF_OOD_DISABLED_LVL};
}

static SdfAddFilterInfo gameFlow(void) {
    SdfAddFilterInfo info = describeFlow(SDF_LATENCY_LVL_2);
    struct sockaddr_in* const source = (struct sockaddr_in*)&info.src_addr;
    struct sockaddr_in* const destination = (struct sockaddr_in*)&info.dest_addr;
    source->sin_family = AF_INET;
    source->sin_port = htons(50000);
    inet_pton(AF_INET, "192.0.2.1", &source->sin_addr);
    destination->sin_family = AF_INET;
    destination->sin_port = htons(27015);
    inet_pton(AF_INET, "198.51.100.7", &destination->sin_addr);
    info.protocol = SDF_PROTOCOL_UDP;
    info.app_type = SDF_APP_TYPE_TRAFFIC_PRIO_HIGHEST;
    return info;
}

static SdfAddFilterInfo callFlow(void) {
    SdfAddFilterInfo info = describeFlow(SDF_LATENCY_LVL_4);
    struct sockaddr_in6* const source = (struct sockaddr_in6*)&info.src_addr;
    struct sockaddr_in6* const destination = (struct sockaddr_in6*)&info.dest_addr;
    source->sin6_family = AF_INET6;
    source->sin6_port = htons(40000);
    inet_pton(AF_INET6, "2001:db8::1", &source->sin6_addr);
    destination->sin6_family = AF_INET6;
    destination->sin6_port = htons(5060);
    inet_pton(AF_INET6, "2001:db8::2", &destination->sin6_addr);
    info.src_port_range = 100;  // ports 40000 to 40100
    info.protocol = SDF_PROTOCOL_TCPUDP;
    return info;
}

// ---- The steps ----------------------------------------------------------------------------------

// Asks for the service until it is there. A call makes one attempt to connect, in the background,
// and one that finds no service is not reported.
static void createUntilUp(void) {
    for (int seconds = 0; seconds < kLimitSeconds; seconds += kAskAgainSeconds) {
        RETURNS(0, createSdfClient(onStatus));
        if (called(kAskAgainSeconds, "onStatus(-7: service up)")) return;
    }
    require(false, "a callback: onStatus(-7: service up)");
}

static void showLevels(void) {
    const unsigned int request = ID_OF(
        sdfSetLatencyLvl(SDF_SLOT_ID_FIRST, SDF_LATENCY_LVL_2, SDF_LATENCY_LVL_4, false, onLevels));
    EXPECT("onLevels(%u, level 2, level 4)", request);
}

static void showLinkSettings(void) {
    RETURNS(0, sdfPrioritizeData(SDF_SLOT_ID_FIRST, true));
    RETURNS(0, sdfPrioritizeDds(true));
    RETURNS(0, sdfUpdateDdsOod(SDF_OOD_ENABLED_LVL));
    RETURNS(0, sdfUpdateDdsPdcpTimer(40));
}

static void showGaming(void) {
    RETURNS(0, sdfRegAutoFilterInfo(onAutoFilter));
    RETURNS(0, sdfEnHighPerfGaming(true));
    EXPECT("onAutoFilter(2147483649, UDP from 192.0.2.10 port 50000 to 198.51.100.20 port 27015");
    RETURNS(0, sdfEnHighPerfGaming(false));
    EXPECT("onAutoFilter(2147483649, not active)");
}

static void filterBecomesActive(unsigned int filter) {
    EXPECT("onAdded(%u, pending)", filter);
    EXPECT("onFilterStatus(%u, active)", filter);
}

static void showUpdates(unsigned int game) {
    RETURNS(0, sdfUpdateLatencyLvl(game, SDF_LATENCY_LVL_1, SDF_LATENCY_LVL_3));
    EXPECT("onFilterStatus(%u, active)", game);
    RETURNS(0, sdfUpdateOod(game, SDF_OOD_ENABLED_LVL));
    EXPECT("onFilterStatus(%u, active)", game);
    RETURNS(0, sdfUpdatePdcpTimer(game, 20));
    EXPECT("onFilterStatus(%u, active)", game);
    RETURNS(0, sdfUpdateTargetDscp(game, 46));
    EXPECT("onFilterStatus(%u, active)", game);
}

static void showList(unsigned int game, unsigned int call) {
    RETURNS(0, sdfGetFilters(onListed));
    EXPECT("onListed(%u, active, level 1, level 3, OOD enabled, PDCP timer 20)", game);
    EXPECT("onListed(%u, active, level 4, level 4, OOD disabled, PDCP timer 0)", call);
}

// A report has an entry for each queue: of unspecified traffic, of the highest priority, and of
// best effort.
static void showReports(void) {
    RETURNS(0, sdfGetPriorityQueueReport(onReport));
    EXPECT("onReport(0, ");
    EXPECT("onReport(1, ");
    EXPECT("onReport(32, ");
    RETURNS(0, sdfRegPriorityQueueReports(true, 500, onPeriodicReport));
    EXPECT("onPeriodicReport(0, ");
    EXPECT("onPeriodicReport(1, ");
    EXPECT("onPeriodicReport(32, ");
    RETURNS(0, sdfRegPriorityQueueReports(false, 0, onPeriodicReport));
}

static void showLoss(void) {
    printf("    kill -9 %d\n", processOfService());
    killService();
    EXPECT("onStatus(-8: service down)");
    RETURNS(SDF_V2_SERVICE_DOWN, sdfPrioritizeDds(true));
    letGo();  // as long as the loss is being reported, the library would not connect again
}

static void destroy(void) {
    stopListening();
    RETURNS(0, destroySdfClient());
}

// The functions of the client's older interface, and their status codes.
static void showOlderFunctions(void) {
    startListening();
    RETURNS(1, lum_sdf_enable(onOldStatus));
    EXPECT("onOldStatus(5: service up)");
    stopListening();
    RETURNS(1, lum_sdf_disable());
}

static void demonstrate(void) {
    step("The data service is started, as a process of its own.");
    startService();

    step("The client is created. The library connects in the background and tells onStatus().");
    startListening();
    createUntilUp();

    step("Requests are accepted now. We ask for latency levels, and onLevels() gets the answer.");
    showLevels();

    step("Settings of the link. The service sends no result of these.");
    showLinkSettings();

    step("While gaming is on, the service has a filter of its own, and tells onAutoFilter().");
    showGaming();

    step("A filter is added, and becomes active. Its id is that of the request.");
    RETURNS(0, sdfRegFilterStatus(onFilterStatus));
    const unsigned int game = ID_OF(sdfAddFilter(gameFlow(), onAdded));
    filterBecomesActive(game);

    step("Another one, with one value more.");
    const unsigned int call = ID_OF(sdfAddFilterV2(callFlow(), 7, onAdded));
    filterBecomesActive(call);

    step("The first one is changed. We have registered for that: onFilterStatus() is called.");
    showUpdates(game);

    step("The service lists our filters.");
    showList(game, call);

    step("It reports on the priority queues, once and then every half second until it is to stop.");
    showReports();

    step("The first filter is deleted.");
    RETURNS(0, sdfDeleteFilter(game));
    EXPECT("onFilterStatus(%u, deleted)", game);
    RETURNS(SDF_V2_INVALID_ARG, sdfDeleteFilter(game));

    step(
        "The service is killed. The library notices; requests are refused from now on. (-3 comes "
        "too when the service was not yet done with the last one.)");
    showLoss();

    step("The service is started again.");
    startService();

    step("Only createSdfClient() makes the library connect again. We call it until -7 comes.");
    createUntilUp();

    step("The library still knows the second filter, but this service does not. We forget it.");
    RETURNS(0, sdfDeleteAllFilter());
    RETURNS(SDF_V2_INVALID_OPERATION, sdfDeleteAllFilter());

    step("We register again, and add the filter again.");
    RETURNS(0, sdfRegFilterStatus(onFilterStatus));
    const unsigned int again = ID_OF(sdfAddFilter(gameFlow(), onAdded));
    filterBecomesActive(again);

    step("The client is destroyed, and the service learns that it leaves.");
    destroy();

    step("The same with the two older functions.");
    showOlderFunctions();

#ifdef LUM_DEMO_SESSION
    const SdfAddFilterInfo flow = gameFlow();
    showSession(&flow);
#endif

    printf("\nThe demo is done: everything happened as it should.\n");
}

// ---- Around them --------------------------------------------------------------------------------

// Ends the demo in the usual way when the user breaks it off.
static void* waitForSignal(void* signals) {
    int number = 0;
    sigwait(signals, &number);
    endDemo(128 + number);
}

int main(int argc, char** argv) {
    static sigset_t signals;
    pthread_t watcher;
    if (argc == 2 && strcmp(argv[1], "--version") == 0) {
        puts("lum_sdf_demo (lum SDF) " LUM_SDF_SDK_VERSION);
        return 0;
    }
    const bool help = argc == 2 && strcmp(argv[1], "--help") == 0;
    if (help || argc > 2) {
        fputs("usage: lum_sdf_demo [PROGRAM_OF_THE_SERVICE]\n", help ? stdout : stderr);
        return help ? 0 : 2;
    }
    setvbuf(stdout, NULL, _IOLBF, BUFSIZ);  // lines come as they happen, into a pipe too
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGHUP);
    pthread_sigmask(SIG_BLOCK, &signals, NULL);
    prepareService(argc == 2 ? argv[1] : "lum_sdf_emulator");
    require(pthread_create(&watcher, NULL, waitForSignal, &signals) == 0, "making a thread");
    pthread_detach(watcher);

    printf("An application uses the data service. Its main thread is thread %d.\n", gettid());
    demonstrate();
    endDemo(0);
}
