// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>

constexpr int kFaultExit = 43;

// Installs a crash handler that ends this process with kFaultExit.
inline void exitAtFault() {
    (void)signal(SIGSEGV, [](int) { _exit(kFaultExit); });
}

// Writes where nothing may be written.
inline void causeFault() {
    void* const page = mmap(nullptr, 1, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (page == MAP_FAILED) abort();
    *static_cast<volatile char*>(page) = 1;
}
