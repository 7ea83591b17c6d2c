// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tools/sdfctl/Arguments.h"
#include "tools/sdfctl/Session.h"

// What the command line asks for.
struct Options {
    Settings settings;
    std::vector<std::string> words;  // the commands and their arguments
};

// Reads it. Returns nothing when there is nothing to run, and what there was to say has been said.
// Throws UsageError.
std::optional<Options> parseCommandLine(int argc, char** argv);

// The options that stand before the commands.
std::vector<Arguments::Argument> globalOptions();

// Declares the option --timeout. seconds: filled when it is read.
void declareTimeout(Arguments& arguments, double& seconds);
