// SPDX-License-Identifier: Apache-2.0
#include <algorithm>

#include "tools/sdfctl/ChildDoctor.h"
#include "tools/sdfctl/CommandLine.h"
#include "tools/sdfctl/Requests.h"

namespace {

const std::vector<std::string>& waitedFor() {
    static const std::vector<std::string> names{
        "up",          "down",         "status",        "legacy-status",
        "levels",      "filter-added", "filter-listed", "filter-status",
        "auto-filter", "queue-report", "queue-answer"};
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

bool isNamed(const std::string& text) {
    const std::vector<std::string>& names = waitedFor();
    return std::find(names.begin(), names.end(), text) != names.end();
}

bool isEvent(const std::string& text) {
    return text != "up" && text != "down" && isNamed(text);
}

bool isWaitedFor(const std::string& text) {
    int64_t ignored = 0;
    return readNumber(text, 0, kMostMilliseconds, ignored) || isNamed(text);
}

Action wait(Arguments& arguments) {
    const auto values = valuesOf<WaitValues>();
    std::string names;
    for (const std::string& name : waitedFor()) names += (names.empty() ? "" : ", ") + name;
    arguments.text("WHAT", values->what, waitedFor(), "a number of milliseconds or one of " + names,
                   "Milliseconds, or one of " + names, isWaitedFor);
    // Arguments are read in their order: the event is known by then.
    const auto hasValues = [values](const std::string&) { return isEvent(values->what); };
    arguments.optionalText("VALUE", values->value, textsOf(filterStatusWords()),
                           "taken behind a number, up or down",
                           "What one of the event's values must be; of a filter's status one of " +
                               listOf(filterStatusWords()),
                           hasValues);
    return [values](Session& session) { waitFor(session, *values); };
}

Action sleepFor(Arguments& arguments) {
    const auto milliseconds = valuesOf<uint32_t>();
    arguments.number("MS", *milliseconds, "Milliseconds");
    return [milliseconds](Session& session) { session.pause(*milliseconds / 1000.0); };
}

Action status(Arguments&) {
    return [](Session& session) { session.printStatus(); };
}

Action help(Arguments& arguments) {
    const auto name = valuesOf<std::string>();
    std::vector<std::string> names;
    for (const Command& command : commands()) names.emplace_back(command.name);
    arguments.optionalText("COMMAND", *name, names, "a command", "What to explain",
                           [](const std::string& text) { return findCommand(text) != nullptr; });
    return [name](Session& session) {
        const Command* const command = findCommand(*name);
        session.printer().help(command == nullptr ? helpOfAll() : helpOf(*command));
    };
}

Action doctor(Arguments& arguments) {
    struct Values {
        bool json = false;
        std::string timeout;
    };
    const auto values = valuesOf<Values>();
    arguments.flag("--json", values->json, "Print one JSON object a step");
    arguments.text("--timeout", values->timeout, {}, "a number of seconds",
                   "How long to wait in each step", isSeconds);
    return [values](Session& session) {
        const Settings& settings = session.settings();
        std::vector<std::string> options{"--timeout", values->timeout};
        if (values->timeout.empty()) options[1] = std::to_string(settings.timeout);
        if (values->json || settings.json) options.emplace_back("--json");
        runChildDoctor(session, options);
    };
}

Action quit(Arguments&) {
    return [](Session&) { throw Quit{}; };
}

}  // namespace

std::vector<Command> sessionCommands() {
    return {
        {"wait", "Wait for an event, or for milliseconds, printing what comes", wait},
        {"sleep", "Wait for milliseconds, printing what comes", sleepFor},
        {"status", "Tell what is known of client, service and filters", status},
        {"doctor", "Tell what keeps the service from working", doctor},
        {"help", "List the commands, or explain one", help},
        {"?", "The same as help", help},
        {"quit", "End, as at the end of the input", quit},
        {"exit", "The same as quit", quit},
    };
}
