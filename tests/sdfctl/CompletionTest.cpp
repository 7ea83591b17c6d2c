// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <algorithm>

#include "tools/sdfctl/Commands.h"
#include "tools/sdfctl/Completion.h"

namespace {

using Texts = std::vector<std::string>;

Texts candidates(const std::string& text, const std::vector<unsigned int>& filters = {}) {
    return complete(text, filters).candidates;
}

TEST(CompletionTest, CommandsFirst) {
    EXPECT_EQ(candidates("").size(), commands().size());
    EXPECT_EQ(candidates("set"), Texts{"set-latency"});
    EXPECT_EQ(candidates("  de"), (Texts{"destroy", "delete-filter", "delete-all-filters"}));
    EXPECT_EQ(candidates("create then de"),
              (Texts{"destroy", "delete-filter", "delete-all-filters"}));
    EXPECT_EQ(candidates("nothing"), Texts{});
}

TEST(CompletionTest, WordsOfEachArgumentInTurn) {
    EXPECT_EQ(candidates("set-latency "),
              (Texts{"unspecified", "first", "second", "--flag", "--null-callback", "then"}));
    EXPECT_EQ(candidates("set-latency f"), Texts{"first"});
    EXPECT_EQ(candidates("set-latency --flag first level-"),
              (Texts{"level-1", "level-2", "level-3", "level-4", "level-5", "level-6"}));
    EXPECT_EQ(candidates("set-latency first 1 level-6"), Texts{"level-6"});
    EXPECT_EQ(candidates("set-latency first 1 1 "), (Texts{"--flag", "--null-callback", "then"}));
    EXPECT_EQ(candidates("prioritize-data first o"), (Texts{"on", "off"}));
    EXPECT_EQ(candidates("help get-"), (Texts{"get-filters", "get-priority-queue-report"}));
    EXPECT_EQ(candidates("wait leg"), Texts{"legacy-status"});
    EXPECT_EQ(candidates("wait filter-status de"), Texts{"deleted"});
}

TEST(CompletionTest, OptionsAndTheirValues) {
    EXPECT_EQ(candidates("add-filter --src-"), (Texts{"--src-range", "--src-family"}));
    EXPECT_EQ(candidates("add-filter --protocol t"), (Texts{"tcp", "tcpudp"}));
    EXPECT_EQ(candidates("add-filter --protocol tcp --ood "),
              (Texts{"unspecified", "enabled", "disabled"}));
    EXPECT_EQ(candidates("add-filter --arg6 "), Texts{});
    EXPECT_EQ(candidates("add-filter --arg6 1 --null"), Texts{"--null-callback"});
}

TEST(CompletionTest, Filters) {
    EXPECT_EQ(candidates("delete-filter ", {12, 7}), (Texts{"last", "12", "7", "then"}));
    EXPECT_EQ(candidates("update-ood 1", {12, 7}), Texts{"12"});
    EXPECT_EQ(candidates("update-ood 12 e", {12, 7}), Texts{"enabled"});
}

TEST(CompletionTest, NothingForWhatIsNoCommand) {
    EXPECT_EQ(candidates("nothing "), Texts{});
    EXPECT_EQ(candidates("then "), Texts(candidates("")));
}

TEST(CompletionTest, CommandLineOfTheProgram) {
    EXPECT_EQ(completeLine("sdfctl"), Texts{});
    EXPECT_EQ(completeLine("sdfctl --"), (Texts{"--help", "--version", "--json", "--wait",
                                                "--timeout", "--no-answers", "--manual"}));
    EXPECT_EQ(completeLine("sdfctl ").size(), commands().size() + 7);
    EXPECT_EQ(completeLine("bin/sdfctl --json --wait=5 doc"), Texts{"doctor"});
    EXPECT_EQ(completeLine("sdfctl --timeout "), Texts{});
    EXPECT_EQ(completeLine("sdfctl --timeout 5"), Texts{});
    EXPECT_EQ(completeLine("sdfctl --timeout 5 --man"), Texts{"--manual"});
    EXPECT_EQ(completeLine("sdfctl --timeout 5 set-l"), Texts{"set-latency"});
    EXPECT_EQ(completeLine("sdfctl --json set-latency first --j"), Texts{});
    EXPECT_EQ(completeLine("sdfctl create then prioritize-data s"), Texts{"second"});
    EXPECT_EQ(completeLine("sdfctl delete-filter "), (Texts{"last", "then"}));
}

TEST(CompletionTest, TypedPartAndCommonStart) {
    EXPECT_EQ(complete("create then upd", {}).typed, "upd");
    EXPECT_EQ(complete("create ", {}).typed, "");
    EXPECT_EQ(commonStart({}), "");
    EXPECT_EQ(commonStart({"update-ood"}), "update-ood");
    EXPECT_EQ(commonStart({"update-ood", "update-dds-ood", "update-latency"}), "update-");
    EXPECT_EQ(commonStart({"a", "b"}), "");
}

}  // namespace
