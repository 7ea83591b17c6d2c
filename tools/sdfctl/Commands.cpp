// SPDX-License-Identifier: Apache-2.0
#include "tools/sdfctl/Commands.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <sstream>

namespace {

void append(std::vector<Command>& all, const std::vector<Command>& more) {
    all.insert(all.end(), more.begin(), more.end());
}

std::vector<Command> makeAll() {
    std::vector<Command> all;
    append(all, lifecycleCommands());
    append(all, settingCommands());
    append(all, filterCommands());
    append(all, reportCommands());
    append(all, sessionCommands());
    return all;
}

Action helpAction(const Command& command) {
    return [&command](Session& session) { session.printer().help(helpOf(command)); };
}

// words: the arguments, without the command's name.
Action readOne(const Command& command, std::vector<std::string> words) {
    CLI::App app(command.about, command.name);
    Arguments arguments(app);
    Action action = command.declare(arguments);
    std::reverse(words.begin(), words.end());  // as CLI11 takes them
    try {
        app.parse(words);
    } catch (const CLI::CallForHelp&) {
        return helpAction(command);
    } catch (const CLI::ParseError& error) {
        throw UsageError(std::string(command.name) + ": " + error.what());
    }
    return action;
}

}  // namespace

const std::vector<Command>& commands() {
    static const std::vector<Command> all = makeAll();
    return all;
}

const Command* findCommand(const std::string& name) {
    const auto found = std::find_if(commands().begin(), commands().end(),
                                    [&](const Command& command) { return command.name == name; });
    return found == commands().end() ? nullptr : &*found;
}

std::vector<Arguments::Argument> argumentsOf(const Command& command) {
    CLI::App app;
    Arguments arguments(app);
    (void)command.declare(arguments);
    return arguments.all();
}

std::vector<Action> readCommands(const std::vector<std::string>& words) {
    std::vector<Action> actions;
    for (auto begin = words.begin(); begin != words.end();) {
        const auto end = std::find(begin, words.end(), "then");
        if (begin == end) throw UsageError("a command is missing before \"then\"");
        const Command* const command = findCommand(*begin);
        if (command == nullptr) {
            throw UsageError("\"" + *begin + "\" is not a command (\"help\" lists them)");
        }
        actions.push_back(readOne(*command, std::vector<std::string>(begin + 1, end)));
        if (end == words.end()) break;
        begin = end + 1;
        if (begin == words.end()) throw UsageError("a command is missing after \"then\"");
    }
    return actions;
}

std::vector<std::string> splitLine(const std::string& line) {
    std::istringstream stream(line);
    std::vector<std::string> words;
    for (std::string word; stream >> word && word[0] != '#';) words.push_back(word);
    return words;
}

std::string helpOf(const Command& command) {
    CLI::App app(command.about, command.name);
    Arguments arguments(app);
    (void)command.declare(arguments);
    return app.help();
}

std::string helpOfAll() {
    std::string text = "Commands (\"help COMMAND\" tells the arguments):";
    for (const Command& command : commands()) {
        std::string name = command.name;
        name.resize(std::max<size_t>(name.size() + 2, 29), ' ');
        text += "\n  " + name + command.about;
    }
    return text;
}
