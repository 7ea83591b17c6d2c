// SPDX-License-Identifier: Apache-2.0
// Requests about filters, as bytes.

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

#include "tests/emulator/FeatureFixture.h"
#include "tools/emulator/Filters.h"
#include "tools/emulator/Timeline.h"

namespace {

using std::chrono::milliseconds;

// add_filter { src_ip: "::1" dest_ip: "::2" } and what may follow in it, up to 127 bytes in all.
std::string add(const std::string& id, const std::string& more = "") {
    const std::string body = "0A 03 3A 3A 31 12 03 3A 3A 32 " + more;
    const auto length = static_cast<uint8_t>(fromHex(body).size());
    const std::vector<uint8_t> lengths{static_cast<uint8_t>(length + 2), 0x32, length};
    return "08 04 10 " + id + " 1A " + toHex(lengths) + " " + body;
}

// FilterData or the head of FilterInfo: filter_id, status, status_string; at most 127 bytes.
std::string data(const std::string& id, const std::string& status, const std::string& text) {
    const std::vector<uint8_t> length{static_cast<uint8_t>(text.size())};
    const std::string statusField = status == "00" ? "" : "10 " + status + " ";
    return "08 " + id + " " + statusField + "1A " + toHex(length) + " " + toHex(text);
}

// Something of at most 127 bytes, with its tag and its length before it.
std::string in(const std::string& tag, const std::string& body) {
    const std::vector<uint8_t> length{static_cast<uint8_t>(fromHex(body).size())};
    return tag + " " + toHex(length) + (body.empty() ? "" : " ") + body;
}

// ClientMsg { ADD_FILTER_CB, unique_id, add_filter_cb { filter { ... } } }
std::string added(const std::string& id, const std::string& status, const std::string& text) {
    return "08 03 10 " + id + " " + in("1A", in("22", in("0A", data(id, status, text))));
}

// ClientMsg { FILTER_STATUS_INDICATION, filter_status_indication { filters { ... } } }
std::string indication(const std::string& id, const std::string& status, const std::string& text) {
    return "08 02 " + in("1A", in("1A", in("12", data(id, status, text))));
}

// ClientMsg { GET_FILTER_CB, get_filter_cb { filters { ... } } }
std::string listed(const std::string& filter) {
    return "08 04 " + in("1A", in("2A", in("12", filter)));
}

constexpr char kGetFilters[] = "08 05";
constexpr char kDelete[] = "08 09 1A 04 52 02 08 07";
constexpr char kNoFilters[] = "08 04 1A 02 2A 00";
constexpr char kRegFilterStatus[] = "08 03 1A 04 2A 02 08 01";
constexpr char kDeleteAll[] = "08 0A";

class FilterRequestsTest : public FeatureFixture {};

TEST_F(FilterRequestsTest, AddedFilterIsActiveAtOnce) {
    // The whole of it once, to check what makes the others.
    ASSERT_EQ(add("07"), "08 04 10 07 1A 0C 32 0A 0A 03 3A 3A 31 12 03 3A 3A 32 ");
    ASSERT_EQ(added("07", "01", "active"),
              "08 03 10 07 1A 10 22 0E 0A 0C 08 07 10 01 1A 06 61 63 74 69 76 65");
    EXPECT_EQ(ask(add("07")), Lines{added("07", "01", "active")});
    EXPECT_EQ(ask(kGetFilters), Lines{listed(data("07", "01", "active"))});
    EXPECT_EQ(pass(100000), Lines{});
}

TEST_F(FilterRequestsTest, ListHasAllFiltersInOrderOfAdditionWithTheirSettings) {
    EXPECT_EQ(ask(kGetFilters), Lines{kNoFilters});
    ask(add("09"));
    // Levels L2 and L3, PDCP timer 50, OOD enabled.
    ask(add("07", "38 01 40 02 48 32 50 01"));
    const std::string first = in("12", data("09", "01", "active"));
    const std::string second = in("12", data("07", "01", "active") + " 20 01 28 02 30 32 38 01");
    EXPECT_EQ(ask(kGetFilters), Lines{"08 04 " + in("1A", in("2A", first + " " + second))});
    // An id of the request comes back.
    EXPECT_EQ(ask("08 05 10 03"), Lines{"08 04 10 03 " + in("1A", in("2A", first + " " + second))});
}

TEST_F(FilterRequestsTest, SameDescriptionIsADuplicateAsLongAsTheFilterLives) {
    ask(add("07"));
    EXPECT_EQ(ask(add("08")), Lines{added("08", "04", "the same as filter 7")});
    // Another one in a single field, field 18, present and 0.
    EXPECT_EQ(ask(add("08", "90 01 00")), Lines{added("08", "01", "active")});
    // An update does not make another filter of it.
    ask("08 07 1A 06 42 04 08 07 10 01");
    EXPECT_EQ(ask(add("09")), Lines{added("09", "04", "the same as filter 7")});
    ask(kDelete);
    EXPECT_EQ(ask(add("09")), Lines{added("09", "01", "active")});
}

TEST_F(FilterRequestsTest, LimitIsKept) {
    mPolicy.filterLimit = 2;
    mPolicy.deniedUids = {999};  // another user
    ask(add("07"));
    ask(add("08", "18 01"));
    EXPECT_EQ(ask(add("09", "18 02")), Lines{added("09", "05", "no more than 2 filters")});
    // A duplicate is a duplicate first.
    EXPECT_EQ(ask(add("09")), Lines{added("09", "04", "the same as filter 7")});
    ask(kDelete);
    EXPECT_EQ(ask(add("09", "18 02")), Lines{added("09", "01", "active")});
}

TEST_F(FilterRequestsTest, SixtyFourFiltersAreTheUsualLimit) {
    for (uint8_t i = 1; i <= 64; ++i) {
        const std::string number = toHex(std::vector<uint8_t>{i});
        ASSERT_EQ(ask(add(number, "18 " + number)), Lines{added(number, "01", "active")});
    }
    EXPECT_EQ(ask(add("41", "18 41")), Lines{added("41", "05", "no more than 64 filters")});
}

TEST_F(FilterRequestsTest, UserWithoutPermissionIsRejectedWhateverItAsks) {
    mPolicy.deniedUids = {999, 1000};
    EXPECT_EQ(ask(add("07", "60 22")), Lines{added("07", "08", "uid 1000 may not add filters")});
    EXPECT_EQ(ask(kGetFilters), Lines{kNoFilters});
}

TEST_F(FilterRequestsTest, IdsAndDescriptionsThatMakeNoFilterAreRejected) {
    EXPECT_EQ(
        ask(add("00")),
        Lines{"08 03 " +
              in("1A",
                 in("22", in("0A", "10 06 1A 20 " +
                                       toHex(std::string("unique_id is not 1 to 4294967295")))))});
    // 2^32 + 7, of which the reply's filter has what fits.
    EXPECT_EQ(
        ask(add("87 80 80 80 10")),
        Lines{"08 03 10 87 80 80 80 10 " +
              in("1A", in("22", in("0A", data("07", "06", "unique_id is not 1 to 4294967295"))))});
    ask(add("07"));
    EXPECT_EQ(ask(add("07", "18 01")), Lines{added("07", "06", "unique_id is in use")});
    // Before it is a duplicate.
    EXPECT_EQ(ask(add("07")), Lines{added("07", "06", "unique_id is in use")});
    // APP_TYPE 34.
    EXPECT_EQ(ask(add("08", "60 22")), Lines{added("08", "06", "app_type is unknown")});
    // 2^32 - 1, the last.
    EXPECT_EQ(ask(add("FF FF FF FF 0F", "18 01")), Lines{added("FF FF FF FF 0F", "01", "active")});
}

TEST_F(FilterRequestsTest, PendingFilterBecomesActiveAndNotifiesThoseWhoRegistered) {
    mPolicy.activationDelay = milliseconds(50);
    ask(kRegFilterStatus);
    EXPECT_EQ(ask(add("07")), Lines{added("07", "00", "not yet active")});
    EXPECT_EQ(ask(kGetFilters), Lines{listed(data("07", "00", "not yet active"))});
    EXPECT_EQ(pass(49), Lines{});
    EXPECT_EQ(pass(1), Lines{indication("07", "01", "active")});
    EXPECT_EQ(ask(kGetFilters), Lines{listed(data("07", "01", "active"))});
    EXPECT_EQ(pass(1000), Lines{});
}

TEST_F(FilterRequestsTest, NobodyIsNotifiedWithoutRegistration) {
    mPolicy.activationDelay = milliseconds(50);
    mPolicy.inactivityTimeout = milliseconds(100);
    ask(add("07"));
    EXPECT_EQ(ask("08 08 1A 06 4A 04 08 07 10 05"), Lines{});
    EXPECT_EQ(pass(1000), Lines{});
    EXPECT_EQ(ask(kGetFilters), Lines{kNoFilters});
    ask(add("07"));
    EXPECT_EQ(ask(kDelete), Lines{});
    // Nor after one that has ended.
    ask(kRegFilterStatus);
    ask("08 03 1A 02 2A 00");
    ask(add("07"));
    EXPECT_EQ(ask(kDeleteAll), Lines{});
}

TEST_F(FilterRequestsTest, FilterThatNoRequestNamesTimesOut) {
    mPolicy.inactivityTimeout = milliseconds(100);
    ask(kRegFilterStatus);
    ask(add("07"));
    ask(add("08", "18 01"));
    EXPECT_EQ(pass(99), Lines{});
    // PDCP timer of 8; a list of all names none.
    EXPECT_EQ(ask("08 08 1A 06 4A 04 08 08 10 05"),
              Lines{indication("08", "01", "PDCP timer updated")});
    ask(kGetFilters);
    EXPECT_EQ(pass(1), Lines{indication("07", "17", "named by no request for 100 ms")});
    EXPECT_EQ(pass(98), Lines{});
    EXPECT_EQ(pass(1), Lines{indication("08", "17", "named by no request for 100 ms")});
    EXPECT_EQ(ask(kGetFilters), Lines{kNoFilters});
    EXPECT_EQ(pass(1000), Lines{});
}

TEST_F(FilterRequestsTest, UpdatesChangeWhatTheListSays) {
    ask(kRegFilterStatus);
    ask(add("07"));
    // Levels L3 and L6, OOD disabled, PDCP timer 300, target DSCP 46.
    EXPECT_EQ(ask("08 06 1A 08 3A 06 08 07 10 02 18 05"),
              Lines{indication("07", "01", "latency levels updated")});
    EXPECT_EQ(ask("08 07 1A 06 42 04 08 07 10 02"), Lines{indication("07", "01", "OOD updated")});
    EXPECT_EQ(ask("08 08 1A 07 4A 05 08 07 10 AC 02"),
              Lines{indication("07", "01", "PDCP timer updated")});
    EXPECT_EQ(ask("08 12 1A 07 82 01 04 08 07 10 2E"),
              Lines{indication("07", "01", "target DSCP updated")});
    const std::string info = data("07", "01", "active") + " 20 02 28 05 30 AC 02 38 02";
    EXPECT_EQ(ask(kGetFilters), Lines{listed(info)});
    EXPECT_EQ(feature().filters().all().front().targetDscp, 46U);
    EXPECT_EQ(mNotices, Lines{});
}

TEST_F(FilterRequestsTest, PendingFilterIsUpdatedAndDeletedAsSuch) {
    mPolicy.activationDelay = milliseconds(50);
    ask(kRegFilterStatus);
    ask(add("07"));
    EXPECT_EQ(ask("08 07 1A 06 42 04 08 07 10 02"), Lines{indication("07", "00", "OOD updated")});
    EXPECT_EQ(ask(kDelete), Lines{indication("07", "03", "deleted")});
    EXPECT_EQ(pass(1000), Lines{});
}

TEST_F(FilterRequestsTest, UpdatesAndDeletesOfUnknownFiltersAreNoticed) {
    ask(kRegFilterStatus);
    EXPECT_EQ(ask("08 06 1A 04 3A 02 08 07"), Lines{});
    EXPECT_EQ(ask("08 07 1A 04 42 02 08 07"), Lines{});
    EXPECT_EQ(ask("08 08 1A 04 4A 02 08 07"), Lines{});
    EXPECT_EQ(ask("08 12 1A 05 82 01 02 08 07"), Lines{});
    EXPECT_EQ(ask(kDelete), Lines{});
    EXPECT_EQ(ask(kDeleteAll), Lines{});
    EXPECT_EQ(
        mNotices,
        (Lines{"UPDATE_LATENCY_LEVEL: there is no filter 7", "UPDATE_OOD: there is no filter 7",
               "UPDATE_PDCP_TIMER: there is no filter 7",
               "UPDATE_TARGET_DSCP: there is no filter 7", "DELETE_FILTER: there is no filter 7"}));
}

TEST_F(FilterRequestsTest, UnknownValuesChangeNothing) {
    ask(kRegFilterStatus);
    ask(add("07"));
    const Lines before = ask(kGetFilters);
    EXPECT_EQ(ask("08 06 1A 06 3A 04 08 07 10 06"), Lines{});     // first level 6
    EXPECT_EQ(ask("08 06 1A 06 3A 04 08 07 18 06"), Lines{});     // second level 6
    EXPECT_EQ(ask("08 07 1A 06 42 04 08 07 10 03"), Lines{});     // OOD 3
    EXPECT_EQ(ask("08 12 1A 07 82 01 04 08 07 10 40"), Lines{});  // DSCP 64
    EXPECT_EQ(ask(kGetFilters), before);
    EXPECT_EQ(feature().filters().all().front().targetDscp, std::nullopt);
    EXPECT_EQ(mNotices,
              (Lines{"UPDATE_LATENCY_LEVEL: a level is unknown",
                     "UPDATE_LATENCY_LEVEL: a level is unknown", "UPDATE_OOD: ood is unknown",
                     "UPDATE_TARGET_DSCP: target_dscp is not 0 to 63"}));
}

TEST_F(FilterRequestsTest, DeleteAllTellsOfAllInOneMessage) {
    ask(kRegFilterStatus);
    ask(add("07"));
    ask(add("08", "18 01"));
    const std::string both =
        in("12", data("07", "03", "deleted")) + " " + in("12", data("08", "03", "deleted"));
    EXPECT_EQ(ask(kDeleteAll), Lines{"08 02 " + in("1A", in("1A", both))});
    EXPECT_EQ(ask(kGetFilters), Lines{kNoFilters});
    EXPECT_EQ(ask(kDeleteAll), Lines{});
}

TEST_F(FilterRequestsTest, NothingIsDueForAFeatureThatHasLeft) {
    mPolicy.activationDelay = milliseconds(50);
    mPolicy.inactivityTimeout = milliseconds(100);
    ask(kRegFilterStatus);
    ask(add("07"));
    ask("08 0F 1A 04 7A 02 08 01");  // REG_PRIORITY_QUEUE_REPORTS, enable
    mState.reset();
    EXPECT_FALSE(mClock.timeline().next());
}

// On a machine so slow that its clock moves on from one look at it to the next.
TEST(FiltersTest, ShorterDelayEndsFirstHoweverSlowTheThreadIs) {
    Timeline::Time now{};
    Timeline timeline([&now] { return now += milliseconds(30); });
    Policy policy;
    policy.activationDelay = milliseconds(20);
    policy.inactivityTimeout = milliseconds(40);
    std::vector<SdfProto::FilterStatus> statuses;
    Filters filters(0, policy, timeline, [&statuses](const SdfProto::FilterData& data) {
        statuses.push_back(data.status());
    });
    SdfProto::AddFilter description;
    description.set_src_ip("::1");
    description.set_dest_ip("::2");
    statuses.push_back(filters.add(7, description).status());
    while (timeline.next()) timeline.run();
    EXPECT_EQ(statuses, (std::vector<SdfProto::FilterStatus>{SdfProto::FILTER_PENDING,
                                                             SdfProto::FILTER_ACTIVE,
                                                             SdfProto::FILTER_INACTIVITY_TIMEOUT}));
}

}  // namespace
