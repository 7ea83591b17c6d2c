// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/socket.h>

#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>
#include <vector>

#include "tools/sdfctl/Words.h"

// CLI11's. Its header takes longer to compile than all else here: only Arguments.cpp includes it.
namespace CLI {
class App;
class Option;
}  // namespace CLI

// A filter as the command line names it: by number, or as the last one added.
struct FilterName {
    bool isLast = false;
    unsigned int id = 0;
};

// The arguments of a command, or of the program: what they are filled into, and which words they
// take. A name with dashes in front is an option's, any other one that of a word that must be
// there, in the order of declaration. Everything filled must outlive the parsing.
class Arguments {
  public:
    using Texts = std::vector<std::string>;

    // footer: stands below the arguments in the help.
    Arguments(const std::string& name, const std::string& about, const std::string& footer = "");
    ~Arguments();
    Arguments(const Arguments&) = delete;
    Arguments& operator=(const Arguments&) = delete;

    // What completion needs to know of one of them.
    struct Argument {
        std::string name;
        bool takesValue = false;
        bool isSeconds = false;
        Texts words{};

        bool isOption() const { return name.rfind('-', 0) == 0; }
    };
    const std::vector<Argument>& all() const { return mAll; }

    std::string help() const;

    // Fills what is declared. Returns the text that is asked for in place of a run, the help or the
    // version; nothing otherwise. Throws UsageError, which names the argument.
    std::optional<std::string> parse(Texts words);

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
    void number(const std::string& name, std::optional<unsigned char>& value,
                const std::string& about) {
        addNumber(name, UINT8_MAX, about,
                  [&value](int64_t number) { value = static_cast<unsigned char>(number); });
    }
    // "on" or "off".
    void onOff(const std::string& name, bool& value, const std::string& about);
    void filter(const std::string& name, FilterName& value, const std::string& about);
    // The family of an address: a word, or any number that it can be.
    void family(const std::string& name, std::optional<sa_family_t>& value,
                const std::string& about);
    void address(const std::string& name, sockaddr_storage& value, const std::string& about);
    // Text that isTaken() accepts, which is one of the words or something else; expected: what.
    void text(const std::string& name, std::string& value, const Texts& words,
              const std::string& expected, const std::string& about,
              const std::function<bool(const std::string&)>& isTaken, bool required = true);
    // An option without a value.
    void flag(const std::string& name, bool& value, const std::string& about);
    // Seconds, of which there may be fractions.
    void seconds(const std::string& name, double& value, const std::string& about);

    // For the program's: --version, and that options end at the first other word, which rest()
    // then returns with those behind it.
    void ofProgram(const std::string& version);
    Texts rest() const;

  private:
    using Read = std::function<bool(const std::string&)>;

    void addWord(const std::string& name, const Words& words, const std::string& about,
                 const std::function<void(int32_t)>& fill);
    void addNumber(const std::string& name, int64_t highest, const std::string& about,
                   const std::function<void(int64_t)>& fill);
    // read: returns false for text that it does not take; expected: what it takes.
    CLI::Option* add(const std::string& name, const Read& read, const std::string& expected,
                     const std::string& about, const Texts& words = {});

    const std::unique_ptr<CLI::App> mApp;
    std::vector<Argument> mAll;
};
