// SPDX-License-Identifier: Apache-2.0
//
// sdfctl: the client library's functions as commands, to try the interface or a service by hand.
// Its help and its manual page say how it is used.

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <exception>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include "tools/sdfctl/CommandLine.h"
#include "tools/sdfctl/Commands.h"
#include "tools/sdfctl/Printer.h"
#include "tools/sdfctl/Programs.h"
#include "tools/sdfctl/Prompt.h"
#include "tools/sdfctl/Session.h"

namespace {

// A standard stream that is closed leaves its number to whatever is opened next: lines would go to
// the service, and the end of the input would never come. What is opened here in its place fails
// when it is used.
void holdStandardStreams() {
    for (int fd = STDIN_FILENO; fd >= 0 && fd <= STDERR_FILENO;) {
        const int unusable = fd == STDIN_FILENO ? O_WRONLY : O_RDONLY;
        fd = fcntl(fd, F_GETFD) >= 0 ? fd + 1 : open("/dev/null", unusable);
    }
}

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

// Runs it, then destroys the client. Returns the exit status.
template <typename Body>
int runToTheEnd(Session& session, const Body& body) {
    try {
        body();
    } catch (const Quit&) {
    } catch (const Failure& failure) {
        session.complain(failure);
    } catch (const Interrupted& interrupted) {
        session.finish();
        return kExitSignal + interrupted.signal;
    }
    session.finish();
    return session.exitStatus();
}

int run(const Options& options) {
    const std::vector<std::string>& words = options.words;
    const Program* const program = words.empty() ? nullptr : findProgram(words[0]);
    if (program != nullptr) {
        return runProgram(*program, {words.begin() + 1, words.end()}, options.settings);
    }
    const bool atTerminal = options.words.empty() && canPrompt();
    Settings settings = options.settings;
    if (atTerminal) settings.answers = false;  // the user sees them come
    Session session(settings);
    if (atTerminal) {
        const int status = runToTheEnd(session, [&] {
            promptForLines(session,
                           [&](const std::string& line) { runWords(session, splitLine(line)); });
        });
        return status > kExitSignal ? status : kExitSuccess;  // what went wrong has been seen
    }
    return runToTheEnd(session,
                       [&] { words.empty() ? runLines(session) : runWords(session, words); });
}

}  // namespace

int main(int argc, char** argv) try {
    holdStandardStreams();
    const std::optional<Options> options = parseCommandLine(argc, argv);
    return options ? run(*options) : kExitSuccess;
} catch (const Interrupted& interrupted) {
    return kExitSignal + interrupted.signal;
} catch (const UsageError& error) {
    fprintf(stderr, "sdfctl: %s\n", printable(error.what()).c_str());
    return kExitUsage;
} catch (const std::exception& error) {
    fprintf(stderr, "sdfctl: %s\n", printable(error.what()).c_str());
    return kExitCallFailed;
}
