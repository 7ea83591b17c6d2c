// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include "tools/sdfctl/Table.h"

namespace {

using Lines = std::vector<std::string>;

Event filter(const std::string& name, const std::string& state, unsigned int id = 0) {
    Field number = plain("filter", id);
    number.quiet = id == 0;
    return {"filter", {plain("name", name), plain("state", state), number}};
}

Event entry(unsigned int key, unsigned int value) {
    return {"queue-report", {plain("key", key), plain("first_value", value)}};
}

Event session(const std::string& state) {
    return {"session", {plain("state", state)}};
}

Lines linesOf(const Table& table) {
    return table.lines(100, 100);
}

TEST(TableTest, LatestOfEachInItsPlace) {
    Table table;
    EXPECT_EQ(linesOf(table), Lines{});
    table.put(entry(7, 1));
    table.put(filter("game", "active", 5));
    table.put(session("up"));
    table.put(filter("\u00FCber", "requested"));
    table.put(entry(32, 1000000));
    table.put(entry(7, 2));
    table.put(filter("game", "pending", 123456));
    EXPECT_EQ(linesOf(table), (Lines{
                                  "session: state=up",
                                  "filter",
                                  "  name state     filter",
                                  "  game pending   123456",
                                  "  \u00FCber requested",
                                  "queue-report",
                                  "  key first_value",
                                  "  7   2",
                                  "  32  1000000",
                              }));
    table.put(filter("game", "removed"));
    table.put(filter("game", "removed"));
    table.note("flows.json:1: is wrong");
    table.put(session("down"));
    EXPECT_EQ(linesOf(table), (Lines{"flows.json:1: is wrong", "session: state=down", "filter",
                                     "  name state     filter", "  \u00FCber requested"}));
}

TEST(TableTest, CutToWhatFits) {
    Table table;
    for (unsigned int key = 0; key < 1500; ++key) table.put(entry(key, 0));
    table.put(session("\u00FC\u00FC\u00FC\u00FC"));
    EXPECT_EQ(table.lines(4, 17), (Lines{"session: state=\u00FC\u00FC", "queue-report",
                                         "  key  first_valu", "... 1000 more lin"}));
    // Of a section the latest 1000 rows.
    EXPECT_EQ(linesOf(table)[3], "  500  0");
    EXPECT_EQ(table.lines(2000, 80).size(), 1003U);
    EXPECT_EQ(table.lines(1003, 80).back(), "  1499 0");
}

}  // namespace
