// SPDX-License-Identifier: Apache-2.0
// The file of "keep": what it may say, and what is said of one that is wrong.
#include <gtest/gtest.h>

#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>

#include "tools/sdfctl/Failure.h"
#include "tools/sdfctl/FlowFile.h"
#include "tools/sdfctl/Record.h"

namespace {

using Json = nlohmann::ordered_json;

std::string wrongWith(const std::string& text) {
    try {
        (void)readWishes(text, "flows.json");
        return "";
    } catch (const UsageError& error) {
        return error.what();
    }
}

// A file with one filter, which has the members `more` besides those that it must have. They stand
// on line 3.
std::string withFilter(const std::string& more) {
    return "{\"filters\": [\n{\"name\": \"game\", \"src\": \"192.0.2.1:5\", \"dest\": "
           "\"192.0.2.2\",\n" +
           more + "}]}";
}

TEST(FlowFileTest, EverythingThatItMaySay) {
    const Wishes wishes = readWishes(R"({
        "$schema": "flows.schema.json",
        "filters": [
            {"name": "a", "src": "192.0.2.1:5000", "dest": "[2001:db8::1]:443",
             "src_range": 1, "dest_range": 2, "protocol": "udp", "app_type": "best-effort",
             "first": "level-2", "second": 3, "ood": "enabled", "pdcp_timer": 4294967295,
             "arg6": 6, "arg11": 11, "arg13": 13, "arg16": 16, "arg17": 17, "arg19": 19,
             "arg20": 20, "extra": 255, "dscp": 46, "renewed": false},
            {"name": "b ü", "src": "192.0.2.1", "dest": "::1"}
        ],
        "levels": {"unspecified": {"first": 1, "second": 2, "flag": true},
                   "second": {"first": "level-6", "second": "level-5"}},
        "gaming": true,
        "data_priority": {"first": true, "second": false},
        "dds": {"priority": true, "ood": 3, "pdcp_timer": 0},
        "queue_reports": 0,
        "auto_filters": true
    })",
                                     "");
    ASSERT_EQ(wishes.filters.size(), 2U);
    const Flow& first = wishes.filters[0];
    EXPECT_EQ(first.name, "a");
    EXPECT_EQ(shown(describe(first.info), " "),
              "src=192.0.2.1:5000 dest=[2001:db8::1]:443 src_range=1 dest_range=2 protocol=udp "
              "app_type=best-effort first=level-2 second=level-3 ood=enabled pdcp_timer=4294967295 "
              "arg6=6 arg11=11 arg13=13 arg16=16 arg17=17 arg19=19 arg20=20");
    EXPECT_EQ(first.extra, 255);
    EXPECT_EQ(first.dscp, 46U);
    EXPECT_FALSE(first.renewed);
    const Flow& second = wishes.filters[1];
    EXPECT_EQ(second.name, "b \u00FC");
    EXPECT_EQ(shown(describe(second.info), " "),
              "src=192.0.2.1 dest=::1 first=level-1 second=level-1 ood=unspecified");
    EXPECT_EQ(second.extra, std::nullopt);
    EXPECT_EQ(second.dscp, std::nullopt);
    EXPECT_TRUE(second.renewed);
    const std::map<SdfSlotID, Levels> levels{
        {SDF_SLOT_ID_UNSPECIFIED, {SDF_LATENCY_LVL_1, SDF_LATENCY_LVL_2, true}},
        {SDF_SLOT_ID_SECOND, {SDF_LATENCY_LVL_6, SDF_LATENCY_LVL_5, false}}};
    EXPECT_EQ(wishes.levels, levels);
    EXPECT_TRUE(wishes.gaming);
    EXPECT_EQ(wishes.dataPriority, std::set<SdfSlotID>{SDF_SLOT_ID_FIRST});
    EXPECT_TRUE(wishes.ddsPriority);
    EXPECT_EQ(wishes.ddsOod, SDF_OOD_DISABLED_LVL);
    EXPECT_EQ(wishes.ddsPdcpTimer, 0U);
    EXPECT_EQ(wishes.queueReports, 0U);
    EXPECT_TRUE(wishes.autoFilters);
}

TEST(FlowFileTest, WhatIsNotThereIsNotAskedFor) {
    const Wishes wishes = readWishes(" {} \n", "");
    EXPECT_TRUE(wishes.filters.empty());
    EXPECT_TRUE(wishes.levels.empty());
    EXPECT_FALSE(wishes.gaming);
    EXPECT_TRUE(wishes.dataPriority.empty());
    EXPECT_FALSE(wishes.ddsPriority);
    EXPECT_EQ(wishes.ddsOod, SDF_OOD_UNSPECIFIED_LVL);
    EXPECT_EQ(wishes.ddsPdcpTimer, std::nullopt);
    EXPECT_EQ(wishes.queueReports, std::nullopt);
    EXPECT_FALSE(wishes.autoFilters);
}

TEST(FlowFileTest, ErrorsNameLineAndMember) {
    const struct {
        std::string text;
        const char* error;
    } rows[] = {
        // The form.
        {"",
         "flows.json:1: syntax error while parsing value - unexpected end of input; expected "
         "'[', '{', or a literal"},
        {"{\n  \"gaming\": true\n  \"dds\": {}\n}",
         "flows.json:3: syntax error while parsing object - unexpected string literal; expected "
         "'}'"},
        {"{}\n\n{}",
         "flows.json:3: syntax error while parsing value - unexpected '{'; expected end "
         "of input"},
        {"{\"a\n",
         "flows.json:1: syntax error while parsing object key - invalid string: control "
         "character U+000A (LF) must be escaped to \\u000A or \\n; last read: '\"a<U+000A>'; "
         "expected string literal"},
        {"{\n\"queue_reports\":\n1e999}", "flows.json:3: number overflow parsing '1e999'"},
        {"\n[]", "flows.json:2: an array is not an object"},
        {"\n\n9\n\n", "flows.json:3: 9 is not an object"},
        // The members of the whole.
        {"{\n\"gaming\":\ntrue,\n\"game\": 1}",
         "flows.json:4: game: is not one of $schema, filters, levels, gaming, data_priority, dds, "
         "queue_reports, auto_filters"},
        {"{\"gaming\": true,\n\"gaming\": true}", "flows.json:2: gaming: is there twice"},
        {"{\"gaming\":\n\n1}", "flows.json:1: gaming: 1 is not true or false"},
        {"{\"auto_filters\": \"on\"}", "flows.json:1: auto_filters: \"on\" is not true or false"},
        {"{\"queue_reports\": -1}",
         "flows.json:1: queue_reports: -1 is not a number from 0 to 4294967295"},
        {"{\"queue_reports\": 4294967296}",
         "flows.json:1: queue_reports: 4294967296 is not a number from 0 to 4294967295"},
        {"{\"queue_reports\": 1.5}",
         "flows.json:1: queue_reports: 1.5 is not a number from 0 to 4294967295"},
        {"{\"levels\": {\n\"third\": {}}}",
         "flows.json:2: levels.third: is not one of unspecified, first, second"},
        {"{\"levels\": {\"first\": {\n\"first\": 1}}}",
         "flows.json:1: levels.first: \"second\" is missing"},
        {"{\"levels\": {\"first\": {\n\"first\": 0, \"second\": 1}}}",
         "flows.json:2: levels.first.first: 0 is not a level from 1 to 6"},
        {"{\"data_priority\": {\"first\":\ntrue,\n\"second\": null}}",
         "flows.json:3: data_priority.second: null is not true or false"},
        {"{\"data_priority\": [\"first\"]}",
         "flows.json:1: data_priority: an array is not an object"},
        {"{\"dds\": {\"ood\": \"on\"}}",
         "flows.json:1: dds.ood: \"on\" is not one of unspecified, enabled, disabled"},
        {"{\"dds\": {\"ood\": {}}}",
         "flows.json:1: dds.ood: an object is not one of unspecified, enabled, disabled"},
        // Those of a filter.
        {"{\"filters\": {}}", "flows.json:1: filters: an object is not an array"},
        {"{\"filters\": [\n{},\n9]}", "flows.json:2: filters[0]: \"name\" is missing"},
        {withFilter("\"name\": \"other\""), "flows.json:3: filters[0].name: is there twice"},
        {withFilter("\"colour\": 1"),
         "flows.json:3: filters[0].colour: is not one of name, src, dest, extra, dscp, renewed, "
         "src_range, dest_range, protocol, app_type, first, second, ood, pdcp_timer, arg6, arg11, "
         "arg13, arg16, arg17, arg19, arg20"},
        {withFilter("\"first\": 9"),
         "flows.json:3: filters[0].first: 9 is not a level from 1 to 6"},
        {withFilter("\"first\": 9\n\n"),
         "flows.json:3: filters[0].first: 9 is not a level from 1 to 6"},
        {withFilter("\"second\": \"7\""),
         "flows.json:3: filters[0].second: \"7\" is not a level from 1 to 6"},
        {withFilter("\"protocol\": \"sctp\""),
         "flows.json:3: filters[0].protocol: \"sctp\" is not one of none, tcp, udp, tcpudp"},
        {withFilter("\"app_type\": 33"),
         "flows.json:3: filters[0].app_type: 33 is not one of unspecified, highest, priority-2 ... "
         "best-effort"},
        {withFilter("\"arg6\": 256"),
         "flows.json:3: filters[0].arg6: 256 is not a number from 0 to 255"},
        {withFilter("\"extra\": \"1\""),
         "flows.json:3: filters[0].extra: \"1\" is not a number from 0 to 255"},
        {withFilter("\"renewed\": 0"), "flows.json:3: filters[0].renewed: 0 is not true or false"},
        {withFilter("\"src_range\": 65531"),
         "flows.json:3: filters[0].src_range: behind the port of 192.0.2.1:5 there are not 65531 "
         "more"},
        {"{\"filters\": [{\"name\": \"a\", \"src\": \"none\"}]}",
         "flows.json:1: filters[0].src: \"none\" is not an address such as 192.0.2.1:5000, "
         "[2001:db8::1]:443 or 192.0.2.1"},
        {"{\"filters\": [{\"name\": \"a\", \"src\": \"::1\"}]}",
         "flows.json:1: filters[0]: \"dest\" is missing"},
        {"{\"filters\": [{\"name\": \"\"}]}",
         "flows.json:1: filters[0].name: \"\" is not a name of 1 to 64 bytes without control "
         "characters"},
        {"{\"filters\": [{\"name\": \"a\\u001b\"}]}",
         "flows.json:1: filters[0].name: \"a\\u001b\" is not a name of 1 to 64 bytes without "
         "control characters"},
        {R"({"filters": [{"name": "a", "src": "::1", "dest": "::2"},
                         {"name": "b", "src": "::1", "dest": "::3"},
                         {"name": "a", "src": "::1", "dest": "::4"}]})",
         "flows.json:3: filters[2].name: another filter has this name"},
    };
    for (const auto& row : rows) EXPECT_EQ(wrongWith(row.text), row.error) << row.text;
    EXPECT_EQ(wrongWith(withFilter("\"src_range\": 65530")), "");
    EXPECT_EQ(wrongWith("{\"filters\": [{\"name\": \"" + std::string(65, 'x') + "\"}]}")
                  .rfind("flows.json:1: filters[0].name: \"xx", 0),
              0U);
}

// ---- The schema says the same
// ---------------------------------------------------------------------

class FlowSchemaTest : public testing::Test {
  protected:
    static std::string namesOf(const Json& object) {
        std::string names;
        for (const auto& member : object["properties"].items()) {
            names += (names.empty() ? "" : ", ") + member.key();
        }
        return names;
    }
    const Json& resolved(const Json& schema) const {
        if (!schema.contains("$ref")) return schema;
        return mSchema.at(Json::json_pointer(schema["$ref"].get<std::string>().substr(1)));
    }

    const Json mSchema = Json::parse(std::ifstream(LUM_FLOWS_SCHEMA));
};

TEST_F(FlowSchemaTest, NamesTheSameMembers) {
    const Json& definitions = mSchema["definitions"];
    const auto names = [](const std::string& object) {
        const std::string error = wrongWith(object);
        const std::string before = "is not one of ";
        return error.substr(error.find(before) + before.size());
    };
    EXPECT_EQ(namesOf(mSchema), names("{\"x\": 1}"));
    EXPECT_EQ(namesOf(mSchema["properties"]["levels"]), names("{\"levels\": {\"x\": 1}}"));
    EXPECT_EQ(namesOf(mSchema["properties"]["data_priority"]),
              names("{\"data_priority\": {\"x\": 1}}"));
    EXPECT_EQ(namesOf(mSchema["properties"]["dds"]), names("{\"dds\": {\"x\": 1}}"));
    EXPECT_EQ(namesOf(definitions["slotLevels"]), names("{\"levels\": {\"first\": {\"x\": 1}}}"));
    EXPECT_EQ(namesOf(definitions["filter"]), names(withFilter("\"x\": 1")));
}

TEST_F(FlowSchemaTest, AllowsTheSameValues) {
    size_t checked = 0;
    for (const auto& member : mSchema["definitions"]["filter"]["properties"].items()) {
        const Json& schema = resolved(member.value());
        const auto isTaken = [&](const Json& value) {
            ++checked;
            return wrongWith(withFilter("\"" + member.key() + "\": " + value.dump())).empty();
        };
        if (schema.contains("enum")) {
            for (const Json& value : schema["enum"]) EXPECT_TRUE(isTaken(value)) << value;
            int64_t last = 0;
            for (const Json& value : schema["enum"]) {
                if (value.is_number()) last = value.get<int64_t>();
            }
            EXPECT_FALSE(isTaken(last + 1)) << member.key();
        }
        // With these ports from 5 on only the range of the destination, which has none, may be
        // full.
        if (schema.contains("maximum") && member.key() != "src_range") {
            const int64_t most = schema["maximum"].get<int64_t>();
            EXPECT_TRUE(isTaken(most)) << member.key();
            EXPECT_FALSE(isTaken(most + 1)) << member.key();
        }
    }
    EXPECT_GT(checked, 100U);
}

}  // namespace
