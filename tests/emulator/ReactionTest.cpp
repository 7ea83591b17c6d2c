// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/support/Hex.h"
#include "tools/emulator/Reaction.h"
#include "tools/emulator/RuleParser.h"

namespace {

using Lines = std::vector<std::string>;

// Levels L2 and L4, unique_id 7.
constexpr char kLevels[] = "08 01 10 07 1A 06 12 04 08 01 10 03";

SdfProto::ClientMsg message(const std::string& hex) {
    const std::vector<uint8_t> bytes = fromHex(hex);
    SdfProto::ClientMsg message;
    if (!message.ParseFromArray(bytes.data(), static_cast<int>(bytes.size()))) {
        throw std::invalid_argument("no message: " + hex);
    }
    return message;
}

// What becomes of answers, to a request with the id 7, by rules that do these actions; "+MS" goes
// before what is late.
Lines becomes(const Lines& answers, const Lines& actions) {
    std::vector<std::unique_ptr<Rule>> rules;
    std::vector<const Rule*> all;
    for (const std::string& action : actions) {
        rules.push_back(std::make_unique<Rule>(parseRule("on any: " + action, "here")));
        all.push_back(rules.back().get());
    }
    Answers messages;
    for (const std::string& answer : answers) messages.push_back(message(answer));
    Lines sent;
    for (const Outgoing& outgoing : Reaction(all).messages(messages, 7)) {
        const auto delay = outgoing.delay.count();
        sent.push_back((delay == 0 ? "" : "+" + std::to_string(delay) + " ") +
                       toHex(outgoing.bytes()));
    }
    return sent;
}

Lines becomes(const std::string& answer, const std::string& actions) {
    return becomes(Lines{answer}, Lines{actions});
}

TEST(ReactionTest, WithoutRulesAnswersAreAsTheyAre) {
    EXPECT_EQ(becomes(Lines{kLevels, "1A 04 0A 02 08 06"}, {}),
              (Lines{kLevels, "1A 04 0A 02 08 06"}));
    const Reaction reaction({});
    EXPECT_FALSE(reaction.refuses());
    EXPECT_FALSE(reaction.diesBefore());
    EXPECT_FALSE(reaction.diesAfter());
}

TEST(ReactionTest, KnowsWhatIsToBeDoneBesides) {
    const Rule first = parseRule("on any: twice, refuse", "here");
    const Rule second = parseRule("on any: die before", "here");
    const Rule third = parseRule("on any: die after", "here");
    const Reaction refusing({&first});
    EXPECT_TRUE(refusing.refuses());
    EXPECT_FALSE(refusing.diesBefore());
    EXPECT_FALSE(refusing.diesAfter());
    EXPECT_TRUE(Reaction({&first, &second}).diesBefore());
    EXPECT_FALSE(Reaction({&first, &second}).diesAfter());
    EXPECT_TRUE(Reaction({&third}).diesAfter());
    EXPECT_FALSE(Reaction({&third}).refuses());
    EXPECT_EQ(becomes(kLevels, "refuse, die before, die after"), Lines{kLevels});
}

TEST(ReactionTest, NeverAndLate) {
    EXPECT_EQ(becomes(kLevels, "never"), Lines{});
    EXPECT_EQ(becomes(kLevels, "late 20"), Lines{std::string("+20 ") + kLevels});
    EXPECT_EQ(becomes(kLevels, "late 20, twice, late 5"),
              (Lines{std::string("+25 ") + kLevels, std::string("+25 ") + kLevels}));
}

TEST(ReactionTest, CopiesOfAMessageComeTogether) {
    EXPECT_EQ(becomes(Lines{kLevels, ""}, {"twice"}), (Lines{kLevels, kLevels, "", ""}));
    EXPECT_EQ(becomes(kLevels, "flood 3, twice").size(), 6U);
    EXPECT_EQ(becomes(Lines{}, {"flood 100"}), Lines{});
    EXPECT_EQ(becomes(kLevels, "flood 100000, flood 100000, twice").size(), 100000U);
    // At the limit nothing is copied any more, which would only take the place of what follows.
    const Lines most = becomes(Lines{kLevels, ""}, {"flood 60000, twice"});
    EXPECT_EQ(most.size(), 100000U);
    EXPECT_EQ(most.back(), "");
}

TEST(ReactionTest, WrongIdIsTheNextOneOrTheOneGiven) {
    EXPECT_EQ(becomes(kLevels, "wrong-id"), Lines{"08 01 10 08 1A 06 12 04 08 01 10 03"});
    EXPECT_EQ(becomes(kLevels, "wrong-id 0"), Lines{"08 01 1A 06 12 04 08 01 10 03"});
    // After the last id comes 0.
    EXPECT_EQ(becomes("08 01 10 FF FF FF FF 0F", "wrong-id"), Lines{"08 01"});
    // add_filter_cb { filter { 7 } }, and without a filter
    EXPECT_EQ(becomes("08 03 10 07 1A 06 22 04 0A 02 08 07", "wrong-id"),
              Lines{"08 03 10 08 1A 06 22 04 0A 02 08 08"});
    EXPECT_EQ(becomes("08 03 10 07 1A 02 22 00", "wrong-id"),
              Lines{"08 03 10 08 1A 06 22 04 0A 02 08 01"});
    // filter_status_indication { filters { 7 } filters { 9 } }
    EXPECT_EQ(becomes("08 02 1A 0A 1A 08 12 02 08 07 12 02 08 09", "wrong-id"),
              Lines{"08 02 10 01 1A 0A 1A 08 12 02 08 08 12 02 08 0A"});
    // get_filter_cb { filters { 7 } }
    EXPECT_EQ(becomes("08 04 1A 06 2A 04 12 02 08 07", "wrong-id 5"),
              Lines{"08 04 10 05 1A 06 2A 04 12 02 08 05"});
    // auto_filter_info_ind { 7 }
    EXPECT_EQ(becomes("08 06 1A 04 3A 02 08 07", "wrong-id"),
              Lines{"08 06 10 01 1A 04 3A 02 08 08"});
    // A report has keys, which are no ids.
    EXPECT_EQ(becomes("08 05 1A 06 32 04 12 02 08 07", "wrong-id"),
              Lines{"08 05 10 01 1A 06 32 04 12 02 08 07"});
}

TEST(ReactionTest, MismatchKeepsTheBody) {
    EXPECT_EQ(becomes(kLevels, "mismatch"), Lines{"08 02 10 07 1A 06 12 04 08 01 10 03"});
    EXPECT_EQ(becomes(kLevels, "mismatch STATUS_IND"), Lines{"10 07 1A 06 12 04 08 01 10 03"});
    // After the last event comes the first.
    EXPECT_EQ(becomes("08 06 1A 04 3A 02 08 07", "mismatch"), Lines{"1A 04 3A 02 08 07"});
}

TEST(ReactionTest, EmptyBodyKeepsWhatItIsTheBodyOf) {
    EXPECT_EQ(becomes("1A 04 0A 02 08 06", "empty-body"), Lines{"1A 02 0A 00"});
    EXPECT_EQ(becomes(kLevels, "empty-body"), Lines{"08 01 10 07 1A 02 12 00"});
    EXPECT_EQ(becomes("08 02 1A 06 1A 04 12 02 08 07", "empty-body"), Lines{"08 02 1A 02 1A 00"});
    EXPECT_EQ(becomes("08 03 1A 06 22 04 0A 02 08 07", "empty-body"), Lines{"08 03 1A 02 22 00"});
    EXPECT_EQ(becomes("08 04 1A 06 2A 04 12 02 08 07", "empty-body"), Lines{"08 04 1A 02 2A 00"});
    EXPECT_EQ(becomes("08 05 1A 06 32 04 12 02 08 07", "empty-body"), Lines{"08 05 1A 02 32 00"});
    EXPECT_EQ(becomes("08 06 1A 04 3A 02 08 07", "empty-body"), Lines{"08 06 1A 02 3A 00"});
    EXPECT_EQ(becomes(kLevels, "no-body"), Lines{"08 01 10 07"});
    EXPECT_EQ(becomes(kLevels, "no-body, wrong-id, empty-body"), Lines{"08 01 10 08"});
}

TEST(ReactionTest, TruncatedMessageIsItsFirstBytes) {
    EXPECT_EQ(becomes(kLevels, "truncate"), Lines{"08 01 10 07 1A 06 12 04 08 01 10"});
    EXPECT_EQ(becomes(kLevels, "truncate 3"), Lines{"08 01 10"});
    EXPECT_EQ(becomes(kLevels, "truncate 0"), Lines{""});
    EXPECT_EQ(becomes(kLevels, "truncate 12"), Lines{kLevels});
    EXPECT_EQ(becomes(kLevels, "truncate 13"), Lines{kLevels});
    EXPECT_EQ(becomes(kLevels, "truncate 1, truncate, truncate"), Lines{""});
    EXPECT_EQ(becomes(kLevels, "truncate 4, wrong-id, mismatch, empty-body, no-body, late 5"),
              Lines{"+5 08 01 10 07"});
    EXPECT_EQ(becomes(Lines{}, {"garbage 08 01, wrong-id, truncate 1"}), Lines{"08"});
}

TEST(ReactionTest, AdditionsComeAfterWhatIsThere) {
    EXPECT_EQ(becomes(kLevels, "garbage ff 0a"), (Lines{kLevels, "FF 0A"}));
    EXPECT_EQ(becomes(kLevels, "never, garbage ff, twice"), (Lines{"FF", "FF"}));
    // Event 99 with the request's id and status_msg { SERVICE_DOWN }.
    EXPECT_EQ(becomes(kLevels, "unknown-event"), (Lines{kLevels, "08 63 10 07 1A 04 0A 02 08 07"}));
    EXPECT_EQ(becomes(Lines{}, {"unknown-event 7"}), Lines{"08 07 10 07 1A 04 0A 02 08 07"});
    EXPECT_EQ(becomes(kLevels, "status INTERNAL_ERROR"), (Lines{kLevels, "1A 04 0A 02 08 03"}));
    EXPECT_EQ(becomes(Lines{}, {"status -1"}),
              Lines{"1A 0D 0A 0B 08 FF FF FF FF FF FF FF FF FF 01"});
    EXPECT_EQ(becomes(Lines{kLevels}, {"garbage ff", "twice"}),
              (Lines{kLevels, kLevels, "FF", "FF"}));
    EXPECT_EQ(becomes(Lines{kLevels}, {"twice", "garbage ff"}), (Lines{kLevels, kLevels, "FF"}));
    EXPECT_EQ(becomes(Lines{kLevels}, {"garbage ff", "never"}), Lines{});
}

}  // namespace
