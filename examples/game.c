// SPDX-License-Identifier: Apache-2.0
//
// lum_sdf_game ADDRESS PORT: what a game does so that its packets to a server hurry. It describes
// its flow in a filter, and asks for low latency and gaming; a session keeps that with the service.
// ADDRESS is a number, IPv4 or IPv6. Ends on SIGINT and SIGTERM.

#define _POSIX_C_SOURCE 200809L
#include <lum_sdf_session.h>
#include <netdb.h>
#include <poll.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/signalfd.h>

static void onState(SdfSession* session, SdfSessionState state, int reason, void* user) {
    (void)session, (void)user;
    printf("service: %s\n", reason == 0 ? sdfSessionStateText(state) : sdfSessionText(reason));
}

static void onFilter(SdfFilter* filter, SdfFilterState state, SdfFilterStatus why, void* user) {
    (void)filter, (void)user;
    const bool rejected = state == SDF_FILTER_STATE_REJECTED;
    printf("filter: %s\n", rejected ? sdfFilterStatusText(why) : sdfFilterStateText(state));
}

// Connects a socket to the server and describes the flow between the two, if there is a way.
static bool describeFlow(const char* address, const char* port, SdfAddFilterInfo* flow) {
    const struct addrinfo wanted = {.ai_flags = AI_NUMERICHOST, .ai_socktype = SOCK_DGRAM};
    struct addrinfo* server = NULL;
    const long number = strtol(port, NULL, 10);  // getaddrinfo() refuses what follows it
    if (number < 1 || number > 65535) return false;
    if (getaddrinfo(address, port, &wanted, &server) != 0) return false;
    memcpy(&flow->dest_addr, server->ai_addr, server->ai_addrlen);
    const int game = socket(server->ai_family, SOCK_DGRAM, 0);  // the one to play with
    socklen_t size = sizeof flow->src_addr;
    const bool known = connect(game, server->ai_addr, server->ai_addrlen) == 0 &&
                       getsockname(game, (struct sockaddr*)&flow->src_addr, &size) == 0;
    freeaddrinfo(server);
    return known;
}

int main(int argc, char** argv) {
    const SdfLatencyLvl low = SDF_LATENCY_LVL_1;  // what it stands for is the device's business
    SdfAddFilterInfo flow = {.protocol = SDF_PROTOCOL_UDP,
                             .first_level = low,
                             .second_level = low,
                             .ood = SDF_OOD_ENABLED_LVL,  // old packets are of no use to a game
                             .app_type = SDF_APP_TYPE_TRAFFIC_PRIO_HIGHEST};
    if (argc != 3 || !describeFlow(argv[1], argv[2], &flow)) {
        fputs("usage: lum_sdf_game ADDRESS PORT, of a server that can be reached\n", stderr);
        return 2;
    }
    setvbuf(stdout, NULL, _IOLBF, BUFSIZ);
    sigset_t ends;  // blocked also in the threads that are made later
    sigemptyset(&ends);
    sigaddset(&ends, SIGINT);
    sigaddset(&ends, SIGTERM);
    sigprocmask(SIG_BLOCK, &ends, NULL);
    SdfSession* session = NULL;
    const SdfSlotID slot = SDF_SLOT_ID_UNSPECIFIED;
    int error = sdfSessionOpen(onState, NULL, &session);
    if (error == 0) error = sdfFilterAdd(session, &flow, onFilter, NULL, NULL);
    if (error == 0) error = sdfSessionSetLevels(session, slot, low, low, true, NULL, NULL);
    if (error == 0) error = sdfSessionSetGaming(session, true);
    if (error != 0) fprintf(stderr, "lum_sdf_game: %s\n", sdfSessionText(error));
    struct pollfd fds[] = {{sdfSessionFd(session), POLLIN, 0}, {signalfd(-1, &ends, 0), POLLIN, 0}};
    while (error == 0 && poll(fds, 2, -1) > 0 && fds[1].revents == 0) sdfSessionDispatch(session);
    sdfSessionClose(session, 0);
    return error != 0;
}
