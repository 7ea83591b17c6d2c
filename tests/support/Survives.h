// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <stdexcept>
#include <string>
#include <system_error>

// Whether the processor, or what emulates it, knows the instructions with which the call is made:
// tried in a child process, which an unknown one ends. For tests that have to be skipped without.
// Throws when no process can be made, or when it ends for any other reason.
template <typename Call>
bool survives(const Call& call) {
    constexpr int kUnknown = 77;
    const pid_t child = fork();
    if (child < 0) throw std::system_error(errno, std::generic_category(), "fork");
    if (child == 0) {
        // An end like any other, which leaves no core file.
        signal(SIGILL, [](int /*signal*/) { _exit(kUnknown); });
        call();
        _exit(0);
    }
    int status = -1;
    if (waitpid(child, &status, 0) != child) {
        throw std::system_error(errno, std::generic_category(), "waitpid");
    }
    if (!WIFEXITED(status) || (WEXITSTATUS(status) != 0 && WEXITSTATUS(status) != kUnknown)) {
        throw std::runtime_error("the call ends its process with " + std::to_string(status));
    }
    return WEXITSTATUS(status) == 0;
}
