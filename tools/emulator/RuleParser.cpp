// SPDX-License-Identifier: Apache-2.0
#include "tools/emulator/RuleParser.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstddef>
#include <cstdio>
#include <optional>
#include <random>
#include <utility>

#include "proto/SdfProto.pb.h"
#include "tools/emulator/RuleWords.h"

namespace {

struct Word {
    std::string text;  // empty at the end
    size_t column;     // from 1
};

bool isSpace(char c) {
    return std::isspace(static_cast<unsigned char>(c)) != 0;
}

// A colon and a comma are words of their own.
bool isMark(char c) {
    return c == ':' || c == ',';
}

std::vector<Word> split(const std::string& text) {
    std::vector<Word> words;
    for (size_t at = 0; at < text.size();) {
        if (isSpace(text[at])) {
            ++at;
            continue;
        }
        size_t end = at + 1;
        while (!isMark(text[at]) && end < text.size() && !isSpace(text[end]) &&
               !isMark(text[end])) {
            ++end;
        }
        words.push_back({text.substr(at, end - at), at + 1});
        at = end;
    }
    words.push_back({"", text.size() + 1});
    return words;
}

std::string changed(std::string text, int (*change)(int)) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [&](unsigned char c) { return static_cast<char>(change(c)); });
    return text;
}

// The text with what cannot be printed as \xNN: it may come from a file of any sort.
std::string printable(const std::string& text) {
    std::string shown;
    for (const char c : text) {
        if (std::isprint(static_cast<unsigned char>(c)) != 0) {
            shown += c;
        } else {
            char escaped[5];
            snprintf(escaped, sizeof escaped, "\\x%02x", static_cast<unsigned>(c) & 0xFFU);
            shown += escaped;
        }
    }
    return shown;
}

// Reads the next line of a scenario. where: of it, for the error when it is too long. Returns false
// at the end.
bool readLine(std::istream& lines, const std::string& where, std::string& line) {
    constexpr size_t kLongest = 65536;
    line.clear();
    for (char c = 0; lines.get(c);) {
        if (c == '\n') return true;
        if (line.size() == kLongest) {
            throw RuleError(where + ": longer than " + std::to_string(kLongest) + " bytes");
        }
        line += c;
    }
    return !line.empty();
}

// Understands the words of one rule from first to last.
class Parser {
  public:
    Parser(const std::string& text, const std::string& where)
        : mWhere(where), mWords(split(text)) {}

    Rule rule() {
        Rule rule;
        expect("on", "a rule begins with \"on\"");
        rule.kind = kind();
        occurrence(rule);
        expect(":", "expected \":\", \"nth\", \"every\" or \"from\"");
        do {
            rule.actions.push_back(action());
        } while (take(","));
        if (!atEnd()) fail("expected \",\" or the end of the rule");
        return rule;
    }

  private:
    const Word& word() const { return mWords[mNext]; }
    bool atEnd() const { return word().text.empty(); }
    bool atArgumentEnd() const { return atEnd() || word().text == ","; }

    bool take(const std::string& text) {
        if (word().text != text) return false;
        ++mNext;
        return true;
    }

    void expect(const std::string& text, const std::string& otherwise) {
        if (!take(text)) fail(otherwise);
    }

    [[noreturn]] void fail(const std::string& message) const {
        const std::string found = atEnd() ? "at its end" : '"' + printable(word().text) + '"';
        throw RuleError(mWhere + ":" + std::to_string(word().column) + ": " + found + ": " +
                        message);
    }

    std::string kind() {
        std::string name = changed(word().text, std::tolower);
        if (!isKind(name)) fail("expected a kind of requests (" + kindWords() + ")");
        ++mNext;
        return name;
    }

    void occurrence(Rule& rule) {
        if (take("nth")) {
            rule.when = Rule::When::kNth;
        } else if (take("every")) {
            rule.when = Rule::When::kEvery;
        } else if (!take("from")) {
            return;
        }
        rule.number = static_cast<uint64_t>(number(1, UINT32_MAX));
    }

    int64_t number(int64_t least, int64_t most) {
        const std::optional<int64_t> value = wholeNumber();
        if (!value || *value < least || *value > most) {
            fail("expected a number from " + std::to_string(least) + " to " + std::to_string(most));
        }
        ++mNext;
        return *value;
    }

    std::optional<int64_t> wholeNumber() const {
        const std::string& text = word().text;
        int64_t value = 0;
        const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
        if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
        return value;
    }

    Action action() {
        const ActionWord* const known = findAction(word().text);
        if (known == nullptr) fail("expected an action (" + actionWords() + ")");
        ++mNext;
        Action action{known->kind, std::nullopt, {}};
        argument(*known, action);
        return action;
    }

    void argument(const ActionWord& known, Action& action) {
        switch (known.argument) {
            case Argument::kNone:
                if (known.least != 0) action.number = known.least;
                break;
            case Argument::kOptionalNumber:
                if (atArgumentEnd()) break;
                [[fallthrough]];
            case Argument::kNumber: action.number = number(known.least, known.most); break;
            case Argument::kBytes:
                action.bytes = take("random") ? randomBytes(known) : hexBytes();
                break;
            case Argument::kOptionalEvent:
                if (!atArgumentEnd()) action.number = event();
                break;
            case Argument::kStatus: action.number = status(known); break;
            case Argument::kMoment: action.kind = moment(); break;
        }
    }

    // The same bytes for the same words, whenever and wherever.
    std::vector<uint8_t> randomBytes(const ActionWord& known) {
        const auto count = static_cast<size_t>(number(known.least, known.most));
        const int64_t seed = atArgumentEnd() ? 1 : number(0, UINT32_MAX);
        // NOLINTNEXTLINE(cert-msc32-c,cert-msc51-cpp,bugprone-*): to be repeatable is the point
        std::mt19937 generator(static_cast<uint32_t>(seed));
        std::vector<uint8_t> bytes(count);
        for (uint8_t& byte : bytes) byte = static_cast<uint8_t>(generator() & 0xFFU);
        return bytes;
    }

    std::vector<uint8_t> hexBytes() {
        std::vector<uint8_t> bytes;
        do {
            appendHex(bytes);
            ++mNext;
        } while (!atArgumentEnd());
        return bytes;
    }

    void appendHex(std::vector<uint8_t>& bytes) const {
        const std::string& digits = word().text;
        const bool allHex = std::all_of(digits.begin(), digits.end(),
                                        [](unsigned char c) { return std::isxdigit(c) != 0; });
        if (digits.empty() || !allHex || digits.size() % 2 != 0) {
            fail("expected bytes, two hexadecimal digits each, or \"random\"");
        }
        for (size_t at = 0; at < digits.size(); at += 2) {
            uint8_t byte = 0;
            std::from_chars(digits.data() + at, digits.data() + at + 2, byte, 16);
            bytes.push_back(byte);
        }
    }

    int64_t event() {
        SdfProto::ClientEventId event{};
        if (!SdfProto::ClientEventId_Parse(changed(word().text, std::toupper), &event)) {
            fail("expected an event of the service (" + eventWords() + ")");
        }
        ++mNext;
        return event;
    }

    int64_t status(const ActionWord& known) {
        SdfProto::Status status{};
        if (SdfProto::Status_Parse(changed(word().text, std::toupper), &status)) {
            ++mNext;
            return status;
        }
        if (!wholeNumber()) fail("expected a status (" + statusWords() + ") or its number");
        return number(known.least, known.most);
    }

    Action::Kind moment() {
        if (take("before")) return Action::Kind::kDieBefore;
        expect("after", "expected \"before\" or \"after\"");
        return Action::Kind::kDieAfter;
    }

    const std::string& mWhere;
    const std::vector<Word> mWords;
    size_t mNext = 0;
};

}  // namespace

Rule parseRule(const std::string& text, const std::string& where) {
    Rule rule = Parser(text, where).rule();
    rule.text = text;
    return rule;
}

std::vector<Rule> parseScenario(std::istream& lines, const std::string& name) {
    const std::string byteOrderMark = "\xEF\xBB\xBF";
    std::vector<Rule> rules;
    std::string line;
    for (int number = 1;; ++number) {
        const std::string where = name + ":" + std::to_string(number);
        if (!readLine(lines, where, line)) return rules;
        if (number == 1 && line.rfind(byteOrderMark, 0) == 0) line.erase(0, byteOrderMark.size());
        const std::string text = line.substr(0, line.find('#'));
        if (std::all_of(text.begin(), text.end(), isSpace)) continue;
        rules.push_back(parseRule(text, where));
    }
}
