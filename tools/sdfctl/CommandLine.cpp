// SPDX-License-Identifier: Apache-2.0
#include "tools/sdfctl/CommandLine.h"

#include <lum_sdf_sdk.h>

#include <cstdio>
#include <cstring>

#include "tools/sdfctl/Commands.h"
#include "tools/sdfctl/Completion.h"
#include "tools/sdfctl/Printer.h"

namespace {

constexpr char kAbout[] =
    R"(Tries the data service by hand: issues the functions of liblum_sdf_sdk as commands, and prints
what each returns and each call of a callback.

  sdfctl COMMAND [ARGUMENT...] [then COMMAND...]   one command, or several in one run
  sdfctl <SCRIPT                                   those of standard input, line by line
  sdfctl                                           at a terminal: asks for commands
  sdfctl keep FILE                                 keeps the flows and settings of a file in force
  sdfctl doctor                                    says what keeps the service from working

The client is made before the first request, which waits until the service is up, and destroyed at the
end. A request that is answered waits for its answer.)";

constexpr char kExits[] =
    R"(Exit status: 0 all calls succeeded; 1 a call failed, or the status "internal error" was reported while the
service was up, or the service rejected a filter; 2 the command line or the script is wrong; 3 the service was not
up in time; 4 an answer, an event or the client's end did not come in time; 128 and the signal's number
when ended by SIGINT, SIGTERM or SIGHUP. The first thing that goes wrong counts. For those of doctor see
"sdfctl doctor --help".

Environment, on Linux: LUM_BINDER_DIR, the directory in which services and clients meet; or LUM_BINDER, a
device of the kernel's binder driver, over which they do so instead.)";

// Asked by the shell, which has no use for more than the words.
void printCandidates(const std::string& line) {
    std::string text;
    for (const std::string& candidate : completeLine(line)) text += candidate + "\n";
    if (!text.empty()) Printer(false).help(text);
}

void declare(Arguments& arguments, Settings& settings, bool& noAnswers) {
    arguments.ofProgram("sdfctl (lum SDF) " LUM_SDF_SDK_VERSION);
    arguments.flag("--json", settings.json,
                   "Print one JSON object a line, and nothing else, to standard output");
    declareTimeout(arguments, settings.timeout);
    arguments.flag("--no-answers", noAnswers, "Do not wait for the answers to requests");
    arguments.flag("--manual", settings.manual,
                   "Make no client, and wait for no service, unless a command says so");
}

}  // namespace

std::vector<Arguments::Argument> globalOptions() {
    Arguments arguments("sdfctl", "");
    Settings settings;
    bool ignored = false;
    declare(arguments, settings, ignored);
    return arguments.all();
}

void declareTimeout(Arguments& arguments, double& seconds) {
    arguments.seconds(
        "--timeout", seconds,
        "How long to wait for the service to come up, and for each event (default: 5)");
}

std::optional<Options> parseCommandLine(int argc, char** argv) {
    if (argc == 3 && strcmp(argv[1], "--complete") == 0) {
        printCandidates(argv[2]);
        return std::nullopt;
    }
    Arguments arguments("sdfctl", kAbout, std::string(kExits) + "\n\n" + helpOfAll());
    Options options;
    bool noAnswers = false;
    declare(arguments, options.settings, noAnswers);
    const std::optional<std::string> text = arguments.parse({argv + 1, argv + argc});
    if (text) {
        Printer(false).help(*text);
        return std::nullopt;
    }
    options.settings.answers = !noAnswers;
    options.words = arguments.rest();
    return options;
}
