// SPDX-License-Identifier: Apache-2.0
#include "tools/sdfctl/Arguments.h"

#include <CLI/CLI.hpp>

#include "tools/sdfctl/AddressText.h"

namespace {

// Too many to be read in an error message.
std::string expectedOf(const Words& words) {
    constexpr size_t kMost = 10;
    if (words.size() <= kMost) return "a number or one of " + listOf(words);
    return "a number or one of " + words[0].text + ", " + words[1].text + ", " + words[2].text +
           " ... " + words.back().text;
}

}  // namespace

void Arguments::onOff(const std::string& name, bool& value, const std::string& about) {
    const auto read = [&value](const std::string& text) {
        value = text == "on";
        return value || text == "off";
    };
    add(name, read, "on or off", about);
    mAll.back().words = textsOf(switchWords());
}

void Arguments::filter(const std::string& name, FilterName& value, const std::string& about) {
    const auto read = [&value](const std::string& text) {
        int64_t number = 0;
        value.isLast = text == "last";
        if (!value.isLast && !readNumber(text, 0, UINT32_MAX, number)) return false;
        value.id = static_cast<unsigned int>(number);
        return true;
    };
    add(name, read, "last or a number from 0 to 4294967295", about);
    mAll.back().isFilter = true;
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
    add(name, read, "a number from 0 to 65535 or one of " + list, about + ": " + list);
    mAll.back().words = textsOf(familyWords());
}

void Arguments::address(const std::string& name, sockaddr_storage& value,
                        const std::string& about) {
    add(
        name, [&value](const std::string& text) { return readAddress(text, value); },
        "an address such as 192.0.2.1:5000, [2001:db8::1]:443, 192.0.2.1, or none", about);
    mAll.back().words = {"none"};
}

void Arguments::text(const std::string& name, std::string& value,
                     const std::vector<std::string>& words, const std::string& expected,
                     const std::string& about,
                     const std::function<bool(const std::string&)>& isTaken) {
    const auto read = [&value, isTaken](const std::string& text) {
        value = text;
        return isTaken(text);
    };
    add(name, read, expected, about);
    mAll.back().words = words;
}

void Arguments::optionalText(const std::string& name, std::string& value,
                             const std::vector<std::string>& words, const std::string& expected,
                             const std::string& about,
                             const std::function<bool(const std::string&)>& isTaken) {
    const auto read = [&value, isTaken](const std::string& text) {
        value = text;
        return isTaken(text);
    };
    add(name, read, expected, about)->required(false);
    mAll.back().words = words;
}

void Arguments::flag(const std::string& name, bool& value, const std::string& about) {
    mApp.add_flag(name, value, about);
    mAll.push_back({name, false, false, {}});
}

void Arguments::addWord(const std::string& name, const Words& words, const std::string& about,
                        const std::function<void(int32_t)>& fill) {
    const auto read = [&words, fill](const std::string& text) {
        int32_t number = 0;
        if (!readWord(words, text, number)) return false;
        fill(number);
        return true;
    };
    add(name, read, expectedOf(words), about + ": " + listOf(words));
    mAll.back().words = textsOf(words);
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
                            const std::string& about) {
    const auto take = [name, read, expected](const std::string& text) {
        if (read(text)) return;
        throw CLI::ValidationError(name, "\"" + text + "\" is not " + expected);
    };
    CLI::Option* const option = mApp.add_option_function<std::string>(name, take, about);
    mAll.push_back({name, true, false, {}});
    option->type_name("");
    option->required(!mAll.back().isOption());
    return option;
}
