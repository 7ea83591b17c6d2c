// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tools/emulator/Filters.h"
#include "tools/emulator/Rule.h"

// What the command line says.
struct Options {
    bool print = false;
    bool debugLog = false;
    bool untilEof = false;
    int readyFd = -1;
    std::string record;
    Policy policy;
    std::vector<Rule> rules;
};

// Understands the command line. Returns nothing when the program is to end at once, with *status:
// 0 after it has been helped, another number when the command line or a scenario is wrong; that has
// been said on standard error then.
std::optional<Options> parseCommandLine(int argc, char** argv, int* status);
