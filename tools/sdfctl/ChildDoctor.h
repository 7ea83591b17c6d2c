// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "tools/sdfctl/Session.h"

// "doctor" as a command among others: the doctor is a client of its own, which a process has no
// place for beside the session's, so that it runs as another process of this program. Prints the
// session's events meanwhile, and counts a step that fails. Throws Interrupted, and
// std::system_error when no process can be started.
void runChildDoctor(Session& session, double timeout, bool json);
