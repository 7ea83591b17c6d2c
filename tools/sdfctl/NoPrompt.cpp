// SPDX-License-Identifier: Apache-2.0
// For systems without a line editor: what a user types is a script there.
#include "tools/sdfctl/Prompt.h"

bool canPrompt() {
    return false;
}

void promptForLines(Session&, const std::function<void(const std::string& line)>&) {}
