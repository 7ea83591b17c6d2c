// SPDX-License-Identifier: Apache-2.0
//
// lum_sdf_game ADDRESS PORT: what a game does so that its packets hurry. It asks for low latency,
// describes its flow to a server in a filter, switches high-performance gaming on, and does all
// that again whenever the service was lost. ADDRESS is a number, IPv4 or IPv6. Ends on SIGINT and
// SIGTERM, with status 0.
//
// Which latency a level stands for is the device's business; level 1 is taken for the lowest here.
//
// All requests are issued from inside callbacks. That is right with every build of the library,
// also with those for devices, which do not lock what they keep of requests: the callback's thread
// is the one that would touch it.

#define _POSIX_C_SOURCE 200809L
#include <lum_sdf_sdk.h>
#include <netdb.h>
#include <signal.h>
#include <stdatomic.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

// How often to ask for a service that is not there. An attempt takes the library up to 3.15
// seconds; attempts that are asked for faster than that queue up.
enum { kAskAgainSeconds = 4 };

static SdfAddFilterInfo gFlow;  // set before there are callbacks, and not changed again
static atomic_bool gUp;         // the service is up, and was asked for all we want

// A request that is refused has come too late: the service is just being lost. Then main() asks for
// the service again, and we start over.
static void check(const char* request, long long result) {
    if (result >= 0) return;
    printf("%s: %s\n", request, sdfStatusV2Text(result));
    gUp = false;
}

static void onLevels(long long id, SdfLatencyLvl first, SdfLatencyLvl second) {
    (void)id;  // there is only one such request at a time
    printf("latency: %s, %s\n", sdfLatencyLvlText(first), sdfLatencyLvlText(second));
}

// Tells first what became of adding the filter, and later what becomes of the filter.
static void onFilter(unsigned int id, SdfFilterStatus status) {
    printf("filter %u: %s\n", id, sdfFilterStatusText(status));
    if (status == SDF_FILTER_INACTIVITY_TIMEOUT) check("filter", sdfAddFilter(gFlow, onFilter));
}

// The service knows nothing of us, or of what we asked it before it was lost.
static void askForAll(void) {
    // The library still knows a filter that we had: forget it. Without one this is refused, which
    // is fine.
    sdfDeleteAllFilter();
    check("filter status", sdfRegFilterStatus(onFilter));
    check("latency", sdfSetLatencyLvl(SDF_SLOT_ID_UNSPECIFIED, SDF_LATENCY_LVL_1, SDF_LATENCY_LVL_1,
                                      true, onLevels));
    check("filter", sdfAddFilter(gFlow, onFilter));
    check("gaming", sdfEnHighPerfGaming(true));
}

static void onStatus(int status) {
    printf("service: %s\n", sdfStatusV2Text(status));
    if (status != SDF_V2_SERVICE_UP) {
        gUp = false;  // whatever the code says: requests are refused from now on
        return;
    }
    // We may be notified twice, when main() asked again at the moment the service came.
    if (!atomic_exchange(&gUp, true)) askForAll();
}

// getaddrinfo() would take a number that is too large for another port.
static bool isPort(const char* text) {
    char* end = NULL;
    const long number = strtol(text, &end, 10);
    return *end == '\0' && number >= 1 && number <= UINT16_MAX;
}

// Connects a socket to the server, and describes the flow between the two. False when there is no
// way to the server.
static bool describeFlow(const char* address, const char* port) {
    const struct addrinfo wanted = {.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV,
                                    .ai_socktype = SOCK_DGRAM};
    struct addrinfo* server = NULL;
    if (!isPort(port) || getaddrinfo(address, port, &wanted, &server) != 0) return false;
    const int game = socket(server->ai_family, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    socklen_t ours = sizeof gFlow.src_addr;
    socklen_t theirs = sizeof gFlow.dest_addr;
    const bool known = game >= 0 && connect(game, server->ai_addr, server->ai_addrlen) == 0 &&
                       getsockname(game, (struct sockaddr*)&gFlow.src_addr, &ours) == 0 &&
                       getpeername(game, (struct sockaddr*)&gFlow.dest_addr, &theirs) == 0;
    freeaddrinfo(server);
    // All members that have a range without 0 must be set.
    gFlow.protocol = SDF_PROTOCOL_UDP;
    gFlow.first_level = SDF_LATENCY_LVL_1;
    gFlow.second_level = SDF_LATENCY_LVL_2;
    gFlow.ood = SDF_OOD_ENABLED_LVL;  // old packets are of no use to a game
    gFlow.app_type = SDF_APP_TYPE_TRAFFIC_PRIO_HIGHEST;
    return known;  // the socket stays open: it is the one to play with
}

int main(int argc, char** argv) {
    static const char usage[] =
        "usage: lum_sdf_game ADDRESS PORT, of a server that can be reached\n";
    if (argc == 2 && strcmp(argv[1], "--help") == 0) {
        fputs(usage, stdout);
        return 0;
    }
    if (argc == 2 && strcmp(argv[1], "--version") == 0) {
        puts("lum_sdf_game (lum SDF) " LUM_SDF_SDK_VERSION);
        return 0;
    }
    if (argc != 3 || !describeFlow(argv[1], argv[2])) {
        fputs(usage, stderr);
        return 2;
    }
    setvbuf(stdout, NULL, _IOLBF, BUFSIZ);

    // Blocked for the library's threads too, because they are made later: only main() waits for
    // these signals.
    sigset_t ends;
    sigemptyset(&ends);
    sigaddset(&ends, SIGINT);
    sigaddset(&ends, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &ends, NULL);

    // A game's frames would be drawn in another thread. This one sees to the service.
    const struct timespec pause = {.tv_sec = kAskAgainSeconds};
    do {
        // Makes the client, and later makes the library connect again. 0 does not say that there
        // is a service; onStatus() does.
        if (!gUp) {
            printf("service: asking for it\n");
            check("client", createSdfClient(onStatus));
        }
    } while (sigtimedwait(&ends, NULL, &pause) < 0);

    // Without a service there is nobody to take leave of, and destroying the client could wait for
    // the attempt that is under way; a process may simply end.
    if (gUp) destroySdfClient();
    return 0;
}
