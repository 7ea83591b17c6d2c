// SPDX-License-Identifier: Apache-2.0
// The commands that issue no request: those of the client's life and those of the run.

#include <algorithm>
#include <memory>

#include "tools/sdfctl/Callbacks.h"
#include "tools/sdfctl/CommandLine.h"
#include "tools/sdfctl/Commands.h"
#include "tools/sdfctl/Dump.h"
#include "tools/sdfctl/Programs.h"

namespace {

// A command that makes the client. body: with whether the callback is to be null.
Action making(Arguments& arguments, void (*body)(Session&, bool)) {
    const auto null = std::make_shared<bool>(false);
    arguments.flag("--null-callback", *null, "Give the library a null callback");
    return [null, body](Session& session) {
        body(session, *null);
        if (session.settings().answers) session.serviceUp();
    };
}

Action create(Arguments& arguments) {
    return making(arguments, [](Session& session, bool null) { session.create(null); });
}

Action enable(Arguments& arguments) {
    return making(arguments, [](Session& session, bool null) { session.enable(null); });
}

Action destroy(Arguments& /*arguments*/) {
    return [](Session& session) { session.destroy(); };
}

Action disable(Arguments& /*arguments*/) {
    return [](Session& session) { session.disable(); };
}

const std::vector<std::string>& waitedFor() {
    static const std::vector<std::string> names = [] {
        std::vector<std::string> all{"up", "down"};
        all.insert(all.end(), callbacks::names().begin(), callbacks::names().end());
        return all;
    }();
    return names;
}

constexpr int64_t kMostMilliseconds = 1000LL * 3600 * 24;

struct WaitValues {
    std::string what;
    std::string value;  // empty: any
};

void waitFor(Session& session, const WaitValues& values) {
    int64_t milliseconds = 0;
    if (readNumber(values.what, 0, kMostMilliseconds, milliseconds)) {
        session.pause(static_cast<double>(milliseconds) / 1000);
    } else if (values.what == "up") {
        session.expectUp();
    } else if (values.what == "down") {
        session.expectDown();
    } else {
        session.expect(values.what, values.value);
    }
}

bool isOneOf(const std::vector<std::string>& names, const std::string& text) {
    return std::find(names.begin(), names.end(), text) != names.end();
}

bool isWaitedFor(const std::string& text) {
    int64_t ignored = 0;
    return readNumber(text, 0, kMostMilliseconds, ignored) || isOneOf(waitedFor(), text);
}

Action wait(Arguments& arguments) {
    const auto values = std::make_shared<WaitValues>();
    const std::string names = listOf(waitedFor());
    arguments.text("WHAT", values->what, waitedFor(), "a number of milliseconds or one of " + names,
                   "Milliseconds, or one of " + names, isWaitedFor);
    // Arguments are read in their order: the event is known by then.
    const auto hasValues = [values](const std::string&) {
        return isOneOf(callbacks::names(), values->what);
    };
    arguments.text("VALUE", values->value, textsOf(filterStatusWords()),
                   "taken behind a number, up or down",
                   "What one of the event's values must be; of a filter's status one of " +
                       listOf(filterStatusWords()),
                   hasValues, false);
    return [values](Session& session) { waitFor(session, *values); };
}

Action sleepFor(Arguments& arguments) {
    const auto milliseconds = std::make_shared<uint32_t>();
    arguments.number("MS", *milliseconds, "Milliseconds");
    return [milliseconds](Session& session) { session.pause(*milliseconds / 1000.0); };
}

Action status(Arguments&) {
    return [](Session& session) { session.printStatus(); };
}

Action help(Arguments& arguments) {
    const auto name = std::make_shared<std::string>();
    std::vector<std::string> names;
    for (const Command& command : commands()) names.emplace_back(command.name);
    for (const Program& program : programs()) names.emplace_back(program.name);
    arguments.text(
        "COMMAND", *name, names, "a command", "What to explain",
        [names](const std::string& text) { return isOneOf(names, text); }, false);
    return [name](Session& session) {
        session.printer().help(name->empty() ? helpOfAll() : helpOf(*name));
    };
}

Action dump(Arguments& arguments) {
    struct Values {
        bool json = false;
        double timeout = -1;  // that of the run
    };
    const auto values = std::make_shared<Values>();
    arguments.flag("--json", values->json, "Print one JSON object");
    declareTimeout(arguments, values->timeout);
    return [values](Session& session) {
        const Settings& settings = session.settings();
        runDump(session, values->timeout >= 0 ? values->timeout : settings.timeout,
                values->json || settings.json);
    };
}

Action quit(Arguments&) {
    return [](Session&) { throw Quit{}; };
}

}  // namespace

std::vector<Command> lifecycleCommands() {
    return {
        {"create", "createSdfClient(): make the client, or ask for the service again", create},
        {"destroy", "destroySdfClient(): destroy the client", destroy},
        {"enable", "lum_sdf_enable(): \"create\" with the older status codes", enable},
        {"disable", "lum_sdf_disable(): \"destroy\" with the older results", disable},
    };
}

std::vector<Command> sessionCommands() {
    return {
        {"wait", "Wait for an event, or for milliseconds, printing what comes", wait},
        {"sleep", "Wait for milliseconds, printing what comes", sleepFor},
        {"status", "Say what is known of client and service", status},
        {"dump", "Print what the service keeps for its clients", dump},
        {"help", "List the commands, or explain one", help},
        {"?", "The same as help", help},
        {"quit", "End, as at the end of the input", quit},
        {"exit", "The same as quit", quit},
    };
}
