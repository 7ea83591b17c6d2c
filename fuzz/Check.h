// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <poll.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <string>

// What a target finds wrong ends the process, which libFuzzer reports with the input.
[[noreturn]] inline void fail(const std::string& what) {
    fprintf(stderr, "fuzz: %s\n", what.c_str());
    abort();
}

inline void check(bool holds, const char* what) {
    if (!holds) fail(what);
}

// what: what has these two values.
template <typename Value>
void checkEqual(const char* what, Value found, Value expected) {
    if (found == expected) return;
    fail(what + (" is " + std::to_string(found)) + " and not " + std::to_string(expected));
}

// How many descriptors this process has open, of the lowest numbers.
inline size_t openDescriptors() {
    std::array<pollfd, 512> all{};
    int number = 0;
    for (pollfd& each : all) each.fd = number++;
    poll(all.data(), all.size(), 0);
    return static_cast<size_t>(std::count_if(
        all.begin(), all.end(), [](const pollfd& each) { return (each.revents & POLLNVAL) == 0; }));
}
