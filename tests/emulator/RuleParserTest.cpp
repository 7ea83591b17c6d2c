// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <optional>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/Hex.h"
#include "tools/emulator/RuleParser.h"
#include "tools/emulator/RuleWords.h"

namespace {

using Kind = Action::Kind;
using Number = std::optional<int64_t>;

Rule parse(const std::string& text) {
    return parseRule(text, "here");
}

Action only(const std::string& action) {
    const Rule rule = parse("on any: " + action);
    EXPECT_EQ(rule.actions.size(), 1U) << action;
    return rule.actions.at(0);
}

std::string errorOf(const std::string& text) {
    try {
        parse(text);
    } catch (const RuleError& error) {
        return error.what();
    }
    return "none";
}

TEST(RuleParserTest, RuleIsUnderstood) {
    const struct {
        const char* text;
        const char* kind;
        Rule::When when;
        uint64_t number;
        std::vector<Kind> actions;
    } rows[] = {
        {"on add_filter nth 3: late 500, twice",
         "add_filter",
         Rule::When::kNth,
         3,
         {Kind::kLate, Kind::kCopies}},
        {"  on\tany every 10:refuse ,never,twice  ",
         "any",
         Rule::When::kEvery,
         10,
         {Kind::kRefuse, Kind::kNever, Kind::kCopies}},
        {"on register: refuse", "register", Rule::When::kFrom, 1, {Kind::kRefuse}},
        {"on any from 7: refuse", "any", Rule::When::kFrom, 7, {Kind::kRefuse}},
    };
    for (const auto& row : rows) {
        const Rule rule = parse(row.text);
        EXPECT_EQ(rule.text, row.text);
        EXPECT_EQ(rule.kind, row.kind) << row.text;
        EXPECT_EQ(rule.when, row.when) << row.text;
        EXPECT_EQ(rule.number, row.number) << row.text;
        std::vector<Kind> actions;
        for (const Action& action : rule.actions) actions.push_back(action.kind);
        EXPECT_EQ(actions, row.actions) << row.text;
    }
}

TEST(RuleParserTest, KindsAreThoseOfTheRequestsInAnyLetters) {
    using namespace SdfProto;
    for (int event = ServiceEventId_MIN; event <= ServiceEventId_MAX; ++event) {
        ServiceMsg request;
        request.set_event_id(static_cast<ServiceEventId>(event));
        request.mutable_data()->mutable_enable_msg()->set_enable(true);
        EXPECT_EQ(parse("on " + ServiceEventId_Name(request.event_id()) + ": refuse").kind,
                  kindOf(request));
    }
    for (const std::string kind : {"any", "register", "disable"}) {
        EXPECT_EQ(parse("on " + kind + ": refuse").kind, kind);
    }
    EXPECT_EQ(parse("on ADD_Filter: refuse").kind, "add_filter");
}

TEST(RuleParserTest, ActionsAreUnderstood) {
    struct {
        const char* text;
        Kind kind;
        Number number;
        const char* bytes;
    } const cases[] = {
        {"refuse", Kind::kRefuse, {}, ""},
        {"never", Kind::kNever, {}, ""},
        {"late 0", Kind::kLate, 0, ""},
        {"late 86400000", Kind::kLate, 86400000, ""},
        {"twice", Kind::kCopies, 2, ""},
        {"flood 1", Kind::kCopies, 1, ""},
        {"flood 100000", Kind::kCopies, 100000, ""},
        {"wrong-id", Kind::kWrongId, {}, ""},
        {"wrong-id 4294967295", Kind::kWrongId, 4294967295, ""},
        {"mismatch", Kind::kMismatch, {}, ""},
        {"mismatch status_ind", Kind::kMismatch, 0, ""},
        {"mismatch AUTO_FILTER_INFO_IND", Kind::kMismatch, 6, ""},
        {"empty-body", Kind::kEmptyBody, {}, ""},
        {"no-body", Kind::kNoBody, {}, ""},
        {"truncate", Kind::kTruncate, {}, ""},
        {"truncate 0", Kind::kTruncate, 0, ""},
        {"garbage ff", Kind::kGarbage, {}, "FF"},
        {"garbage 08 0a1B", Kind::kGarbage, {}, "08 0A 1B"},
        {"unknown-event", Kind::kUnknownEvent, {}, ""},
        {"unknown-event 7", Kind::kUnknownEvent, 7, ""},
        {"status SERVICE_DOWN", Kind::kStatus, 7, ""},
        {"status internal_error", Kind::kStatus, 3, ""},
        {"status 42", Kind::kStatus, 42, ""},
        {"status -1", Kind::kStatus, -1, ""},
        {"die before", Kind::kDieBefore, {}, ""},
        {"die after", Kind::kDieAfter, {}, ""},
    };
    for (const auto& known : cases) {
        const Action action = only(known.text);
        EXPECT_EQ(action.kind, known.kind) << known.text;
        EXPECT_EQ(action.number, known.number) << known.text;
        EXPECT_EQ(toHex(action.bytes), known.bytes) << known.text;
    }
}

TEST(RuleParserTest, RandomBytesAreThoseOfTheirSeed) {
    // The generator's first numbers for its seed 5489 are D091BB5C, 22AE9EF6 and E7E1FAEE.
    EXPECT_EQ(toHex(only("garbage random 3 5489").bytes), "5C F6 EE");
    EXPECT_EQ(only("garbage random 65536").bytes.size(), 65536U);
    EXPECT_EQ(only("garbage random 20").bytes, only("garbage random 20 1").bytes);
    EXPECT_NE(only("garbage random 20").bytes, only("garbage random 20 2").bytes);
}

TEST(RuleParserTest, ErrorsNameThePlaceTheWordAndWhatWasExpected) {
    const std::string kinds = "expected a kind of requests (" + kindWords() + ")";
    const std::string actions = "expected an action (" + actionWords() + ")";
    const std::string bytes = "expected bytes, two hexadecimal digits each, or \"random\"";
    const std::string events =
        "expected an event of the service (STATUS_IND, EFFECTIVE_LEVELS_CB, "
        "FILTER_STATUS_INDICATION, ADD_FILTER_CB, GET_FILTER_CB, PRIORITY_QUEUE_REPORT_CB, "
        "AUTO_FILTER_INFO_IND)";
    const std::string statuses =
        "expected a status (INVALID, SUCCESS, INVALID_ARG, INTERNAL_ERROR, NOT_SUPPORTED, "
        "INVALID_OPERATION, SERVICE_UP, SERVICE_DOWN, INVALID_SLOT) or its number";
    struct {
        const char* text;
        std::string error;
    } const cases[] = {
        {"", "here:1: at its end: a rule begins with \"on\""},
        {"add_filter: refuse", "here:1: \"add_filter\": a rule begins with \"on\""},
        {"On any: refuse", "here:1: \"On\": a rule begins with \"on\""},
        {"on", "here:3: at its end: " + kinds},
        {"on add_filtre: refuse", "here:4: \"add_filtre\": " + kinds},
        {"on any", "here:7: at its end: expected \":\", \"nth\", \"every\" or \"from\""},
        {"on any evry 3", "here:8: \"evry\": expected \":\", \"nth\", \"every\" or \"from\""},
        {"on any nth: refuse", "here:11: \":\": expected a number from 1 to 4294967295"},
        {"on any nth 0: refuse", "here:12: \"0\": expected a number from 1 to 4294967295"},
        {"on any every -1: refuse", "here:14: \"-1\": expected a number from 1 to 4294967295"},
        {"on any from 4294967296: refuse",
         "here:13: \"4294967296\": expected a number from 1 to 4294967295"},
        {"on any from 99999999999999999999: refuse",
         "here:13: \"99999999999999999999\": expected a number from 1 to 4294967295"},
        {"on any nth 3 refuse",
         "here:14: \"refuse\": expected \":\", \"nth\", \"every\" or \"from\""},
        {"on any:", "here:8: at its end: " + actions},
        {"on any: refsue", "here:9: \"refsue\": " + actions},
        {"on any: refuse,", "here:16: at its end: " + actions},
        {"on any: refuse never", "here:16: \"never\": expected \",\" or the end of the rule"},
        {"on any: twice 3", "here:15: \"3\": expected \",\" or the end of the rule"},
        {"on any: late", "here:13: at its end: expected a number from 0 to 86400000"},
        {"on any: late 5s", "here:14: \"5s\": expected a number from 0 to 86400000"},
        {"on any: late 86400001", "here:14: \"86400001\": expected a number from 0 to 86400000"},
        {"on any: flood, twice", "here:14: \",\": expected a number from 1 to 100000"},
        {"on any: flood 0", "here:15: \"0\": expected a number from 1 to 100000"},
        {"on any: flood 100001", "here:15: \"100001\": expected a number from 1 to 100000"},
        {"on any: wrong-id x", "here:18: \"x\": expected a number from 0 to 4294967295"},
        {"on any: mismatch x", "here:18: \"x\": " + events},
        {"on any: truncate 65537", "here:18: \"65537\": expected a number from 0 to 65536"},
        {"on any: garbage", "here:16: at its end: " + bytes},
        {"on any: garbage, twice", "here:16: \",\": " + bytes},
        {"on any: garbage 0", "here:17: \"0\": " + bytes},
        {"on any: garbage 00 0g", "here:20: \"0g\": " + bytes},
        {"on any: garbage random", "here:23: at its end: expected a number from 1 to 65536"},
        {"on any: garbage random 0", "here:24: \"0\": expected a number from 1 to 65536"},
        {"on any: garbage random 1 x", "here:26: \"x\": expected a number from 0 to 4294967295"},
        {"on any: unknown-event 6", "here:23: \"6\": expected a number from 7 to 2147483647"},
        {"on any: status", "here:15: at its end: " + statuses},
        {"on any: status UP", "here:16: \"UP\": " + statuses},
        {"on any: status 2147483648",
         "here:16: \"2147483648\": expected a number from -2147483648 to 2147483647"},
        {"on any: die", "here:12: at its end: expected \"before\" or \"after\""},
        {"on any: die now", "here:13: \"now\": expected \"before\" or \"after\""},
    };
    for (const auto& known : cases) EXPECT_EQ(errorOf(known.text), known.error) << known.text;
}

// The rules of a scenario as they are kept, or what is wrong with it.
std::vector<std::string> scenario(const std::string& text) {
    std::istringstream lines(text);
    std::vector<std::string> rules;
    try {
        for (const Rule& rule : parseScenario(lines, "file")) rules.push_back(rule.text);
    } catch (const RuleError& error) {
        return {error.what()};
    }
    return rules;
}

TEST(RuleParserTest, ScenarioHasARuleALine) {
    const std::string rule = "on any: refuse";
    const std::string mark = "\xEF\xBB\xBF";
    const std::string longest = rule + "#" + std::string(65536 - rule.size() - 1, 'x');
    const std::pair<std::string, std::vector<std::string>> rows[] = {
        {"# how it all begins\n\n  \t\non enable: never   # nobody hears\r\n" + rule,
         {"on enable: never   ", rule}},
        {"", {}},
        {rule + "\n\n" + rule + " # and\n on any refuse\n",
         {"file:4:9: \"refuse\": expected \":\", \"nth\", \"every\" or \"from\""}},
        // A byte order mark may come first.
        {mark, {}},
        {mark + rule + "\n", {rule}},
        {"\n" + mark + rule + "\n", {"file:2:1: \"\\xef\\xbb\\xbfon\": a rule begins with \"on\""}},
        // The longest line has 65536 bytes.
        {"\n" + longest + "\n" + longest, {rule, rule}},
        {"\n" + longest + "x\n", {"file:2: longer than 65536 bytes"}},
        {longest + "x", {"file:1: longer than 65536 bytes"}},
    };
    for (const auto& [text, rules] : rows) {
        EXPECT_EQ(scenario(text), rules) << text.substr(0, 100);
    }
}

TEST(RuleParserTest, WhatCannotBePrintedIsEscapedInErrors) {
    const std::string otherwise = "\": expected \":\", \"nth\", \"every\" or \"from\"";
    EXPECT_EQ(errorOf(std::string("on any a\0b\x1b[2J\x7f\xff~", 17)),
              "here:8: \"a\\x00b\\x1b[2J\\x7f\\xff~" + otherwise);
    EXPECT_EQ(errorOf("on any m\xc3\xb6glich"), "here:8: \"m\\xc3\\xb6glich" + otherwise);
}

TEST(RuleWordsTest, KindOfARequestIsItsName) {
    SdfProto::ServiceMsg request;
    EXPECT_EQ(kindOf(request), "disable");
    request.mutable_data()->mutable_enable_msg()->set_enable(true);
    EXPECT_EQ(kindOf(request), "enable");
    request.set_event_id(SdfProto::UPDATE_TARGET_DSCP);
    EXPECT_EQ(kindOf(request), "update_target_dscp");
    request.set_event_id(static_cast<SdfProto::ServiceEventId>(99));
    EXPECT_EQ(kindOf(request), "event 99");
}

TEST(RuleWordsTest, EachExampleOfTheHelpIsARule) {
    std::istringstream help(ruleHelp());
    int examples = 0;
    const std::string option = "  --rule '";
    for (std::string line; std::getline(help, line);) {
        if (line.rfind(option, 0) != 0) continue;
        EXPECT_EQ(line.back(), '\'');
        parse(line.substr(option.size(), line.size() - option.size() - 1));
        ++examples;
    }
    EXPECT_EQ(examples, 6);
}

// The rules between ` and ` and on indented lines, but not the line that tells the grammar.
std::vector<std::string> rulesIn(std::istream& page) {
    std::vector<std::string> rules;
    const std::string indented = "    on ";
    for (std::string line; std::getline(page, line);) {
        if (line.find("KIND") != std::string::npos) continue;
        if (line.rfind(indented, 0) == 0) rules.push_back(line);
        const size_t begin = line.find("`on ");
        if (begin == std::string::npos) continue;
        rules.push_back(line.substr(begin + 1, line.find('`', begin + 1) - begin - 1));
    }
    return rules;
}

TEST(RuleWordsTest, EachExampleOfTheManualIsARule) {
    std::ifstream page(LUM_EMULATOR_MANUAL);
    const std::vector<std::string> rules = rulesIn(page);
    EXPECT_EQ(rules.size(), 10U);
    for (const std::string& rule : rules) parse(rule);
}

TEST(RuleWordsTest, ManualExplainsEachAction) {
    std::ifstream page(LUM_EMULATOR_MANUAL);
    const std::string text((std::istreambuf_iterator<char>(page)), {});
    std::istringstream words(actionWords());
    for (std::string word; std::getline(words >> std::ws, word, ',');) {
        EXPECT_NE(text.find("`" + word), std::string::npos) << word;
    }
}

}  // namespace
