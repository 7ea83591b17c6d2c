// SPDX-License-Identifier: Apache-2.0
#include "tools/emulator/CommandLine.h"

#include <lum_sdf_sdk.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <limits>
#include <string>
#include <utility>

#include "tools/emulator/RuleParser.h"
#include "tools/emulator/RuleWords.h"

namespace {

constexpr char kAbout[] =
    R"(Stands in for the device's data service: serves clients of the library liblum_sdf_sdk.

It registers the name vendor.orn.data.lumservice.ILumService, keeps the callback object of each
client until that client disables or dies, and does what is asked of it as a data service would: it
keeps filters and reports their state, reports on priority queues, makes an automatic filter while
high-performance gaming is on. There is no traffic behind it. What is not a request at all is
refused, so that the client learns of it. On demand it misbehaves.
)";

constexpr char kFooter[] =
    R"(Ready: when clients can find the service it prints one line to standard output,
  ready: vendor.orn.data.lumservice.ILumService pid=NNN
Notices about odd requests follow there, one a line, after "notice: ".

Signals:
  SIGTERM, SIGINT  end the service; exit status 0
  SIGUSR1          prints one line to standard output,
                     stats: clients=N descriptors=N threads=N heap_blocks=N filters=N
                   where heap_blocks is the exact number of blocks that operator new has handed
                   out and not got back
  SIGUSR2          prints what is kept for each client, as "sdfctl dump" does, and at the end
                     state: clients=N

Environment, on Linux:
  LUM_BINDER       a device of the kernel's binder driver, to be reached over that. Default: sockets
  LUM_BINDER_DIR   the directory in which services and clients meet. Two emulators can run at
                   once in two of them. Default: $XDG_RUNTIME_DIR/lum-binder, or
                   /tmp/lum-binder-UID
  LUM_DEBUG_LOG=1  as --debug-log

Exit status: 0 when ended by a signal or by --until-eof; 1 when it cannot serve (the name is taken,
the directory or the driver cannot be used, or a file or descriptor cannot be written to), or something that was to be
printed or recorded is lost, as on a full disk; 2 when the command line or a scenario is wrong.

)";

constexpr char kProgram[] = "lum_sdf_emulator";
constexpr int kWrongCommandLine = 2;
constexpr uint32_t kMostMilliseconds = 24 * 60 * 60 * 1000;

// What stays text until all of the command line has been read.
struct Texts {
    std::vector<std::string> scenarios;
    std::vector<std::string> rules;
    std::vector<uid_t> deniedUids;
    uint32_t activationDelay = 0;
    uint32_t inactivityTimeout = 0;
};

void describeOutput(CLI::App& app, Options& options) {
    app.add_flag("--print", options.print,
                 "Print each message received and sent, each client that comes and\n"
                 "goes, and each rule that applies, one line each");
    app.add_option("--record", options.record,
                   "Append each message received and sent to this file, one JSON object\n"
                   "a line: time, direction, pid, uid, type, hex, event, text")
        ->type_name("FILE")
        ->check(
            [](const std::string& path) { return path.empty() ? "A file's name is empty" : ""; });
    app.add_option("--ready-fd", options.readyFd,
                   "Write the line that says it is ready to this descriptor too, and\nclose it")
        ->type_name("N")
        ->check(CLI::Range(0, std::numeric_limits<int>::max()));
    app.add_flag("--until-eof", options.untilEof,
                 "End when standard input ends, for starters that must not leave it\nbehind");
    app.add_flag("--debug-log", options.debugLog,
                 "Show every line of the platform log on standard error, debug lines\nincluded");
}

void describePolicy(CLI::App& app, Options& options, Texts& texts) {
    app.add_option("--filter-limit", options.policy.filterLimit,
                   "Reject filters of a client beyond that many")
        ->type_name("N")
        ->check(CLI::Range(size_t{0}, size_t{1000000}))
        ->capture_default_str();
    app.add_option("--deny-uid", texts.deniedUids, "Reject all filters of this user; repeatable")
        ->type_name("UID")
        ->check(CLI::Range(uid_t{0}, std::numeric_limits<uid_t>::max()))
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    app.add_option("--activation-delay", texts.activationDelay,
                   "Filters are pending for so many milliseconds before they are active")
        ->type_name("MS")
        ->check(CLI::Range(0U, kMostMilliseconds))
        ->capture_default_str();
    app.add_option("--inactivity-timeout", texts.inactivityTimeout,
                   "Filters end when no request has named them for so many\nmilliseconds; 0: never")
        ->type_name("MS")
        ->check(CLI::Range(0U, kMostMilliseconds))
        ->capture_default_str();
}

void describeRules(CLI::App& app, Texts& texts) {
    app.add_option("--rule", texts.rules, "Misbehave by this rule; repeatable. See below")
        ->type_name("RULE")
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    app.add_option("--scenario", texts.scenarios,
                   "Misbehave by the rules in this file; repeatable. See below")
        ->type_name("FILE")
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
}

void append(std::vector<Rule>& rules, const std::vector<Rule>& more) {
    rules.insert(rules.end(), more.begin(), more.end());
}

std::vector<Rule> rulesOf(const Texts& texts) {
    std::vector<Rule> rules;
    for (const std::string& path : texts.scenarios) {
        std::ifstream file(path);
        if (!file) throw RuleError(path + ": " + strerror(errno));
        append(rules, parseScenario(file, path));
        if (file.bad()) throw RuleError(path + ": " + strerror(errno));
    }
    for (size_t i = 0; i < texts.rules.size(); ++i) {
        const std::string where = "--rule " + std::to_string(i + 1);
        rules.push_back(parseRule(texts.rules[i], where));
    }
    return rules;
}

std::string usageError(const CLI::App* /*app*/, const CLI::Error& error) {
    return std::string(kProgram) + ": " + error.what() +
           "\nRun with --help for more information.\n";
}

// What was asked for, and could not be printed, is a failure.
int statusOfPrinting() {
    if (std::cout.flush() && fflush(stdout) == 0) return 0;
    fprintf(stderr, "%s: cannot print: %s\n", kProgram, strerror(errno));
    return 1;
}

}  // namespace

std::optional<Options> parseCommandLine(int argc, char** argv, int* status) try {
    CLI::App app(kAbout, kProgram);
    app.failure_message(usageError);
    app.footer(kFooter + ruleHelp());
    app.set_version_flag("--version", std::string(kProgram) + " (lum SDF) " LUM_SDF_SDK_VERSION,
                         "Print the version and exit");
    Options options;
    Texts texts;
    describeOutput(app, options);
    describePolicy(app, options, texts);
    describeRules(app, texts);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        *status = app.exit(error) == 0 ? statusOfPrinting() : kWrongCommandLine;
        return std::nullopt;
    }
    options.policy.deniedUids.insert(texts.deniedUids.begin(), texts.deniedUids.end());
    options.policy.activationDelay = std::chrono::milliseconds(texts.activationDelay);
    options.policy.inactivityTimeout = std::chrono::milliseconds(texts.inactivityTimeout);
    options.rules = rulesOf(texts);
    return options;
} catch (const RuleError& error) {
    fprintf(stderr, "%s: %s\n", kProgram, error.what());
    *status = kWrongCommandLine;
    return std::nullopt;
}
