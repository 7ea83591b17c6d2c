// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <system_error>

// Whether the processor, or what emulates it, knows the instructions with which the call is made:
// tried in a child process, which an unknown one ends. For tests that have to be skipped without.
// Throws std::system_error when there is no process to be had.
template <typename Call>
bool survives(const Call& call) {
    const pid_t child = fork();
    if (child < 0) throw std::system_error(errno, std::generic_category(), "fork");
    if (child == 0) {
        // An end like any other, which leaves no core file.
        signal(SIGILL, [](int /*signal*/) { _exit(1); });
        call();
        _exit(0);
    }
    int status = -1;
    return waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}
