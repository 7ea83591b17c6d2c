// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <pthread.h>
#include <signal.h>

#include <initializer_list>

// While it lives, threads that this one starts begin with every signal blocked that a program
// handles on purpose: an application's handlers never run on a thread of the library.
//
// Left open are the signals of a fault, so that a crash there reaches the process's crash handler,
// and the real-time signals that the C library keeps for itself, below SIGRTMIN: on a device those
// of the debugger and the profilers are among them.
class SignalMask {
  public:
    SignalMask() {
        sigset_t blocked;
        sigfillset(&blocked);
        for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS, SIGABRT}) {
            sigdelset(&blocked, fault);
        }
        constexpr int kFirstRealTime = 32;
        for (int kept = kFirstRealTime; kept < SIGRTMIN; ++kept) sigdelset(&blocked, kept);
        pthread_sigmask(SIG_SETMASK, &blocked, &mBefore);
    }
    ~SignalMask() { pthread_sigmask(SIG_SETMASK, &mBefore, nullptr); }
    SignalMask(const SignalMask&) = delete;
    SignalMask& operator=(const SignalMask&) = delete;

  private:
    sigset_t mBefore{};
};
