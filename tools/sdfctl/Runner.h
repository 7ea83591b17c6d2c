// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include "tools/sdfctl/Session.h"

// Runs the commands of the command line, then destroys the client. Returns the exit status.
int runCommands(Session& session, const std::vector<std::string>& words);

// The same for those that standard input has, one line at a time; ends at the first line that is
// wrong.
int runScript(Session& session);

// The same at a terminal, where what is wrong is told and the next line asked for. Returns success
// unless ended by a signal.
int runTerminal(Session& session);
