// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <cstdint>

// What a process holds and has used so far, as the kernel has it. All 0 when there is no such
// process.
struct ProcessFigures {
    int64_t memory = 0;       // bytes of its own in memory, without what it shares
    int64_t descriptors = 0;  // open
    int64_t threads = 0;
    int64_t processorMs = 0;  // time on a processor, of all threads, also those that ended
    int64_t wakeUps = 0;      // how often the threads that it has now have gone to sleep

    static ProcessFigures of(pid_t pid);
    // wakeUps alone, without those of one thread.
    static int64_t wakeUpsOf(pid_t pid, pid_t except = 0);
};
