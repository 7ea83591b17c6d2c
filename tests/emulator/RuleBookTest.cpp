// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "tools/emulator/Rule.h"
#include "tools/emulator/RuleParser.h"

namespace {

RuleBook book(const std::vector<std::string>& texts) {
    std::vector<Rule> rules;
    rules.reserve(texts.size());
    for (const std::string& text : texts) rules.push_back(parseRule(text, "here"));
    return RuleBook(rules);
}

// For each of `times` events of a kind, whether the only rule applies: "-x--".
std::string pattern(RuleBook& book, const std::string& kind, int times) {
    std::string pattern;
    for (int i = 0; i < times; ++i) pattern += book.apply(kind).empty() ? '-' : 'x';
    return pattern;
}

TEST(RuleBookTest, RuleAppliesAtItsTimes) {
    const std::pair<std::vector<std::string>, const char*> rows[] = {
        {{"on any nth 3: refuse"}, "--x----"},
        {{"on any every 3: refuse"}, "--x--x-"},
        {{"on any from 3: refuse"}, "--xxxxx"},
        {{"on any: refuse"}, "xxxxxxx"},
        {{}, "-------"},
    };
    for (const auto& [texts, expected] : rows) {
        RuleBook rules = book(texts);
        EXPECT_EQ(pattern(rules, "enable", 7), expected);
    }
}

TEST(RuleBookTest, OnlyWhatTheRuleIsAboutCounts) {
    RuleBook rules = book({"on add_filter nth 2: refuse"});
    EXPECT_EQ(pattern(rules, "enable", 3), "---");
    EXPECT_EQ(pattern(rules, "add_filter", 1), "-");
    EXPECT_EQ(pattern(rules, "get_filters", 3), "---");
    EXPECT_EQ(pattern(rules, "add_filter", 3), "x--");
}

TEST(RuleBookTest, AnyIsAnyRequestAndNoRegistration) {
    RuleBook rules = book({"on any nth 2: refuse"});
    EXPECT_EQ(pattern(rules, "register", 3), "---");
    EXPECT_EQ(pattern(rules, "event 99", 1), "-");
    EXPECT_EQ(pattern(rules, "disable", 1), "x");
}

TEST(RuleBookTest, RegistrationHasRulesOfItsOwn) {
    RuleBook rules = book({"on register: refuse"});
    EXPECT_EQ(pattern(rules, "enable", 1), "-");
    EXPECT_EQ(pattern(rules, "register", 1), "x");
}

TEST(RuleBookTest, AllThatApplyComeInTheirOrder) {
    RuleBook rules = book(
        {"on any: twice", "on enable nth 1: never", "on enable: refuse", "on disable: refuse"});
    const auto texts = [&] {
        std::string texts;
        for (const Rule* const rule : rules.apply("enable")) texts += rule->text + "; ";
        return texts;
    };
    EXPECT_EQ(texts(), "on any: twice; on enable nth 1: never; on enable: refuse; ");
    EXPECT_EQ(texts(), "on any: twice; on enable: refuse; ");
}

}  // namespace
