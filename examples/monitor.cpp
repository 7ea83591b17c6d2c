// SPDX-License-Identifier: Apache-2.0
//
// lum_sdf_monitor [-t SECONDS] [-g] [SOURCE PORT DESTINATION PORT]...: adds a filter for each UDP
// flow given, and shows what becomes of them, of the priority queues, and of the filters that the
// service makes on its own. Prints what has changed, a line each. Addresses are numbers.
//   -t SECONDS  end after that time; without it, on SIGINT or SIGTERM
//   -g          switch high-performance gaming on, so that there may be automatic filters

#include <netdb.h>
#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <array>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <lum_sdf_session.hpp>
#include <map>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace {

// Prints what is not yet on the screen.
void show(const std::string& what, const std::string& state) {
    static std::map<std::string, std::string> shown;
    if (std::exchange(shown[what], state) != state) printf("%s: %s\n", what.c_str(), state.c_str());
}

std::string textOf(const sockaddr_storage& address) {
    char host[NI_MAXHOST] = "?";
    char port[NI_MAXSERV] = "?";
    getnameinfo(reinterpret_cast<const sockaddr*>(&address), sizeof address, host, sizeof host,
                port, sizeof port, NI_NUMERICHOST | NI_NUMERICSERV);
    return std::string(host) + " port " + port;
}

void showAutoFilter(unsigned int id, const SdfAddFilterInfo& info) {
    const bool active = info.src_addr.ss_family != AF_UNSPEC;
    show("automatic filter " + std::to_string(id),
         active ? std::string(sdfProtocolText(info.protocol)) + " from " + textOf(info.src_addr) +
                      " to " + textOf(info.dest_addr) + ", " + sdfFilterAppTypeText(info.app_type)
                : "not active");
}

// A whole number from 1 to `most`, and nothing else.
int numberOf(const std::string& text, int most) {
    size_t used = 0;
    const int number = std::stoi(text, &used);
    if (used == text.size() && number >= 1 && number <= most) return number;
    throw std::out_of_range(text);
}

sockaddr_storage addressOf(const char* address, const char* port) {
    const addrinfo wanted{AI_NUMERICHOST, AF_UNSPEC, SOCK_DGRAM, 0, 0, nullptr, nullptr, nullptr};
    addrinfo* found = nullptr;
    (void)numberOf(port, UINT16_MAX);  // getaddrinfo() would take others
    if (getaddrinfo(address, port, &wanted, &found) != 0) throw std::invalid_argument(address);
    sockaddr_storage parsed{};
    std::memcpy(&parsed, found->ai_addr, found->ai_addrlen);
    freeaddrinfo(found);
    return parsed;
}

void watch(int argc, char** argv) {
    sigset_t ends{};  // blocked also in the threads that are made later
    for (const int signal : {SIGINT, SIGTERM, SIGALRM}) sigaddset(&ends, signal);
    pthread_sigmask(SIG_BLOCK, &ends, nullptr);
    lum::sdf::Session session([](SdfSessionState state, int reason) {
        show("service", reason == 0 ? sdfSessionStateText(state) : sdfSessionText(reason));
    });
    session.setAutoFilters(showAutoFilter);
    session.setQueueReports(500, [](const auto& entry) {  // milliseconds, to the emulator
        show("queue " + std::to_string(entry.key),
             std::to_string(entry.first) + ", " + std::to_string(entry.second));
    });
    for (int option = 0; (option = getopt(argc, argv, "t:g")) != -1;) {
        if (option == '?') throw std::invalid_argument("option");
        if (option == 'g') session.setGaming(true);
        if (option == 't') alarm(static_cast<unsigned int>(numberOf(optarg, INT_MAX)));
    }
    const std::vector<const char*> words(argv + optind, argv + argc);
    std::vector<lum::sdf::Filter> filters;
    for (size_t i = 0; i < words.size(); i += 4) {
        SdfAddFilterInfo flow{};
        flow.src_addr = addressOf(words.at(i), words.at(i + 1));
        flow.dest_addr = addressOf(words.at(i + 2), words.at(i + 3));
        flow.protocol = SDF_PROTOCOL_UDP;
        flow.first_level = flow.second_level = SDF_LATENCY_LVL_3;
        flow.ood = SDF_OOD_UNSPECIFIED_LVL;
        const std::string name = "filter " + std::to_string(filters.size() + 1);
        filters.push_back(session.add(flow, [name](SdfFilterState state, auto why) {
            show(name, state == SDF_FILTER_STATE_REJECTED ? sdfFilterStatusText(why)
                                                          : sdfFilterStateText(state));
        }));
    }
    std::array<pollfd, 2> waited{
        {{session.fd(), POLLIN, 0}, {signalfd(-1, &ends, SFD_CLOEXEC), POLLIN, 0}}};
    while (poll(waited.data(), waited.size(), -1) > 0 && waited[1].revents == 0) session.dispatch();
}

}  // namespace

int main(int argc, char** argv) {
    static const char usage[] =
        "usage: lum_sdf_monitor [-t SECONDS] [-g] [SOURCE PORT DESTINATION PORT]...\n";
    const std::string first = argc == 2 ? argv[1] : "";
    if (first == "--help") return fputs(usage, stdout) < 0;
    if (first == "--version") return puts("lum_sdf_monitor (lum SDF) " LUM_SDF_SDK_VERSION) < 0;
    setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
    try {
        watch(argc, argv);
        return 0;
    } catch (const std::logic_error&) {
        fputs(usage, stderr);
        return 2;
    } catch (const std::exception& error) {
        fprintf(stderr, "lum_sdf_monitor: %s\n", error.what());
        return 1;
    }
}
