// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/socket.h>

#include <cstdint>
#include <functional>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "tools/sdfctl/Words.h"

// CLI11's. Its header takes longer to compile than all else here, and is left to those who need it.
namespace CLI {
class App;
class Option;
}  // namespace CLI

// A filter as the command line names it: by number, or as the last one added.
struct FilterName {
    bool isLast = false;
    unsigned int id = 0;
};

// The arguments of one command, as it declares them: what they are filled into, and which words
// they take. A name with dashes in front is an option's, any other one that of a word that must be
// there, in the order of declaration. Everything filled must outlive the parsing. Errors are
// CLI11's, and name the argument.
class Arguments {
  public:
    explicit Arguments(CLI::App& app) : mApp(app) {}

    // What completion needs to know of one of them.
    struct Argument {
        std::string name;
        bool takesValue;
        bool isFilter;
        std::vector<std::string> words;

        bool isOption() const { return name.rfind('-', 0) == 0; }
    };
    const std::vector<Argument>& all() const { return mAll; }

    // One of the words, or any number of 32 bits.
    template <typename Enumeration>
    void word(const std::string& name, Enumeration& value, const Words& words,
              const std::string& about) {
        addWord(name, words, about,
                [&value](int32_t number) { value = static_cast<Enumeration>(number); });
    }
    // A number that the type can hold, which must be unsigned.
    template <typename Unsigned>
    void number(const std::string& name, Unsigned& value, const std::string& about) {
        addNumber(name, std::numeric_limits<Unsigned>::max(), about,
                  [&value](int64_t number) { value = static_cast<Unsigned>(number); });
    }
    template <typename Unsigned>
    void number(const std::string& name, std::optional<Unsigned>& value, const std::string& about) {
        addNumber(name, std::numeric_limits<Unsigned>::max(), about,
                  [&value](int64_t number) { value = static_cast<Unsigned>(number); });
    }
    // "on" or "off".
    void onOff(const std::string& name, bool& value, const std::string& about);
    void filter(const std::string& name, FilterName& value, const std::string& about);
    // The family of an address: a word, or any number that it can be.
    void family(const std::string& name, std::optional<sa_family_t>& value,
                const std::string& about);
    void address(const std::string& name, sockaddr_storage& value, const std::string& about);
    // Text that isTaken() accepts, which is one of the words or something else; `expected` tells
    // what.
    void text(const std::string& name, std::string& value, const std::vector<std::string>& words,
              const std::string& expected, const std::string& about,
              const std::function<bool(const std::string&)>& isTaken);
    // The same, or none.
    void optionalText(const std::string& name, std::string& value,
                      const std::vector<std::string>& words, const std::string& expected,
                      const std::string& about,
                      const std::function<bool(const std::string&)>& isTaken);
    // An option without a value.
    void flag(const std::string& name, bool& value, const std::string& about);

  private:
    using Read = std::function<bool(const std::string&)>;

    void addWord(const std::string& name, const Words& words, const std::string& about,
                 const std::function<void(int32_t)>& fill);
    void addNumber(const std::string& name, int64_t highest, const std::string& about,
                   const std::function<void(int64_t)>& fill);
    // read: returns false for text that it does not take; expected: what it takes.
    CLI::Option* add(const std::string& name, const Read& read, const std::string& expected,
                     const std::string& about);

    CLI::App& mApp;
    std::vector<Argument> mAll;
};
