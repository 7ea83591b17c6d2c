// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <csignal>
#include <set>
#include <thread>

#include "utils/SignalMask.h"

namespace {

using Signals = std::set<int>;

Signals blockedHere() {
    sigset_t mask;
    pthread_sigmask(SIG_BLOCK, nullptr, &mask);
    Signals blocked;
    for (int signal = 1; signal <= SIGRTMAX; ++signal) {
        if (sigismember(&mask, signal) == 1) blocked.insert(signal);
    }
    return blocked;
}

Signals blockedOnANewThread() {
    Signals blocked;
    std::thread([&] { blocked = blockedHere(); }).join();
    return blocked;
}

TEST(SignalMaskTest, NewThreadsBlockAllButFaultsAndWhatThePlatformKeeps) {
    const SignalMask mask;
    const Signals blocked = blockedOnANewThread();
    for (const int signal : {SIGHUP, SIGINT, SIGQUIT, SIGPIPE, SIGALRM, SIGTERM, SIGUSR1, SIGUSR2,
                             SIGCHLD, SIGWINCH, SIGIO, SIGPROF, SIGRTMIN, SIGRTMIN + 1}) {
        EXPECT_EQ(blocked.count(signal), 1U) << signal;
    }
    Signals open{SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS, SIGABRT};
    for (int signal = 32; signal < SIGRTMIN; ++signal) open.insert(signal);
    for (const int signal : open) EXPECT_EQ(blocked.count(signal), 0U) << signal;
}

TEST(SignalMaskTest, StartingThreadHasItsOwnMaskBack) {
    sigset_t one;
    sigemptyset(&one);
    sigaddset(&one, SIGUSR2);
    ASSERT_EQ(pthread_sigmask(SIG_SETMASK, &one, nullptr), 0);
    { const SignalMask mask; }
    EXPECT_EQ(blockedHere(), Signals{SIGUSR2});
    EXPECT_EQ(blockedOnANewThread(), Signals{SIGUSR2});
}

}  // namespace
