// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

// The program sdfctl, run to its end.

using Lines = std::vector<std::string>;

struct Outcome {
    int status;
    Lines lines;   // of standard output
    Lines errors;  // of standard error
};

// arguments: separated by spaces; input: what its standard input has; environment: as ChildProcess
// takes it.
Outcome runSdfctl(const std::string& arguments, const Lines& input = {},
                  const Lines& environment = {});

// The command that runs it, for a ChildProcess.
Lines sdfctlCommand(const std::string& arguments);

// Stops a child of this process, as by SIGSTOP, and waits until none of its threads runs any more.
// Returns false when it has ended instead.
bool stopChild(pid_t pid);

// The lines that surround those of the commands, when a client is made and destroyed unasked.
Lines withClient(const Lines& lines);
