// SPDX-License-Identifier: Apache-2.0
#include "tools/sdfctl/Arguments.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdlib>

#include "tools/sdfctl/Failure.h"

namespace {

constexpr char kSeconds[] = "a number of seconds";

bool readSeconds(const std::string& text, double& value) {
    char* end = nullptr;
    const double seconds = strtod(text.c_str(), &end);
    if (text.empty() || end != text.c_str() + text.size() || !(seconds >= 0)) return false;
    value = seconds;
    return true;
}

CLI::ValidationError isNot(const std::string& name, const std::string& text,
                           const std::string& expected) {
    return CLI::ValidationError(name, "\"" + text + "\" is not " + expected);
}

}  // namespace

Arguments::Arguments(const std::string& name, const std::string& about, const std::string& footer)
    : mApp(std::make_unique<CLI::App>(about, name)) {
    mApp->footer(footer);
}

Arguments::~Arguments() = default;

std::string Arguments::help() const {
    return mApp->help();
}

std::optional<std::string> Arguments::parse(Texts words) try {
    for (const Argument& argument : mAll) {
        // CLI11 takes for "--timeout=" the word behind it.
        if (argument.isSeconds &&
            std::find(words.begin(), words.end(), argument.name + "=") != words.end()) {
            throw isNot(argument.name, "", kSeconds);
        }
    }
    std::reverse(words.begin(), words.end());  // as CLI11 takes them
    mApp->parse(words);
    return std::nullopt;
} catch (const CLI::CallForHelp&) {
    return help();
} catch (const CLI::CallForVersion& version) {
    return version.what();
} catch (const CLI::ParseError& error) {
    throw UsageError(error.what());
}

void Arguments::onOff(const std::string& name, bool& value, const std::string& about) {
    const auto read = [&value](const std::string& text) {
        value = text == "on";
        return value || text == "off";
    };
    add(name, read, "on or off", about, textsOf(switchWords()));
}

void Arguments::filter(const std::string& name, FilterName& value, const std::string& about) {
    const auto read = [&value](const std::string& text) {
        int64_t number = 0;
        value.isLast = text == "last";
        if (!value.isLast && !readNumber(text, 0, UINT32_MAX, number)) return false;
        value.id = static_cast<unsigned int>(number);
        return true;
    };
    add(name, read, "last or a number from 0 to 4294967295", about, {"last"});
}

void Arguments::family(const std::string& name, std::optional<sa_family_t>& value,
                       const std::string& about) {
    const auto read = [&value](const std::string& text) {
        constexpr int32_t kMost = std::numeric_limits<sa_family_t>::max();
        int32_t number = 0;
        if (!readWord(familyWords(), text, number) || number < 0 || number > kMost) return false;
        value = static_cast<sa_family_t>(number);
        return true;
    };
    const std::string list = listOf(familyWords());
    add(name, read, "a number from 0 to 65535 or one of " + list, about + ": " + list,
        textsOf(familyWords()));
}

void Arguments::address(const std::string& name, sockaddr_storage& value,
                        const std::string& about) {
    add(name, [&value](const std::string& text) { return readAddress(text, value); },
        "an address such as 192.0.2.1:5000, [2001:db8::1]:443, 192.0.2.1, or none", about,
        {"none"});
}

void Arguments::text(const std::string& name, std::string& value, const Texts& words,
                     const std::string& expected, const std::string& about,
                     const std::function<bool(const std::string&)>& isTaken, bool required) {
    const auto read = [&value, isTaken](const std::string& text) {
        value = text;
        return isTaken(text);
    };
    add(name, read, expected, about, words)->required(required);
}

void Arguments::flag(const std::string& name, bool& value, const std::string& about) {
    mApp->add_flag(name, value, about);
    mAll.push_back({name});
}

void Arguments::seconds(const std::string& name, double& value, const std::string& about) {
    add(
        name, [&value](const std::string& text) { return readSeconds(text, value); }, kSeconds,
        about)
        ->type_name("SECONDS");
    mAll.back().isSeconds = true;
}

void Arguments::ofProgram(const std::string& version) {
    mApp->prefix_command();
    mApp->set_version_flag("--version", version, "Print the version and exit");
    mAll.insert(mAll.begin(), {{"--help"}, {"--version"}});
}

Arguments::Texts Arguments::rest() const {
    return mApp->remaining();
}

void Arguments::addWord(const std::string& name, const Words& words, const std::string& about,
                        const std::function<void(int32_t)>& fill) {
    const auto read = [&words, fill](const std::string& text) {
        int32_t number = 0;
        if (!readWord(words, text, number)) return false;
        fill(number);
        return true;
    };
    add(name, read, "a number or one of " + shortListOf(words), about + ": " + listOf(words),
        textsOf(words));
}

void Arguments::addNumber(const std::string& name, int64_t highest, const std::string& about,
                          const std::function<void(int64_t)>& fill) {
    const auto read = [highest, fill](const std::string& text) {
        int64_t number = 0;
        if (!readNumber(text, 0, highest, number)) return false;
        fill(number);
        return true;
    };
    add(name, read, "a number from 0 to " + std::to_string(highest), about);
}

CLI::Option* Arguments::add(const std::string& name, const Read& read, const std::string& expected,
                            const std::string& about, const Texts& words) {
    const auto take = [name, read, expected](const std::string& text) {
        if (!read(text)) throw isNot(name, text, expected);
    };
    CLI::Option* const option = mApp->add_option_function<std::string>(name, take, about);
    mAll.push_back({name, true, false, words});
    option->type_name("");
    option->required(!mAll.back().isOption());
    return option;
}
