// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "tools/sdfctl/Arguments.h"
#include "tools/sdfctl/Session.h"

// What a command does once its arguments are known.
using Action = std::function<void(Session&)>;

struct Command {
    const char* name;
    const char* about;
    Action (*declare)(Arguments&);  // declares the arguments; the action has them when it runs
};

// All commands: those of the client's life, the requests, and those of the run.
const std::vector<Command>& commands();
std::vector<Command> lifecycleCommands();
std::vector<Command> requestCommands();
std::vector<Command> sessionCommands();

// The command of that name, or null.
const Command* findCommand(const std::string& name);

// The arguments of a command, in the order of declaration.
std::vector<Arguments::Argument> argumentsOf(const Command& command);

// Thrown by "quit".
struct Quit {};

// Reads commands: each begins with its name, and the word "then" stands between two of them. All of
// them are read before the first one is run. Throws UsageError, which names command and argument.
std::vector<Action> readCommands(const std::vector<std::string>& words);

// The words of a line; from a word that begins with '#' on it is a comment.
std::vector<std::string> splitLine(const std::string& line);

// What the user should know of a command, or of what stands alone on the command line.
std::string helpOf(const std::string& name);
// The list of all of them.
std::string helpOfAll();
