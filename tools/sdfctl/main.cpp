// SPDX-License-Identifier: Apache-2.0
//
// sdfctl: the client library's functions as commands, to try the interface or a service by hand.
// Its help and its manual page say how it is used.

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <exception>
#include <optional>

#include "tools/sdfctl/CommandLine.h"
#include "tools/sdfctl/Doctor.h"
#include "tools/sdfctl/Printer.h"
#include "tools/sdfctl/Runner.h"
#include "tools/sdfctl/Session.h"
#include "tools/sdfctl/Terminal.h"

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

int run(const Options& options) {
    const std::vector<std::string>& words = options.words;
    // Alone it needs no process of its own.
    if (!words.empty() && words[0] == "doctor" &&
        std::find(words.begin(), words.end(), "then") == words.end()) {
        return runDoctor({words.begin() + 1, words.end()}, options.settings);
    }
    const bool atTerminal = options.words.empty() && Terminal::isThere();
    Settings settings = options.settings;
    if (atTerminal) settings.answers = false;  // the user sees them come
    Session session(settings);
    if (!options.words.empty()) return runCommands(session, options.words);
    return atTerminal ? runTerminal(session) : runScript(session);
}

}  // namespace

int main(int argc, char** argv) try {
    holdStandardStreams();
    int status = kExitSuccess;
    const std::optional<Options> options = parseCommandLine(argc, argv, &status);
    return options ? run(*options) : status;
} catch (const Interrupted& interrupted) {
    return kExitSignal + interrupted.signal;
} catch (const std::exception& error) {
    fprintf(stderr, "sdfctl: %s\n", printable(error.what()).c_str());
    return kExitCallFailed;
}
