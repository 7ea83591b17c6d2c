// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "tools/sdfctl/Session.h"

// "dump": has the service write down its state, as dumpsys does on a device, and prints that. Needs
// no client. Prints the session's events meanwhile.
// timeout: seconds for all of it; json: whether to ask for an object instead of text.
// Throws NotUp when nobody serves the service's name, Failure when the service fails or does not
// come to its end in time, and Interrupted.
void runDump(Session& session, double timeout, bool json);
