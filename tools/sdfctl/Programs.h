// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "tools/sdfctl/Arguments.h"
#include "tools/sdfctl/Session.h"

// What stands alone on the command line, since it is a client of another kind than the commands.
struct Program {
    const char* name;
    const char* about;    // on one line
    const char* details;  // above its arguments in its help
    const char* footer;   // below them
    // Declares its arguments. What is returned has them when it is run; it returns the exit status.
    std::function<int(const Settings&)> (*declare)(Arguments&);
};

const std::vector<Program>& programs();

// The program of that name, or null.
const Program* findProgram(const std::string& name);

// Its arguments, in the order of declaration, and its help.
std::vector<Arguments::Argument> argumentsOf(const Program& program);
std::string helpOf(const Program& program);

// Reads the arguments and runs it. settings: those of sdfctl itself. Returns the exit status.
// Throws UsageError and Interrupted.
int runProgram(const Program& program, const std::vector<std::string>& words, Settings settings);

// "doctor": says what stands between the user and a working service, step by step.
Program doctorProgram();
// "keep" and "watch": keep the flows and settings of a file with the service.
Program keepProgram();
Program watchProgram();
