// SPDX-License-Identifier: Apache-2.0
#include "tools/sdfctl/Commands.h"

#include <algorithm>
#include <sstream>

#include "tools/sdfctl/Programs.h"

namespace {

std::vector<Command> makeAll() {
    std::vector<Command> all = lifecycleCommands();
    for (const auto& more : {requestCommands(), sessionCommands()}) {
        all.insert(all.end(), more.begin(), more.end());
    }
    return all;
}

// words: the arguments, without the command's name.
Action readOne(const Command& command, const std::vector<std::string>& words) try {
    Arguments arguments(command.name, command.about);
    Action action = command.declare(arguments);
    const std::optional<std::string> help = arguments.parse(words);
    if (!help) return action;
    return [help](Session& session) { session.printer().help(*help); };
} catch (const UsageError& error) {
    throw UsageError(std::string(command.name) + ": " + error.what());
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
    Arguments arguments(command.name, command.about);
    (void)command.declare(arguments);
    return arguments.all();
}

std::vector<Action> readCommands(const std::vector<std::string>& words) {
    std::vector<Action> actions;
    for (auto begin = words.begin(); begin != words.end();) {
        const auto end = std::find(begin, words.end(), "then");
        if (begin == end) throw UsageError("a command is missing before \"then\"");
        const Command* const command = findCommand(*begin);
        if (command == nullptr && findProgram(*begin) != nullptr) {
            throw UsageError("\"" + *begin + "\" stands alone on the command line");
        }
        if (command == nullptr) {
            throw UsageError("\"" + *begin + "\" is not a command (\"help\" lists them)");
        }
        actions.push_back(readOne(*command, {begin + 1, end}));
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

std::string helpOf(const std::string& name) {
    if (const Program* const program = findProgram(name)) return helpOf(*program);
    const Command& command = *findCommand(name);
    Arguments arguments(command.name, command.about);
    (void)command.declare(arguments);
    return arguments.help();
}

std::string helpOfAll() {
    std::string text = "Commands (\"help COMMAND\" explains its arguments):";
    const auto add = [&text](std::string name, const char* about) {
        name.resize(std::max<size_t>(name.size() + 2, 29), ' ');
        text += "\n  " + name + about;
    };
    for (const Command& command : commands()) add(command.name, command.about);
    text += "\n\nAlone on the command line (\"sdfctl NAME --help\" explains its arguments):";
    for (const Program& program : programs()) add(program.name, program.about);
    return text;
}
