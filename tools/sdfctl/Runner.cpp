// SPDX-License-Identifier: Apache-2.0
#include "tools/sdfctl/Runner.h"

#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <system_error>

#include "tools/sdfctl/Commands.h"
#include "tools/sdfctl/Terminal.h"

namespace {

// Standard input, line by line.
class Input {
  public:
    // Returns false at the end. Prints events while it waits. Throws UsageError for a line that
    // does not end.
    bool nextLine(Session& session, std::string& line) {
        for (;;) {
            const size_t end = mRest.find('\n');
            if (end != std::string::npos || (mEnded && !mRest.empty())) {
                line = mRest.substr(0, end);
                mRest.erase(0, end == std::string::npos ? end : end + 1);
                return true;
            }
            if (mEnded) return false;
            if (mRest.size() > kLongestLine) {
                throw UsageError("longer than " + std::to_string(kLongestLine) + " bytes");
            }
            if (session.inputReady(STDIN_FILENO)) readSome();
        }
    }

  private:
    static constexpr size_t kLongestLine = size_t{1024} * 1024;

    void readSome() {
        char text[4096];
        const ssize_t length = read(STDIN_FILENO, text, sizeof text);
        if (length < 0 && errno != EINTR && errno != EAGAIN) {
            throw std::system_error(errno, std::generic_category(), "standard input");
        }
        if (length > 0) mRest.append(text, static_cast<size_t>(length));
        mEnded = length == 0;
    }

    std::string mRest;
    bool mEnded = false;
};

void runWords(Session& session, const std::vector<std::string>& words) {
    for (const Action& action : readCommands(words)) action(session);
}

void runLines(Session& session) {
    Input input;
    for (int number = 1;; ++number) {
        try {
            std::string line;
            if (!input.nextLine(session, line)) return;
            runWords(session, splitLine(line));
        } catch (const UsageError& error) {
            throw UsageError("line " + std::to_string(number) + ": " + error.what());
        }
    }
}

// Whatever is wrong with one line, there is a next one. A user's SIGINT only ends what is being
// waited for, or the line being typed.
void askForLines(Session& session) {
    Terminal terminal(session);
    for (;;) {
        try {
            std::string line;
            if (!terminal.nextLine(line)) return;
            runWords(session, splitLine(line));
        } catch (const Failure& failure) {
            session.complain(failure);
        } catch (const Interrupted& interrupted) {
            if (interrupted.signal != SIGINT) throw;
            fputs("\n", stderr);
        }
    }
}

// Runs it, then destroys the client.
template <typename Body>
int runToTheEnd(Session& session, const Body& body) {
    try {
        try {
            body();
        } catch (const Quit&) {
        } catch (const Failure& failure) {
            session.complain(failure);
        }
        session.judge();
    } catch (const Interrupted& interrupted) {
        session.finish();
        return kExitSignal + interrupted.signal;
    }
    session.finish();
    return session.exitStatus();
}

}  // namespace

int runCommands(Session& session, const std::vector<std::string>& words) {
    return runToTheEnd(session, [&] { runWords(session, words); });
}

int runScript(Session& session) {
    return runToTheEnd(session, [&] { runLines(session); });
}

int runTerminal(Session& session) {
    const int status = runToTheEnd(session, [&] { askForLines(session); });
    return status > kExitSignal ? status : kExitSuccess;  // what went wrong has been seen
}
