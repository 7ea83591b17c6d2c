// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "tools/sdfctl/Commands.h"
#include "tools/sdfctl/Completion.h"
#include "tools/sdfctl/Programs.h"

namespace {

using Texts = std::vector<std::string>;

Texts candidates(const std::string& text) {
    return complete(text).candidates;
}

TEST(CompletionTest, WhatMayFollow) {
    const std::vector<std::pair<std::string, Texts>> rows{
        // Commands first.
        {"set", {"set-latency"}},
        {"  de", {"destroy", "delete-filter", "delete-all-filters"}},
        {"create then de", {"destroy", "delete-filter", "delete-all-filters"}},
        {"nothing", {}},
        {"nothing ", {}},
        {"then ", candidates("")},
        // The words of each argument in turn.
        {"set-latency ", {"unspecified", "first", "second", "--flag", "--null-callback", "then"}},
        {"set-latency f", {"first"}},
        {"set-latency --flag first level-",
         {"level-1", "level-2", "level-3", "level-4", "level-5", "level-6"}},
        {"set-latency first 1 level-6", {"level-6"}},
        {"set-latency first 1 1 ", {"--flag", "--null-callback", "then"}},
        {"prioritize-data first o", {"on", "off"}},
        {"help get-", {"get-filters", "get-priority-queue-report"}},
        {"wait leg", {"legacy-status"}},
        {"wait filter-status de", {"deleted"}},
        // Options and their values.
        {"add-filter --src-", {"--src-range", "--src-family"}},
        {"add-filter --protocol t", {"tcp", "tcpudp"}},
        {"add-filter --protocol tcp --ood ", {"unspecified", "enabled", "disabled"}},
        {"add-filter --arg6 ", {}},
        {"add-filter --arg6 1 --null", {"--null-callback"}},
        // Filters.
        {"delete-filter ", {"last", "then"}},
        {"update-ood 12 e", {"enabled"}},
    };
    for (const auto& [typed, expected] : rows) {
        EXPECT_EQ(candidates(typed), expected) << typed;
    }
    EXPECT_EQ(candidates("").size(), commands().size());
}

TEST(CompletionTest, CommandLineOfTheProgram) {
    EXPECT_EQ(completeLine("sdfctl"), Texts{});
    EXPECT_EQ(completeLine("sdfctl --"),
              (Texts{"--help", "--version", "--json", "--timeout", "--no-answers", "--manual"}));
    EXPECT_EQ(completeLine("sdfctl ").size(), commands().size() + programs().size() + 6);
    EXPECT_EQ(completeLine("bin/sdfctl --json --timeout=5 doc"), Texts{"doctor"});
    EXPECT_EQ(completeLine("sdfctl --timeout "), Texts{});
    EXPECT_EQ(completeLine("sdfctl --timeout 5"), Texts{});
    EXPECT_EQ(completeLine("sdfctl --timeout 5 --man"), Texts{"--manual"});
    EXPECT_EQ(completeLine("sdfctl --timeout 5 set-l"), Texts{"set-latency"});
    EXPECT_EQ(completeLine("sdfctl --json set-latency first --j"), Texts{});
    EXPECT_EQ(completeLine("sdfctl create then prioritize-data s"), Texts{"second"});
    EXPECT_EQ(completeLine("sdfctl doctor -"), (Texts{"--json", "--timeout"}));
    EXPECT_EQ(completeLine("sdfctl doctor --timeout "), Texts{});
    EXPECT_EQ(completeLine("sdfctl create then doc"), Texts{});
    EXPECT_EQ(completeLine("sdfctl delete-filter "), (Texts{"last", "then"}));
}

TEST(CompletionTest, TypedPartAndCommonStart) {
    EXPECT_EQ(complete("create then upd").typed, "upd");
    EXPECT_EQ(complete("create ").typed, "");
    EXPECT_EQ(commonStart({}), "");
    EXPECT_EQ(commonStart({"update-ood"}), "update-ood");
    EXPECT_EQ(commonStart({"update-ood", "update-dds-ood", "update-latency"}), "update-");
    EXPECT_EQ(commonStart({"a", "b"}), "");
}

}  // namespace
