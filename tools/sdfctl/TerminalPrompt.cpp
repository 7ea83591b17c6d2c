// SPDX-License-Identifier: Apache-2.0
#include <csignal>
#include <cstdio>

#include "tools/sdfctl/Prompt.h"
#include "tools/sdfctl/Terminal.h"

bool canPrompt() {
    return Terminal::isThere();
}

// A user's SIGINT only ends what is being waited for, or the line being typed.
void promptForLines(Session& session, const std::function<void(const std::string& line)>& run) {
    Terminal terminal(session);
    for (;;) {
        try {
            std::string line;
            if (!terminal.nextLine(line)) return;
            run(line);
        } catch (const Failure& failure) {
            session.complain(failure);
        } catch (const Interrupted& interrupted) {
            if (interrupted.signal != SIGINT) throw;
            fputs("\n", stderr);
        }
    }
}
