// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

// Whether the processor, or what emulates it, knows the instructions with which the call is made:
// tried in a child process, which an unknown one ends. For tests that have to be skipped without.
template <typename Call>
bool survives(const Call& call) {
    const pid_t child = fork();
    if (child < 0) return false;
    if (child == 0) {
        // An end like any other, which leaves no core file.
        signal(SIGILL, [](int /*signal*/) { _exit(1); });
        call();
        _exit(0);
    }
    int status = -1;
    return waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}
