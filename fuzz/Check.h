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

// what: what has these two values.
template <typename Value>
void checkEqual(const char* what, Value found, Value expected) {
    if (found == expected) return;
    fail(what + (" is " + std::to_string(found)) + " and not " + std::to_string(expected));
}
