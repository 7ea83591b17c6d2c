// SPDX-License-Identifier: Apache-2.0
#include "tools/sdfctl/Completion.h"

#include <algorithm>
#include <iterator>
#include <sstream>

#include "tools/sdfctl/CommandLine.h"
#include "tools/sdfctl/Commands.h"
#include "tools/sdfctl/Programs.h"

namespace {

using Texts = std::vector<std::string>;
using Argument = Arguments::Argument;

// The words of the text, the last of which is the one being typed.
Texts wordsOf(const std::string& text) {
    std::istringstream stream(text);
    Texts words;
    for (std::string word; stream >> word;) words.push_back(word);
    if (text.empty() || text.back() == ' ') words.emplace_back();
    return words;
}

// What is being typed belongs to the last command.
Texts lastCommand(const Texts& words) {
    const auto then = std::find(words.rbegin() + 1, words.rend(), "then");
    return {then.base(), words.end()};
}

Texts commandNames() {
    Texts names;
    for (const Command& command : commands()) names.emplace_back(command.name);
    return names;
}

const Argument* findOption(const std::vector<Argument>& all, const std::string& name) {
    const auto found = std::find_if(all.begin(), all.end(), [&](const Argument& argument) {
        return argument.isOption() && argument.name == name;
    });
    return found == all.end() ? nullptr : &*found;
}

const Argument* positional(const std::vector<Argument>& all, size_t index) {
    for (const Argument& argument : all) {
        if (!argument.isOption() && index-- == 0) return &argument;
    }
    return nullptr;
}

// The argument whose value is being typed; null when there is none to be typed. words: of one
// command, with its name.
const Argument* argumentAt(const std::vector<Argument>& all, const Texts& words) {
    size_t positionals = 0;
    for (size_t i = 1; i + 1 < words.size(); ++i) {
        const Argument* const option = findOption(all, words[i]);
        if (option == nullptr) {
            ++positionals;
        } else if (option->takesValue && ++i + 1 == words.size()) {
            return option;
        }
    }
    return positional(all, positionals);
}

// Everything that may stand where the last word does. words: of one command, with its name.
Texts everythingFor(const Texts& words) {
    if (words.size() == 1) return commandNames();
    const Command* const command = findCommand(words[0]);
    if (command == nullptr) return {};
    const std::vector<Argument> arguments = argumentsOf(*command);
    const Argument* const argument = argumentAt(arguments, words);
    if (argument != nullptr && argument->isOption()) return argument->words;
    Texts all;
    if (argument != nullptr) all = argument->words;
    for (const Argument& option : arguments) {
        if (option.isOption()) all.push_back(option.name);
    }
    all.emplace_back("then");
    return all;
}

// The same for a program. Where it takes a file, the shell knows better.
Texts everythingFor(const Program& program, const Texts& words) {
    Texts all;
    const std::vector<Argument> arguments = argumentsOf(program);
    const Argument* const argument = argumentAt(arguments, words);
    if (words.back().empty() || (argument != nullptr && argument->isOption())) return all;
    for (const Argument& option : arguments) all.push_back(option.name);
    return all;
}

Texts beginningWith(const std::string& typed, const Texts& all) {
    Texts found;
    std::copy_if(all.begin(), all.end(), std::back_inserter(found),
                 [&](const std::string& word) { return word.rfind(typed, 0) == 0; });
    return found;
}

}  // namespace

Texts completeLine(const std::string& line) {
    const Texts words = wordsOf(line);
    const std::vector<Argument> options = globalOptions();
    auto word = words.begin() + 1;  // behind the program's name
    for (; word < words.end() - 1 && word->rfind('-', 0) == 0; ++word) {
        const Argument* const option = findOption(options, *word);
        if (option != nullptr && option->takesValue) ++word;
    }
    if (word >= words.end()) return {};  // the value of an option, or nothing but the name
    const Texts rest(word, words.end());
    const Program* const program = findProgram(rest[0]);
    const bool isFirst = rest.size() == 1;
    if (program != nullptr && !isFirst) {
        return beginningWith(rest.back(), everythingFor(*program, rest));
    }
    Texts all = everythingFor(lastCommand(rest));
    if (isFirst) {
        for (const Program& one : programs()) all.emplace_back(one.name);
        for (const Argument& option : options) all.push_back(option.name);
    }
    return beginningWith(rest.back(), all);
}

Completion complete(const std::string& text) {
    const Texts words = lastCommand(wordsOf(text));
    return {words.back(), beginningWith(words.back(), everythingFor(words))};
}

std::string commonStart(const Texts& candidates) {
    if (candidates.empty()) return "";
    std::string common = candidates.front();
    for (const std::string& candidate : candidates) {
        const auto end =
            std::mismatch(common.begin(), common.end(), candidate.begin(), candidate.end());
        common.erase(end.first, common.end());
    }
    return common;
}
