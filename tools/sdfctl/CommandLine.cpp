// SPDX-License-Identifier: Apache-2.0
#include "tools/sdfctl/CommandLine.h"

#include <lum_sdf_sdk.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>

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
  sdfctl doctor                                    tells what keeps the service from working

The client is made before the first request, which waits until the service is up, and destroyed at the
end. A request that is answered waits for its answer.)";

constexpr char kExits[] =
    R"(Exit status: 0 all calls succeeded; 1 a call failed, or a message was refused, or the service told
an internal error or rejected a filter; 2 the command line or the script is wrong; 3 the service was not
up in time; 4 an answer, an event or the client's end did not come in time; 128 and the signal's number
when ended by SIGINT, SIGTERM or SIGHUP. The first thing that goes wrong counts. For those of doctor see
"sdfctl doctor --help".

Environment: LUM_BINDER_DIR, on Linux: the folder in which services and clients meet.)";

// Returns nothing for other text.
std::optional<double> secondsOf(const std::string& text) {
    double seconds = 0;
    if (!CLI::detail::lexical_cast(text, seconds) || !(seconds >= 0)) return std::nullopt;
    return seconds;
}

double readSeconds(const std::string& name, const std::string& text) {
    const std::optional<double> seconds = secondsOf(text);
    if (seconds) return *seconds;
    throw CLI::ValidationError(name, "\"" + text + "\" is not a number of seconds");
}

// CLI11 takes "--wait=" for "--wait", and for "--timeout=" the word behind it.
void refuseEmptySeconds(int argc, char** argv) {
    for (const std::string name : {"--wait", "--timeout"}) {
        const auto isIt = [&](const char* text) { return text == name + "="; };
        if (std::any_of(argv, argv + argc, isIt)) (void)readSeconds(name, "");
    }
}

// CLI11 shows what a flag stands for without a value, and not that it takes one.
class HelpFormatter : public CLI::Formatter {
    std::string make_option_name(const CLI::Option* option, bool isPositional) const override {
        if (option->check_lname("wait")) return "--wait[=SECONDS]";
        return CLI::Formatter::make_option_name(option, isPositional);
    }
};

// Asked by the shell, which has no use for more than the words.
void printCandidates(const std::string& line) {
    std::string text;
    for (const std::string& candidate : completeLine(line)) text += candidate + "\n";
    if (!text.empty()) Printer(false).help(text);
}

// What stays text, or is not for the session.
struct Texts {
    std::string wait;
    std::optional<std::string> toComplete;
};

void describe(CLI::App& app, Settings& settings, Texts& texts) {
    app.prefix_command();
    app.formatter(std::make_shared<HelpFormatter>());
    app.footer(std::string(kExits) + "\n\n" + helpOfAll());
    app.set_version_flag("--version", "sdfctl (lum SDF) " LUM_SDF_SDK_VERSION,
                         "Print the version and exit");
    app.add_flag("--json", settings.json,
                 "Print one JSON object a line, and nothing else, to standard output");
    app.add_flag("--wait{0}", texts.wait,
                 "Keep asking until the service is up; with SECONDS: no longer than that");
    declareTimeout(app, settings.timeout);
    app.add_flag_callback(
        "--no-answers", [&settings] { settings.answers = false; },
        "Do not wait for the answers to requests");
    app.add_flag("--manual", settings.manual,
                 "Make no client, and wait for no service, unless told by a command");
    app.add_option("--complete", texts.toComplete)->group("");  // in no list
}

}  // namespace

std::vector<Arguments::Argument> globalOptions() {
    CLI::App app;
    Settings settings;
    Texts texts;
    describe(app, settings, texts);
    std::vector<Arguments::Argument> all;
    for (const CLI::Option* const option : app.get_options()) {
        if (option->get_group().empty()) continue;
        const bool takesValue = option->get_items_expected_max() > 0;
        all.push_back({"--" + option->get_lnames().front(), takesValue, false, {}});
    }
    return all;
}

bool isSeconds(const std::string& text) {
    return secondsOf(text).has_value();
}

void declareTimeout(CLI::App& app, double& seconds) {
    app.add_option_function<std::string>(
           "--timeout",
           [&seconds](const std::string& text) { seconds = readSeconds("--timeout", text); },
           "How long to wait for the service to come up, and for each event (default: 5)")
        ->type_name("SECONDS");
}

std::optional<Options> parseCommandLine(int argc, char** argv, int* status) {
    CLI::App app(kAbout, "sdfctl");
    Options options;
    Texts texts;
    describe(app, options.settings, texts);
    try {
        refuseEmptySeconds(argc, argv);
        app.parse(argc, argv);
        if (!texts.wait.empty()) options.settings.wait = readSeconds("--wait", texts.wait);
    } catch (const CLI::CallForHelp&) {
        Printer(false).help(app.help());
        *status = kExitSuccess;
        return std::nullopt;
    } catch (const CLI::CallForVersion& version) {
        Printer(false).help(version.what());
        *status = kExitSuccess;
        return std::nullopt;
    } catch (const CLI::ParseError& error) {
        fprintf(stderr, "sdfctl: %s\n", printable(error.what()).c_str());
        *status = kExitUsage;
        return std::nullopt;
    }
    if (texts.toComplete) {
        printCandidates(*texts.toComplete);
        *status = kExitSuccess;
        return std::nullopt;
    }
    options.words = app.remaining();
    return options;
}
