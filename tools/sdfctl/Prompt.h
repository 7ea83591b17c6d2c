// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <string>

#include "tools/sdfctl/Session.h"

// Whether there is a user at a terminal to be asked for commands.
bool canPrompt();

// Asks for commands, line by line, until the user has no more. Whatever is wrong with one line is
// reported, and there is a next one.
// run: carries out a line; may throw. session: must outlive the call.
void promptForLines(Session& session, const std::function<void(const std::string& line)>& run);
