// SPDX-License-Identifier: Apache-2.0
//
// sdfctl: the client library's functions as commands, to try the interface or a service by hand.
// Its help and its manual page say how it is used.

#include <fcntl.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <limits>
#include <string>
#include <vector>

#include "tools/sdfctl/Commands.h"
#include "tools/sdfctl/Doctor.h"
#include "tools/sdfctl/Printer.h"
#include "tools/sdfctl/Runner.h"
#include "tools/sdfctl/Session.h"
#include "tools/sdfctl/Terminal.h"

namespace {

constexpr char kAbout[] =
    R"(Tries the data service by hand: issues the functions of liblum_sdf_sdk as commands, and prints
what each returns and each call of a callback.

  sdfctl COMMAND [ARGUMENT...] [then COMMAND...]   one command, or several in one run
  sdfctl <SCRIPT                                   those of standard input, line by line
  sdfctl                                           at a terminal: asks for commands
  sdfctl doctor                                    tells what keeps the service from working

The client is made before the first request, which waits until the service is up, and destroyed at the
end. A request that is answered waits for its answer.)";

constexpr char kExits[] =
    R"(Exit status: 0 all calls succeeded; 1 a call failed, or a message was refused, or the service told
an internal error or rejected a filter; 2 the command line or the script is wrong; 3 the service was not
up in time; 4 an answer or an event did not come in time; 128 and the signal's number when ended by
SIGINT, SIGTERM or SIGHUP. The first thing that goes wrong counts. For those of doctor see
"sdfctl doctor --help".

Environment: LUM_BINDER_DIR, on Linux: the folder in which services and clients meet.)";

struct Options {
    Settings settings;
    std::string wait;
    std::vector<std::string> words;
};

double readSeconds(const std::string& name, const std::string& text) {
    double seconds = 0;
    if (!CLI::detail::lexical_cast(text, seconds) || !(seconds >= 0)) {
        throw CLI::ValidationError(name, "\"" + text + "\" is not a number of seconds");
    }
    return seconds;
}

// CLI11 takes "--wait=" for "--wait", and for "--timeout=" the word behind it.
void refuseEmptySeconds(int argc, char** argv) {
    for (const std::string name : {"--wait", "--timeout"}) {
        const auto isIt = [&](const char* text) { return text == name + "="; };
        if (std::any_of(argv, argv + argc, isIt)) (void)readSeconds(name, "");
    }
}

void describe(CLI::App& app, Options& options) {
    app.prefix_command();
    app.footer(std::string(kExits) + "\n\n" + helpOfAll());
    app.add_flag("--json", options.settings.json,
                 "Print one JSON object a line, and nothing else, to standard output");
    app.add_flag("--wait{0}", options.wait,
                 "Keep asking until the service is up; --wait=SECONDS: no longer than that");
    app.add_option_function<std::string>(
           "--timeout",
           [&options](const std::string& text) {
               options.settings.timeout = readSeconds("--timeout", text);
           },
           "How long to wait for the service to come up, and for each event (default: 5)")
        ->type_name("SECONDS");
    app.add_flag_callback(
        "--no-answers", [&options] { options.settings.answers = false; },
        "Do not wait for the answers to requests");
    app.add_flag("--manual", options.settings.manual,
                 "Make no client, and wait for no service, unless told by a command");
}

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
    if (!options.words.empty() && options.words[0] == "doctor") {
        return runDoctor({options.words.begin() + 1, options.words.end()}, options.settings);
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
    CLI::App app(kAbout, "sdfctl");
    Options options;
    describe(app, options);
    try {
        refuseEmptySeconds(argc, argv);
        app.parse(argc, argv);
        if (!options.wait.empty()) options.settings.wait = readSeconds("--wait", options.wait);
    } catch (const CLI::CallForHelp&) {
        Printer(false).help(app.help());
        return kExitSuccess;
    } catch (const CLI::ParseError& error) {
        fprintf(stderr, "sdfctl: %s\n", printable(error.what()).c_str());
        return kExitUsage;
    }
    options.words = app.remaining();
    return run(options);
} catch (const Interrupted& interrupted) {
    return kExitSignal + interrupted.signal;
} catch (const std::exception& error) {
    fprintf(stderr, "sdfctl: %s\n", printable(error.what()).c_str());
    return kExitCallFailed;
}
