// SPDX-License-Identifier: Apache-2.0
#pragma once

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
