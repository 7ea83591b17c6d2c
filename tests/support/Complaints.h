// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <cstdio>
#include <cstdlib>
#include <string>

// Lets the driver's log complain about a process that is to misbehave, and have this text beside.
// A complaint about any other process fails a test in the virtual machine.
inline void allowComplaints(pid_t pid, const std::string& text) {
    const char* const file = getenv("LUM_HARMLESS_COMPLAINTS");
    FILE* const harmless = file == nullptr ? nullptr : fopen(file, "a");
    if (harmless == nullptr) return;
    fprintf(harmless, "binder_linux: %d:\n%s\n", pid, text.c_str());
    fclose(harmless);
}
