// SPDX-License-Identifier: Apache-2.0
//
// lum_sdf_monitor [-t SECONDS] [-g] [SOURCE PORT DESTINATION PORT]...: adds a filter for each UDP
// flow given, and shows what becomes of them, of the priority queues, and of the filters that the
// service makes on its own. Prints what has changed, a line each. Addresses are numbers.
//
//   -t SECONDS  end after that time; without it, on SIGINT or SIGTERM
//   -g          switch high-performance gaming on, so that there may be automatic filters
//
// All requests are issued from inside callbacks. That is right with every build of the library,
// also with those for devices, which do not lock what they keep of requests: the callback's thread
// is the one that would touch it.

#include <lum_sdf_sdk.h>
#include <netdb.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <charconv>
#include <chrono>
#include <climits>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <map>
#include <mutex>
#include <string>
#include <system_error>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::seconds;

// How often to ask for a service that is not there. An attempt takes the library up to 3.15
// seconds; attempts that are asked for faster than that queue up.
constexpr seconds kAskAgain{4};

// The service decides what this means. The emulator reports as often, in milliseconds.
constexpr unsigned int kReportValue = 500;

// Prints what is not yet on the screen. Used by all threads.
class Screen {
  public:
    void show(const std::string& what, const std::string& state) {
        const std::lock_guard<std::mutex> guard(mLock);
        std::string& shown = mShown[what];
        if (shown == state) return;
        shown = state;
        printf("%s: %s\n", what.c_str(), state.c_str());
    }

    // Shows everything anew.
    void forget() {
        const std::lock_guard<std::mutex> guard(mLock);
        mShown.clear();
    }

  private:
    std::mutex mLock;
    std::map<std::string, std::string> mShown;
};

struct Monitor {
    Screen screen;
    Screen failures;              // of requests, since the service was last asked for
    std::atomic<bool> up{false};  // the service is up, and was asked for all we want
    // Set before there are callbacks, and not changed again:
    std::vector<SdfAddFilterInfo> flows;
    bool gaming = false;
};

// Never destroyed: a callback that was about to be called may still come when the client has been
// destroyed, and even while the process ends.
Monitor& monitor() {
    static auto& instance = *new Monitor;
    return instance;
}

// A request that is refused has come too late: the service is just being lost. Then main() asks for
// the service again, and we start over.
void check(const char* request, long long result) {
    if (result >= 0) return;
    monitor().failures.show(request, sdfStatusV2Text(result));
    monitor().up = false;
}

std::string textOf(const sockaddr_storage& address) {
    char host[NI_MAXHOST] = "?";
    char port[NI_MAXSERV] = "?";
    getnameinfo(reinterpret_cast<const sockaddr*>(&address), sizeof address, host, sizeof host,
                port, sizeof port, NI_NUMERICHOST | NI_NUMERICSERV);
    return std::string(host) + " port " + port;
}

// ---- Callbacks. They must not throw: noexcept ends the program if one ever would ---------------

void onListed(unsigned int id, SdfFilterStatus status, SdfLatencyLvl first, SdfLatencyLvl second,
              SdfOod ood, unsigned int pdcpTimer) noexcept {
    monitor().screen.show("listed " + std::to_string(id),
                          std::string(sdfFilterStatusText(status)) + ", " +
                              sdfLatencyLvlText(first) + ", " + sdfLatencyLvlText(second) +
                              ", out-of-order delivery " + sdfOodText(ood) + ", PDCP timer " +
                              std::to_string(pdcpTimer));
}

// Tells what became of adding a filter, and later what becomes of it. The list tells more.
void onFilter(unsigned int id, SdfFilterStatus status) noexcept {
    monitor().screen.show("filter " + std::to_string(id), sdfFilterStatusText(status));
    check("list", sdfGetFilters(onListed));
}

void onQueue(unsigned int key, uint64_t first, uint64_t second) noexcept {
    monitor().screen.show("queue " + std::to_string(key),
                          std::to_string(first) + ", " + std::to_string(second));
}

void onAutoFilter(unsigned int id, SdfAddFilterInfo info) noexcept {
    const bool active = info.src_addr.ss_family != AF_UNSPEC;
    monitor().screen.show("automatic filter " + std::to_string(id),
                          active ? std::string(sdfProtocolText(info.protocol)) + " from " +
                                       textOf(info.src_addr) + " to " + textOf(info.dest_addr) +
                                       ", " + sdfFilterAppTypeText(info.app_type)
                                 : "not active");
}

// The service knows nothing of us, or of what we asked it before it was lost.
void askForAll() {
    // The library still knows filters that we had: forget them. Without one this is refused, which
    // is fine.
    sdfDeleteAllFilter();
    check("filter status", sdfRegFilterStatus(onFilter));
    check("queue reports", sdfRegPriorityQueueReports(true, kReportValue, onQueue));
    check("automatic filters", sdfRegAutoFilterInfo(onAutoFilter));
    if (monitor().gaming) check("gaming", sdfEnHighPerfGaming(true));
    for (const SdfAddFilterInfo& flow : monitor().flows) check("add", sdfAddFilter(flow, onFilter));
}

void onStatus(int status) noexcept {
    monitor().screen.show("service", sdfStatusV2Text(status));
    const bool up = status == SDF_V2_SERVICE_UP;  // with any other code, requests are refused
    const bool wasUp = monitor().up.exchange(up);
    // We may be notified twice, when main() asked again at the moment the service came.
    if (up && !wasUp) askForAll();
}

// ---- The command line ---------------------------------------------------------------------------

constexpr char kUsage[] =
    "usage: lum_sdf_monitor [-t SECONDS] [-g] [SOURCE PORT DESTINATION PORT]...\n";

// Returns whether the text is a whole number from 1 to `most`, and nothing else.
bool parseNumber(const char* text, int most, int& number) {
    const char* const end = text + std::strlen(text);
    const auto [rest, error] = std::from_chars(text, end, number);
    return error == std::errc() && rest == end && number >= 1 && number <= most;
}

bool parseAddress(const char* address, const char* port, sockaddr_storage& parsed) {
    // getaddrinfo() would take a number that is too large for another port.
    int number = 0;
    if (!parseNumber(port, UINT16_MAX, number)) return false;
    addrinfo wanted{};
    wanted.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV;
    wanted.ai_socktype = SOCK_DGRAM;
    addrinfo* found = nullptr;
    if (getaddrinfo(address, port, &wanted, &found) != 0) return false;
    std::copy_n(reinterpret_cast<const char*>(found->ai_addr), found->ai_addrlen,
                reinterpret_cast<char*>(&parsed));
    freeaddrinfo(found);
    return true;
}

bool parse(int argc, char** argv, seconds& time) {
    for (int option = 0; (option = getopt(argc, argv, "t:g")) != -1;) {
        int number = 0;
        if (option == 'g') monitor().gaming = true;
        if (option == 't' && !parseNumber(optarg, INT_MAX, number)) return false;
        if (option == 't') time = seconds(number);
        if (option == '?') return false;
    }
    for (; argc - optind >= 4; optind += 4) {
        SdfAddFilterInfo flow{};
        if (!parseAddress(argv[optind], argv[optind + 1], flow.src_addr) ||
            !parseAddress(argv[optind + 2], argv[optind + 3], flow.dest_addr)) {
            return false;
        }
        flow.protocol = SDF_PROTOCOL_UDP;
        flow.first_level = SDF_LATENCY_LVL_3;
        flow.second_level = SDF_LATENCY_LVL_3;
        flow.ood = SDF_OOD_UNSPECIFIED_LVL;
        monitor().flows.push_back(flow);
    }
    return optind == argc;
}

// Waits for one of the signals, at most that long.
bool comes(const sigset_t& signals, Clock::duration limit) {
    const auto whole = std::chrono::duration_cast<seconds>(limit);
    timespec time{};
    time.tv_sec = static_cast<time_t>(whole.count());
    time.tv_nsec = static_cast<long>(std::chrono::nanoseconds(limit - whole).count());
    return sigtimedwait(&signals, nullptr, &time) > 0;
}

}  // namespace

int main(int argc, char** argv) {
    seconds time = std::chrono::hours(24 * 365);
    if (argc == 2 && std::strcmp(argv[1], "--help") == 0) {
        fputs(kUsage, stdout);
        return 0;
    }
    if (argc == 2 && std::strcmp(argv[1], "--version") == 0) {
        puts("lum_sdf_monitor (lum SDF) " LUM_SDF_SDK_VERSION);
        return 0;
    }
    if (!parse(argc, argv, time)) {
        fputs(kUsage, stderr);
        return 2;
    }
    setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);

    // Blocked for the library's threads too, because they are made later: only main() waits for
    // these signals.
    sigset_t ends;
    sigemptyset(&ends);
    sigaddset(&ends, SIGINT);
    sigaddset(&ends, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &ends, nullptr);

    const Clock::time_point end = Clock::now() + time;
    for (Clock::time_point now; (now = Clock::now()) < end;) {
        // Makes the client, and later makes the library connect again. 0 does not say that there
        // is a service; onStatus() does.
        if (!monitor().up) {
            monitor().failures.forget();
            monitor().screen.show("service", "asking for it");
            check("client", createSdfClient(onStatus));
        }
        if (comes(ends, std::min<Clock::duration>(end - now, kAskAgain))) break;
    }

    // Without a service there is nobody to take leave of, and destroying the client could wait for
    // the attempt that is under way; a process may simply end.
    if (monitor().up) destroySdfClient();
    return 0;
}
