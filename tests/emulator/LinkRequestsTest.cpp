// SPDX-License-Identifier: Apache-2.0
// Requests that are not about filters, as bytes.

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>

#include "tests/emulator/FeatureFixture.h"

namespace {

class LinkRequestsTest : public FeatureFixture {};

TEST_F(LinkRequestsTest, EnableAndLatencyLevelsAreAnswered) {
    EXPECT_EQ(ask("1A 04 0A 02 08 01"), Lines{"1A 04 0A 02 08 06"});
    EXPECT_EQ(ask("08 01 10 07 1A 08 1A 06 08 01 10 01 18 03"),
              Lines{"08 01 10 07 1A 06 12 04 08 01 10 03"});
}

TEST_F(LinkRequestsTest, SettingsAreKept) {
    ask("08 01 10 07 1A 08 1A 06 08 01 10 01 18 03");    // levels L2 and L4 for the first slot
    EXPECT_EQ(ask("08 02 1A 04 22 02 08 01"), Lines{});  // PRIORITIZE_DDS on
    EXPECT_EQ(ask("08 0E 1A 06 72 04 08 02 10 01"), Lines{});  // PRIORITIZE_DATA, second slot, on
    EXPECT_EQ(ask("08 0E 1A 04 72 02 10 01"), Lines{});        // no particular slot
    EXPECT_EQ(ask("08 0B 1A 04 5A 02 08 02"), Lines{});        // UPDATE_DDS_OOD, disabled
    EXPECT_EQ(ask("08 0C 1A 05 62 03 08 AC 02"), Lines{});     // UPDATE_DDS_PDCP_TIMER 300
    EXPECT_EQ(feature().describe().dump(),
              R"({"filter_status":false,"auto_filter_info":false,"report_value":null,)"
              R"("report_interval_ms":null,"high_perf_gaming":false,"auto_filter_id":null,)"
              R"("prioritize_dds":true,"dds_ood":"SDF_OOD_DISABLED","dds_pdcp_timer":300,)"
              R"("prioritized_slots":["SLOT_ID_UNSPECIFIED","SLOT_ID_SECOND"],)"
              R"("levels":[{"slot_id":"SLOT_ID_FIRST","first_level":"L2","second_level":"L4",)"
              R"("level_flag":false}],"filters":[]})");
    ask("08 02 1A 02 22 00");
    ask("08 0E 1A 04 72 02 08 02");
    ask("08 0B 1A 02 5A 00");
    ask("08 0C 1A 02 62 00");
    ask("08 01 1A 0A 1A 08 08 01 10 05 18 63 20 01");  // levels L6 and 99, with the flag
    const auto state = feature().describe();
    EXPECT_EQ(state["prioritize_dds"], false);
    EXPECT_EQ(state["dds_ood"], "SDF_OOD_UNSPECIFIED");
    EXPECT_EQ(state["dds_pdcp_timer"], 0);
    EXPECT_EQ(state["prioritized_slots"].dump(), R"(["SLOT_ID_UNSPECIFIED"])");
    EXPECT_EQ(state["levels"].dump(), R"([{"slot_id":"SLOT_ID_FIRST","first_level":"L6",)"
                                      R"("second_level":"99","level_flag":true}])");
    EXPECT_EQ(mNotices, Lines{});
}

TEST_F(LinkRequestsTest, WhatMakesNoSenseIsNoticedAndNotKept) {
    ask("08 0E 1A 06 72 04 08 04 10 01");  // slot 4
    ask("08 0B 1A 04 5A 02 08 03");        // OOD 3
    ask("08 01 1A 04 1A 02 08 04");        // levels for slot 4
    EXPECT_EQ(mNotices,
              (Lines{"PRIORITIZE_DATA: slot_id is unknown", "UPDATE_DDS_OOD: ood is unknown"}));
    const auto state = feature().describe();
    EXPECT_EQ(state["prioritized_slots"].size() + state["levels"].size(), 0U);
    EXPECT_EQ(state["dds_ood"], nullptr);
    EXPECT_EQ(state["dds_pdcp_timer"], nullptr);
}

// priority_queue_report_cb { entries { entry_key: 32 first_value: 2^32 + 1000 second_value: 1200
// times that } }
constexpr char kFirstReport[] = "1A 14 32 12 12 10 08 20 10 E8 87 80 80 10 18 80 9F C9 80 80 96 01";

TEST_F(LinkRequestsTest, ReportWithoutFiltersIsThatOfBestEffort) {
    EXPECT_EQ(ask("08 10"), Lines{std::string("08 05 ") + kFirstReport});
    mState.reset();
    EXPECT_EQ(ask("08 10 10 07"), Lines{std::string("08 05 10 07 ") + kFirstReport});
}

// The entries of a report: key, packets beyond 2^32, bytes for each packet.
std::string entriesOf(const SdfProto::ClientMsg& message) {
    std::string text;
    for (const auto& entry : message.data().priority_queue_report_cb().entries()) {
        text += std::to_string(entry.entry_key()) + ":" +
                std::to_string(entry.first_value() - (uint64_t{1} << 32U)) + ":" +
                std::to_string(entry.second_value() / entry.first_value()) + " ";
    }
    return text;
}

TEST_F(LinkRequestsTest, QueuesAreThoseOfTheFiltersAndTheirFiguresGrow) {
    int id = 0;
    for (const SdfProto::AppType type :
         {SdfProto::APP_TYPE_NONE, SdfProto::APP_TYPE_UNSPECIFIED,
          SdfProto::APP_TYPE_TRAFFIC_PRIO_HIGHEST, SdfProto::APP_TYPE_TRAFFIC_PRIO_HIGHEST,
          SdfProto::APP_TYPE_TRAFFIC_PRIO_BE}) {
        SdfProto::AddFilter filter;
        filter.set_src_ip("::1");
        filter.set_dest_ip("::2");
        filter.set_src_port(++id);
        filter.set_app_type(type);
        const auto added = feature().filters().add(static_cast<uint64_t>(id), filter);
        ASSERT_EQ(added.status(), SdfProto::FILTER_ACTIVE);
    }
    EXPECT_EQ(entriesOf(feature().reports().make()), "0:2000:1200 1:2000:1200 32:2000:1200 ");
    EXPECT_EQ(entriesOf(feature().reports().make()), "0:4000:1200 1:4000:1200 32:4000:1200 ");
    feature().filters().remove(3);
    feature().filters().remove(1);
    feature().filters().remove(2);
    EXPECT_EQ(entriesOf(feature().reports().make()), "1:5000:1200 32:6000:1200 ");
}

TEST_F(LinkRequestsTest, PendingFiltersHaveNoQueue) {
    mPolicy.activationDelay = std::chrono::milliseconds(50);
    SdfProto::AddFilter filter;
    filter.set_src_ip("::1");
    filter.set_dest_ip("::2");
    feature().filters().add(1, filter);
    EXPECT_EQ(entriesOf(feature().reports().make()), "32:1000:1200 ");
    pass(50);
    EXPECT_EQ(entriesOf(feature().reports().make()), "0:1000:1200 32:2000:1200 ");
}

TEST_F(LinkRequestsTest, ReportsComeAtTheirInterval) {
    EXPECT_EQ(ask("08 0F 1A 06 7A 04 08 01 10 14"), Lines{});  // every 20 ms
    EXPECT_EQ(pass(19), Lines{});
    EXPECT_EQ(pass(1), Lines{std::string("08 05 ") + kFirstReport});
    EXPECT_EQ(pass(100).size(), 5U);
    EXPECT_EQ(feature().reports().registration()->interval, std::chrono::milliseconds(20));
    EXPECT_EQ(ask("08 0F 1A 02 7A 00"), Lines{});
    EXPECT_EQ(pass(100), Lines{});
    EXPECT_FALSE(feature().reports().registration());
}

TEST_F(LinkRequestsTest, ReportsAreShownAsAskedForAndAsMade) {
    const struct {
        const char* request;
        int value;
        int interval;
    } rows[] = {
        {"08 0F 1A 06 7A 04 08 01 10 14", 20, 20},
        {"08 0F 1A 04 7A 02 08 01", 0, 1000},
        {"08 0F 1A 06 7A 04 08 01 10 01", 1, 10},
    };
    for (const auto& row : rows) {
        ask(row.request);
        EXPECT_EQ(feature().describe()["report_value"], row.value);
        EXPECT_EQ(feature().describe()["report_interval_ms"], row.interval);
    }
}

TEST_F(LinkRequestsTest, SecondRegistrationTakesThePlaceOfTheFirst) {
    ask("08 0F 1A 06 7A 04 08 01 10 14");
    pass(15);
    const struct {
        const char* request;
        int interval;
    } rows[] = {
        {"08 0F 1A 06 7A 04 08 01 10 1E", 30},
        {"08 0F 1A 04 7A 02 08 01", 1000},      // none is given
        {"08 0F 1A 06 7A 04 08 01 10 01", 10},  // too short
    };
    for (const auto& row : rows) {
        EXPECT_EQ(ask(row.request), Lines{});
        EXPECT_EQ(pass(row.interval - 1), Lines{});
        EXPECT_EQ(pass(1).size(), 1U);
        EXPECT_EQ(pass(2 * row.interval).size(), 2U);
    }
}

// auto_filter_info_ind { filter_id: 0x80000001 filter { all twenty fields } status }
constexpr char kAutoFilterBegin[] =
    "08 81 80 80 80 08 12 48 0A 0A 31 39 32 2E 30 2E 32 2E 31 30 12 0D 31 39 38 2E 35 31 2E 31 30 "
    "30 2E 32 30 18 D0 86 03 20 87 D3 01 28 02 30 06 38 01 40 02 48 32 50 01 58 0B 60 02 68 0D 70 "
    "64 78 14 80 01 10 88 01 11 90 01 12 98 01 13 A0 01 14";

TEST_F(LinkRequestsTest, GamingMakesAnAutomaticFilter) {
    EXPECT_EQ(ask("08 0D 1A 04 6A 02 08 01"),
              Lines{std::string("08 06 1A 54 3A 52 ") + kAutoFilterBegin + " 18 01"});
    // On already; those who register hear of it.
    EXPECT_EQ(ask("08 0D 1A 04 6A 02 08 01"), Lines{});
    EXPECT_EQ(ask("08 11"), Lines{std::string("08 06 1A 54 3A 52 ") + kAutoFilterBegin + " 18 01"});
    // It is not one of the client's own.
    EXPECT_EQ(ask("08 05"), Lines{"08 04 1A 02 2A 00"});
    EXPECT_EQ(feature().describe()["high_perf_gaming"], true);
    EXPECT_EQ(feature().describe()["auto_filter_id"], 0x80000001);
    EXPECT_EQ(feature().describe()["auto_filter_info"], true);
    EXPECT_EQ(ask("08 0D 1A 02 6A 00"),
              Lines{std::string("08 06 1A 54 3A 52 ") + kAutoFilterBegin + " 18 03"});
    EXPECT_EQ(ask("08 0D 1A 02 6A 00"), Lines{});
    EXPECT_EQ(ask("08 11"), Lines{});
    // The next one has another id.
    const Lines second = ask("08 0D 1A 04 6A 02 08 01");
    ASSERT_EQ(second.size(), 1U);
    EXPECT_EQ(second[0].substr(0, 35), "08 06 1A 54 3A 52 08 82 80 80 80 08");
}

TEST_F(LinkRequestsTest, EveryKindHasItsHandler) {
    using namespace SdfProto;
    for (int event = ServiceEventId_MIN; event <= ServiceEventId_MAX; ++event) {
        const RequestHandler* const handler = findHandler(static_cast<ServiceEventId>(event));
        ASSERT_NE(handler, nullptr) << event;
        EXPECT_EQ(handler->event, event);
    }
    EXPECT_EQ(findHandler(static_cast<ServiceEventId>(ServiceEventId_MAX + 1)), nullptr);
    EXPECT_EQ(findHandler(static_cast<ServiceEventId>(-1)), nullptr);
}

}  // namespace
