// SPDX-License-Identifier: Apache-2.0
#include "tools/sdfctl/Waiter.h"

#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <vector>

#include "tools/LimitedCall.h"

namespace {

sigset_t setOf(std::initializer_list<int> signals) {
    sigset_t set;
    sigemptyset(&set);
    for (const int signal : signals) sigaddset(&set, signal);
    return set;
}

int openSignals(const sigset_t& set) {
    const int fd = signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK);
    if (fd < 0) throw std::system_error(errno, std::generic_category(), "signalfd");
    return fd;
}

bool isIgnored(int signal) {
    struct sigaction action {};
    return sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

int millisecondsUntil(std::optional<Time> end) {
    constexpr int kMost = 3600 * 1000;  // whoever wakes up too early waits again
    if (!end) return -1;
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(*end - std::chrono::steady_clock::now());
    return static_cast<int>(std::clamp<long long>(left.count(), 0, kMost));
}

}  // namespace

Time inSeconds(double seconds) {
    constexpr double kMost = 100.0 * 365 * 24 * 3600;
    const std::chrono::duration<double> length(std::min(seconds, kMost));
    return std::chrono::steady_clock::now() +
           std::chrono::duration_cast<std::chrono::steady_clock::duration>(length);
}

Signals::Signals(std::initializer_list<int> signals)
    : mSet(setOf(signals)), mFd(openSignals(mSet)) {
    block();
}

Signals::~Signals() {
    unblock();
    close(mFd);
}

int Signals::take() const {
    signalfd_siginfo got{};
    return read(mFd, &got, sizeof got) == sizeof got ? static_cast<int>(got.ssi_signo) : 0;
}

void Signals::letAct(int signal) {
    const sigset_t one = setOf({signal});
    (void)raise(signal);
    pthread_sigmask(SIG_UNBLOCK, &one, nullptr);
    pthread_sigmask(SIG_BLOCK, &one, nullptr);
}

// Under nohup SIGHUP must not end the program, which it would when blocked.
Waiter::Waiter(HangUp hangUp)
    : mSignals(hangUp == HangUp::kIsOthers || isIgnored(SIGHUP)
                   ? std::initializer_list<int>{SIGINT, SIGTERM}
                   : std::initializer_list<int>{SIGINT, SIGTERM, SIGHUP}) {}

std::optional<size_t> Waiter::wait(std::optional<Time> end,
                                   std::initializer_list<int> descriptors) const {
    std::vector<pollfd> waited{{mSignals.fd(), POLLIN, 0}};
    for (const int fd : descriptors) waited.push_back({fd, POLLIN, 0});
    for (;;) {
        if (poll(waited.data(), waited.size(), millisecondsUntil(end)) < 0 && errno != EINTR) {
            throw std::system_error(errno, std::generic_category(), "poll");
        }
        if (const int signal = mSignals.take(); signal != 0) throw Interrupted{signal};
        const auto ready = std::find_if(waited.begin() + 1, waited.end(),
                                        [](const pollfd& one) { return one.revents != 0; });
        if (ready != waited.end()) return static_cast<size_t>(ready - waited.begin() - 1);
        if (end && std::chrono::steady_clock::now() >= *end) return std::nullopt;
    }
}

std::optional<long long> Waiter::withLimit(double seconds, long long (*body)()) const {
    mSignals.unblock();
    const std::optional<long long> result = callUntil(inSeconds(seconds), body);
    mSignals.block();
    return result;
}
