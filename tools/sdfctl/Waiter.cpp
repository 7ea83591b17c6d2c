// SPDX-License-Identifier: Apache-2.0
#include "tools/sdfctl/Waiter.h"

#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <future>
#include <system_error>
#include <thread>
#include <utility>

#include "utils/SignalMask.h"

namespace {

bool isIgnored(int signal) {
    struct sigaction action {};
    return sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

sigset_t endSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    // Under nohup it must not end the program, which it would when blocked.
    if (!isIgnored(SIGHUP)) sigaddset(&signals, SIGHUP);
    return signals;
}

int takeSignals() {
    const sigset_t signals = endSignals();
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    const int fd = signalfd(-1, &signals, SFD_CLOEXEC);
    if (fd < 0) throw std::system_error(errno, std::generic_category(), "signalfd");
    return fd;
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

Waiter::Waiter(int events) : mEvents(events), mSignals(takeSignals()) {}

Waiter::~Waiter() {
    close(mSignals);
}

Waiter::Woken Waiter::wait(std::optional<Time> end, int input, int other) const {
    pollfd waited[] = {
        {mSignals, POLLIN, 0}, {mEvents, POLLIN, 0}, {input, POLLIN, 0}, {other, POLLIN, 0}};
    for (;;) {
        if (poll(waited, 4, millisecondsUntil(end)) < 0 && errno != EINTR) {
            throw std::system_error(errno, std::generic_category(), "poll");
        }
        signalfd_siginfo got{};
        if ((waited[0].revents & POLLIN) != 0 && read(mSignals, &got, sizeof got) == sizeof got) {
            throw Interrupted{static_cast<int>(got.ssi_signo)};
        }
        if (waited[1].revents != 0) return Woken::kEvents;
        if (waited[2].revents != 0 || waited[3].revents != 0) return Woken::kInput;
        if (end && std::chrono::steady_clock::now() >= *end) return Woken::kTime;
    }
}

std::optional<long long> Waiter::withLimit(double seconds, long long (*body)()) {
    std::packaged_task<long long()> task(body);
    std::future<long long> result = task.get_future();
    {
        const SignalMask mask;  // signals are this thread's
        std::thread(std::move(task)).detach();
    }
    const sigset_t signals = endSignals();
    pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
    const bool returned = result.wait_until(inSeconds(seconds)) == std::future_status::ready;
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    if (!returned) return std::nullopt;
    return result.get();
}
