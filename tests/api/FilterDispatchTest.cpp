// SPDX-License-Identifier: Apache-2.0
// Dispatch of what the service says of filters and queues; of its other messages see
// DispatchTest.cpp. Last, what all messages have in common.
#include <google/protobuf/stubs/logging.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>

#include "proto/SdfProto.pb.h"
#include "tests/api/ClientFixture.h"
#include "tests/api/ClientState.h"
#include "tests/api/Requests.h"
#include "tests/api/ScriptedRand.h"
#include "tests/support/Hex.h"
#include "tests/support/LogCapture.h"

namespace {

using Ids = std::vector<unsigned int>;
using Lines = std::vector<LogLine>;
using service::field;
using service::message;

constexpr int kFilterStatus = 2;
constexpr int kAddFilter = 3;
constexpr int kGetFilters = 4;
constexpr int kReport = 5;
constexpr int kAuto = 6;

// The states that the service sends, as the byte on the wire, and what the application is told. 2,
// 9 and 24 have no name.
const struct {
    const char* wire;
    int told;
} kStates[] = {{"00", 0}, {"01", 1}, {"17", 2}, {"03", 3}, {"04", 4}, {"05", 5},
               {"06", 6}, {"07", 7}, {"08", 8}, {"02", 0}, {"09", 0}, {"18", 0}};

class FilterDispatchTest : public ClientTest {
  protected:
    // Everything registered; requests 7 (levels) and 8 (a filter) wait; filter 300 is confirmed.
    void SetUp() override { startUpWithAll(); }

    static std::string receiveLogged(const std::string& hex, Lines* lines) {
        const LogCapture log;
        const ClientState before;
        receive(hex);
        *lines = log.lines();
        return ClientState().differences(before);
    }

    // Receives it and returns the names of what it changed; nothing is logged.
    static std::string changesBy(const std::string& hex) {
        Lines lines;
        std::string changes = receiveLogged(hex, &lines);
        EXPECT_EQ(lines, Lines{}) << hex;
        return changes;
    }
};

// ---- FILTER_STATUS_INDICATION

TEST_F(FilterDispatchTest, StatusOfALiveFilter) {
    for (const auto& [wire, told] : kStates) {
        SCOPED_TRACE(wire);
        client().mFilterIds = {1, 9, 2, 9};
        client().mFilterCbs = {{8, app::onAdded}, {9, app::onOtherAdded}};
        client().mUsedIds = {9};
        EXPECT_EQ(changesBy(message(kFilterStatus, field("12", std::string("08 09 10 ") + wire))),
                  told > 1 ? "filterIds filterCbs" : "");
        EXPECT_EQ(app::takeCalls(), Calls{"filterStatus(9," + std::to_string(told) + ")"});
        EXPECT_EQ(client().mFilterIds, told > 1 ? (Ids{1, 2, 9}) : (Ids{1, 9, 2, 9}));
        EXPECT_EQ(client().mFilterCbs.count(9), told > 1 ? 0U : 1U);
        EXPECT_EQ(client().mFilterCbs.count(8), 1U);
    }
}

// An id that is no live filter's is told on, and nothing else: a filter that awaits its answer goes
// on awaiting it.
TEST_F(FilterDispatchTest, StatusOfAnUnknownFilter) {
    for (const auto& [wire, told] : kStates) {
        EXPECT_EQ(changesBy(message(kFilterStatus, field("12", std::string("08 08 10 ") + wire))),
                  "");
        EXPECT_EQ(app::takeCalls(), Calls{"filterStatus(8," + std::to_string(told) + ")"});
    }
    EXPECT_EQ(changesBy(message(kFilterStatus, field("12", "08 63 10 01"))), "");
    EXPECT_EQ(app::takeCalls(), Calls{"filterStatus(99,1)"});
}

TEST_F(FilterDispatchTest, StatusIsKeptWithoutACallbackToo) {
    client().mFilterStatusCb = nullptr;
    client().mFilterCbs[kFilterId] = app::onOtherAdded;
    EXPECT_EQ(changesBy(message(kFilterStatus, field("12", "08 AC 02 10 03"))),
              "filterIds filterCbs");
    EXPECT_EQ(app::takeCalls(), Calls{});
    EXPECT_TRUE(client().mFilterIds.empty());
    EXPECT_EQ(client().mFilterCbs.count(kFilterId), 0U);
}

// The bookkeeping of each filter is done before its callback, and only that one's.
TEST_F(FilterDispatchTest, StatusOfSeveralFilters) {
    client().mFilterIds = {1, 2, 3};
    app::inside("filterStatus", [] {
        std::string ids;
        for (const unsigned int id : client().mFilterIds) ids += " " + std::to_string(id);
        app::note("live" + ids);
    });
    // Overall status 5, which nobody reads; filters 2 (deleted, with a text), 1 (active), 3 (timed
    // out), 0 (an empty record) and 2^32 - 1 (error).
    receive(message(kFilterStatus, "08 05 " + field("12", "08 02 10 03 1A 02 68 69") + " " +
                                       field("12", "08 01 10 01") + " " +
                                       field("12", "08 03 10 17") + " 12 00 " +
                                       field("12", "08 FF FF FF FF 0F 10 08")));
    EXPECT_EQ(app::takeCalls(),
              (Calls{"filterStatus(2,3)", "live 1 3", "filterStatus(1,1)", "live 1 3",
                     "filterStatus(3,2)", "live 1", "filterStatus(0,0)", "live 1",
                     "filterStatus(4294967295,8)", "live 1"}));
}

TEST_F(FilterDispatchTest, StatusOfNoFilter) {
    EXPECT_EQ(changesBy(message(kFilterStatus, "")), "");
    EXPECT_EQ(changesBy(message(kFilterStatus, "08 01")), "");
    EXPECT_EQ(app::takeCalls(), Calls{});
}

// ---- ADD_FILTER_CB

// The callback comes first, then its entry goes, then the id.
TEST_F(FilterDispatchTest, Added) {
    for (const auto& [wire, told] : kStates) {
        SCOPED_TRACE(wire);
        client().mUsedIds = {7, 9, 6, 9};
        client().mFilterIds = {kFilterId};
        client().mFilterCbs = {{8, app::onOtherAdded}, {9, app::onAdded}};
        app::inside("added", [] {
            EXPECT_EQ(client().mUsedIds, (Ids{7, 9, 6, 9}));
            EXPECT_EQ(client().mFilterIds, Ids{kFilterId});
            EXPECT_EQ(client().mFilterCbs.count(9), 1U);
            EXPECT_EQ(sdfUpdateOod(9, SDF_OOD_ENABLED_LVL), -2);
            EXPECT_EQ(sdfDeleteFilter(9), -2);
        });
        EXPECT_EQ(changesBy(message(kAddFilter, field("0A", std::string("08 09 10 ") + wire))),
                  told > 1 ? "usedIds filterCbs" : "usedIds filterIds filterCbs");
        EXPECT_EQ(app::takeCalls(), Calls{"added(9," + std::to_string(told) + ")"});
        EXPECT_EQ(client().mUsedIds, (Ids{7, 6, 9}));
        EXPECT_EQ(client().mFilterIds, told > 1 ? Ids{kFilterId} : (Ids{kFilterId, 9}));
        EXPECT_EQ(client().mFilterCbs.count(9), 0U);
        EXPECT_EQ(client().mFilterCbs.count(8), 1U);
    }
}

TEST_F(FilterDispatchTest, AddedFilterIsKnownAfterItsCallback) {
    scriptRand({9});
    ASSERT_EQ(sdfAddFilter(makeFlow(), app::onOtherAdded), 9);
    EXPECT_EQ(sdfUpdateOod(9, SDF_OOD_ENABLED_LVL), -2);
    receive(message(kAddFilter, field("0A", "08 09 10 01")));
    EXPECT_EQ(sdfUpdateOod(9, SDF_OOD_ENABLED_LVL), 0);
    EXPECT_EQ(sdfDeleteFilter(9), 0);
    EXPECT_EQ(app::takeCalls(), Calls{"otherAdded(9,1)"});
}

// The body's id counts, not the message's.
TEST_F(FilterDispatchTest, AddedGoesByTheBodysId) {
    receive("08 03 10 07 1A 08 22 06 0A 04 08 08 10 01");
    EXPECT_EQ(app::takeCalls(), Calls{"added(8,1)"});
    EXPECT_EQ(client().mUsedIds, Ids{7});
    EXPECT_EQ(client().mFilterIds, (Ids{kFilterId, 8}));
}

// A second answer finds nobody waiting, and makes no second filter.
TEST_F(FilterDispatchTest, AddedComesOnce) {
    const std::string added = message(kAddFilter, field("0A", "08 08 10 01"));
    EXPECT_EQ(changesBy(added), "usedIds filterIds filterCbs");
    EXPECT_EQ(changesBy(added), "");
    EXPECT_EQ(app::takeCalls(), Calls{"added(8,1)"});
    EXPECT_EQ(client().mFilterIds, (Ids{kFilterId, 8}));
}

// With an entry but no pending id the callback comes, and no filter is made of it.
TEST_F(FilterDispatchTest, AddedWithoutAPendingId) {
    client().mFilterCbs[9] = app::onOtherAdded;
    EXPECT_EQ(changesBy(message(kAddFilter, field("0A", "08 09 10 01"))), "filterCbs");
    EXPECT_EQ(app::takeCalls(), Calls{"otherAdded(9,1)"});
}

// Without an entry nothing is called, and an id that is pending is retired all the same.
TEST_F(FilterDispatchTest, AddedWithoutACallback) {
    EXPECT_EQ(changesBy(message(kAddFilter, field("0A", "08 63 10 01"))), "");
    EXPECT_EQ(changesBy(message(kAddFilter, field("0A", "08 07 10 01"))), "usedIds filterIds");
    EXPECT_EQ(client().mUsedIds, Ids{8});
    EXPECT_EQ(client().mFilterIds, (Ids{kFilterId, 7}));
    client().mFilterCbs.clear();
    EXPECT_EQ(changesBy(message(kAddFilter, field("0A", "08 08 10 04"))), "usedIds");
    EXPECT_EQ(client().mFilterIds, (Ids{kFilterId, 7}));
    EXPECT_EQ(app::takeCalls(), Calls{});
}

// No record: id 0, which no request has.
TEST_F(FilterDispatchTest, AddedNothing) {
    EXPECT_EQ(changesBy(message(kAddFilter, "")), "");
    EXPECT_EQ(changesBy(message(kAddFilter, "0A 00")), "");
    EXPECT_EQ(app::takeCalls(), Calls{});
}

// Without its body the message names no filter, not even filter 0.
TEST_F(FilterDispatchTest, AddedWithoutItsBody) {
    client().mUsedIds.push_back(0);
    client().mFilterCbs[0] = app::onAdded;
    EXPECT_EQ(changesBy("08 03"), "");
    EXPECT_EQ(changesBy("08 03 1A 00"), "");
    EXPECT_EQ(changesBy(message(kAddFilter, kFilterStatus, "")), "");
    EXPECT_EQ(app::takeCalls(), Calls{});
    EXPECT_EQ(changesBy(message(kAddFilter, "")), "usedIds filterIds filterCbs");
    EXPECT_EQ(app::takeCalls(), Calls{"added(0,0)"});
}

// ---- GET_FILTER_CB

LogLine sent(unsigned int id) {
    return logD("GET_FILTER_CB cb sent, filter " + std::to_string(id));
}

TEST_F(FilterDispatchTest, Listed) {
    Lines lines;
    // Two whole records, one that is empty, one with numbers beyond the enumerations.
    EXPECT_EQ(
        receiveLogged(message(kGetFilters, "08 01 " +
                                               field("12",
                                                     "08 AC 02 10 01 1A 02 68 69 20 05 28 02 30 E8"
                                                     " 07 38 02") +
                                               " " + field("12", "08 09 10 17 20 01 28 04 38 01") +
                                               " 12 00 " +
                                               field("12",
                                                     "08 FF FF FF FF 0F 10 02 20 06 28 7F 30 FF FF"
                                                     " FF FF 0F 38 03")),
                      &lines),
        "getFilters");
    EXPECT_EQ(app::takeCalls(),
              (Calls{"filter(300,1,6,3,3,1000)", "filter(9,2,2,5,2,0)", "filter(0,0,1,1,1,0)",
                     "filter(4294967295,0,1,1,1,4294967295)"}));
    EXPECT_EQ(lines, (Lines{sent(300), sent(9), sent(0), sent(4294967295)}));
    EXPECT_EQ(client().mGetFiltersCb, nullptr);
}

TEST_F(FilterDispatchTest, ListedStates) {
    for (const auto& [wire, told] : kStates) {
        client().mGetFiltersCb = app::onFilter;
        receive(message(kGetFilters, field("12", std::string("08 05 10 ") + wire)));
        EXPECT_EQ(app::takeCalls(), Calls{"filter(5," + std::to_string(told) + ",1,1,1,0)"});
    }
}

TEST_F(FilterDispatchTest, EmptyListIsAnAnswerToo) {
    for (const char* body : {"", "08 07"}) {
        client().mGetFiltersCb = app::onFilter;
        EXPECT_EQ(changesBy(message(kGetFilters, body)), "getFilters");
        EXPECT_EQ(client().mGetFiltersCb, nullptr);
    }
    EXPECT_EQ(app::takeCalls(), Calls{});
}

TEST_F(FilterDispatchTest, SecondListIsDropped) {
    const std::string list = message(kGetFilters, field("12", "08 05"));
    receive(list);
    EXPECT_EQ(app::takeCalls(), Calls{"filter(5,0,1,1,1,0)"});
    EXPECT_EQ(changesBy(list), "");  // nor is anything logged
    EXPECT_EQ(app::takeCalls(), Calls{});
}

// Each filter is logged when its callback has returned.
TEST_F(FilterDispatchTest, ListIsLoggedBehindEachCallback) {
    const LogCapture log;
    app::inside("filter", [&log] { app::note(std::to_string(log.lines().size())); });
    receive(message(kGetFilters, field("12", "08 05") + " " + field("12", "08 06")));
    EXPECT_EQ(app::takeCalls(), (Calls{"filter(5,0,1,1,1,0)", "0", "filter(6,0,1,1,1,0)", "1"}));
}

// ---- PRIORITY_QUEUE_REPORT_CB

const LogLine kMissing = logD("PRIORITY_QUEUE_REPORT_CB missing cb");
const LogLine kNone = logD("PRIORITY_QUEUE_REPORT_CB no cb made");

// Overall status 1; two entries: (5, 6, 7), and an empty one.
const std::string kTwoEntries =
    message(kReport, "08 01 " + field("12", "08 05 10 06 18 07") + " 12 00");

TEST_F(FilterDispatchTest, ReportGoesToBothAndOnceToTheOneThatAsked) {
    Lines lines;
    EXPECT_EQ(receiveLogged(kTwoEntries, &lines), "getReport");
    EXPECT_EQ(app::takeCalls(),
              (Calls{"reports(5,6,7)", "report(5,6,7)", "reports(0,0,0)", "report(0,0,0)"}));
    EXPECT_EQ(lines, Lines{});
    EXPECT_EQ(receiveLogged(kTwoEntries, &lines), "");
    EXPECT_EQ(app::takeCalls(), (Calls{"reports(5,6,7)", "reports(0,0,0)"}));
    EXPECT_EQ(lines, (Lines{kMissing, kMissing}));
}

TEST_F(FilterDispatchTest, ReportOnlyAskedFor) {
    client().mPriorityQueueReportsCb = nullptr;
    EXPECT_EQ(changesBy(kTwoEntries), "getReport");
    EXPECT_EQ(app::takeCalls(), (Calls{"report(5,6,7)", "report(0,0,0)"}));
}

TEST_F(FilterDispatchTest, ReportToNobody) {
    client().mPriorityQueueReportsCb = nullptr;
    client().mGetPriorityQueueReportCb = nullptr;
    Lines lines;
    EXPECT_EQ(receiveLogged(kTwoEntries, &lines), "");
    EXPECT_EQ(app::takeCalls(), Calls{});
    EXPECT_EQ(lines, (Lines{kMissing, kNone, kMissing, kNone}));
}

TEST_F(FilterDispatchTest, EmptyReportIsAnAnswerToo) {
    EXPECT_EQ(changesBy(message(kReport, "")), "getReport");
    EXPECT_EQ(changesBy(message(kReport, "08 01")), "");
    EXPECT_EQ(app::takeCalls(), Calls{});
    EXPECT_EQ(client().mPriorityQueueReportsCb, app::onReports);
}

// All 64 bits of the figures, and no sign.
TEST_F(FilterDispatchTest, ReportOfLargeNumbers) {
    receive(message(kReport, field("12",
                                   "08 FF FF FF FF 0F 10 80 80 80 80 10 18 FF FF FF FF FF FF"
                                   " FF FF FF 01")));
    EXPECT_EQ(app::takeCalls(), (Calls{"reports(4294967295,4294967296,18446744073709551615)",
                                       "report(4294967295,4294967296,18446744073709551615)"}));
}

// ---- AUTO_FILTER_INFO_IND

class AutoFilterTest : public FilterDispatchTest {
  protected:
    // Tells of an active filter with these texts (as bytes) for its addresses, and these further
    // fields.
    static void tell(const std::string& source, const std::string& destination,
                     const std::string& more) {
        const std::string filter =
            field("0A", source) + " " + field("12", destination) + " " + more;
        EXPECT_EQ(changesBy(message(kAuto, "08 AC 02 " + field("12", filter) + " 18 01")), "");
        EXPECT_EQ(app::takeCalls(), Calls{"auto(300)"});
    }

    // The description is this one to the last byte.
    static void expectTold(const SdfAddFilterInfo& expected) {
        EXPECT_EQ(app::autoInfo(), bytesOf(expected));
    }

    // An address made of its bytes: family, then port and what follows in network order.
    static void setAddress(sockaddr_storage* address, int family, const std::string& rest) {
        *address = {};
        address->ss_family = static_cast<sa_family_t>(family);
        const std::vector<uint8_t> bytes = fromHex(rest);
        std::copy(bytes.begin(), bytes.end(), reinterpret_cast<uint8_t*>(address) + 2);
    }

    static SdfAddFilterInfo zeroed() {
        SdfAddFilterInfo info;
        memset(&info, 0, sizeof info);
        return info;
    }
};

const std::string kV4 = "31 2E 32 2E 33 2E 34";             // 1.2.3.4
const std::string kOtherV4 = "35 2E 36 2E 37 2E 38";        // 5.6.7.8
const std::string kV6 = "3A 3A 31";                         // ::1
const std::string kOtherV6 = "66 65 38 30 3A 3A 61 3A 39";  // fe80::a:9
const std::string kZeros = "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00";
const std::string kOtherV6Bytes = "FE 80 00 00 00 00 00 00 00 00 00 00 00 0A 00 09";
const std::string kOneBytes = "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 01";

// Every field is there; addresses with ports, protocol and application type are told, nothing else.
TEST_F(AutoFilterTest, OfIpv4) {
    tell(kV4, kOtherV4,
         "18 BB 03 20 35 28 02 30 C9 01 38 01 40 05 48 AC 02 50 02 58 FF FF FF FF 0F 60 21 68 0D 70"
         " 64 78 FF 01 80 01 C8 01 88 01 11 90 01 12 98 01 13 A0 01 14");
    SdfAddFilterInfo expected = zeroed();
    setAddress(&expected.src_addr, 2, "01 BB 01 02 03 04");
    setAddress(&expected.dest_addr, 2, "00 35 05 06 07 08");
    expected.protocol = SDF_PROTOCOL_UDP;
    expected.app_type = SDF_APP_TYPE_TRAFFIC_PRIO_BE;
    expectTold(expected);
}

TEST_F(AutoFilterTest, OfIpv6) {
    tell(kV6, kOtherV6, "18 BB 03 20 35 28 03 60 02");
    SdfAddFilterInfo expected = zeroed();
    setAddress(&expected.src_addr, 10, "01 BB 00 00 00 00 " + kOneBytes);
    setAddress(&expected.dest_addr, 10, "00 35 00 00 00 00 " + kOtherV6Bytes);
    expected.protocol = SDF_PROTOCOL_TCPUDP;
    expected.app_type = SDF_APP_TYPE_TRAFFIC_PRIO_HIGHEST;
    expectTold(expected);
}

// The source decides about the family; a destination of the other one is zero, but has its port.
TEST_F(AutoFilterTest, OfTwoFamilies) {
    tell(kV4, kV6, "18 01 20 02");
    SdfAddFilterInfo expected = zeroed();
    setAddress(&expected.src_addr, 2, "00 01 01 02 03 04");
    setAddress(&expected.dest_addr, 2, "00 02");
    expectTold(expected);
    tell(kV6, kV4, "18 01 20 02");
    setAddress(&expected.src_addr, 10, "00 01 00 00 00 00 " + kOneBytes);
    setAddress(&expected.dest_addr, 10, "00 02");
    expectTold(expected);
}

// A source that is no address counts as IPv6.
TEST_F(AutoFilterTest, OfTextThatIsNoAddress) {
    SdfAddFilterInfo expected = zeroed();
    for (const std::string& source : {std::string(), std::string("61"), kV4 + " 2E"}) {
        tell(source, kOtherV6, "18 01");
        setAddress(&expected.src_addr, 10, "00 01");
        setAddress(&expected.dest_addr, 10, "00 00 00 00 00 00 " + kOtherV6Bytes);
        expectTold(expected);
    }
    tell(kV4, "61", "");
    setAddress(&expected.src_addr, 2, "00 00 01 02 03 04");
    setAddress(&expected.dest_addr, 2, "");
    expectTold(expected);
}

// Of a port its low 16 bits: 65536 + 443, and -2.
TEST_F(AutoFilterTest, OfLargeAndNegativePorts) {
    tell(kV4, kOtherV4, "18 BB 83 04 20 FE FF FF FF FF FF FF FF FF 01");
    SdfAddFilterInfo expected = zeroed();
    setAddress(&expected.src_addr, 2, "01 BB 01 02 03 04");
    setAddress(&expected.dest_addr, 2, "FF FE 05 06 07 08");
    expectTold(expected);
}

// Beyond the enumerations: 0. Application types 0 and 1 are both 0, too.
TEST_F(AutoFilterTest, OfUnknownProtocolAndApplicationType) {
    SdfAddFilterInfo expected = zeroed();
    setAddress(&expected.src_addr, 2, "00 00 01 02 03 04");
    setAddress(&expected.dest_addr, 2, "00 00 05 06 07 08");
    for (const char* more : {"28 04 60 22", "28 7F 60 00", "60 01",
                             "28 FF FF FF FF FF FF FF FF FF"
                             " 01"}) {
        tell(kV4, kOtherV4, more);
        expectTold(expected);
    }
}

// An active filter without a description: IPv6, because there is no IPv4 address.
TEST_F(AutoFilterTest, OfNoDescription) {
    SdfAddFilterInfo expected = zeroed();
    setAddress(&expected.src_addr, 10, "");
    setAddress(&expected.dest_addr, 10, "");
    for (const char* body : {"08 AC 02 18 01", "08 AC 02 12 00 18 01"}) {
        receive(message(kAuto, body));
        EXPECT_EQ(app::takeCalls(), Calls{"auto(300)"});
        expectTold(expected);
    }
}

TEST_F(AutoFilterTest, OfAnotherStateIsAllZero) {
    const std::string filter =
        field("12", field("0A", kV4) + " " + field("12", kOtherV4) + " 18 01 20 02 28 01 60 02");
    for (const auto& [wire, state] : kStates) {
        if (state == 1) continue;
        tell(kV4, kOtherV4, "18 01");  // so that the next one has something to clear
        EXPECT_EQ(changesBy(message(kAuto, "08 AC 02 " + filter + " 18 " + wire)), "");
        EXPECT_EQ(app::takeCalls(), Calls{"auto(300)"}) << wire;
        expectTold(zeroed());
    }
    receive(message(kAuto, ""));
    EXPECT_EQ(app::takeCalls(), Calls{"auto(0)"});
    expectTold(zeroed());
}

TEST_F(AutoFilterTest, ToNobody) {
    client().mAutoFilterInfoCb = nullptr;
    EXPECT_EQ(changesBy(message(kAuto, "08 AC 02 18 01")), "");
    EXPECT_EQ(app::takeCalls(), Calls{});
}

// ---- All messages

// One of each, which all have somebody waiting, at event * 2 and event * 2 + 1.
const std::string kBodies[] = {
    "08 06",
    "08 05 10 02",
    "08 01 " + field("12", "08 AC 02 10 03 1A 02 68 69") + " " + field("12", "08 08 10 01"),
    field("0A", "08 08 10 01 1A 02 68 69"),
    field("12", "08 AC 02 10 01 1A 02 68 69 20 05 28 02 30 E8 07 38 02") + " " +
        field("12", "08 09"),
    field("12", "08 05 10 80 80 80 80 10 18 07") + " " + field("12", "08 06"),
    "08 AC 02 " + field("12", field("0A", kV4) + " " + field("12", kOtherV4) + " 18 BB 03 60 21") +
        " 18 01",
};

// Request 7 is the one that a message with levels answers.
std::string withId7(const std::string& hex) {
    return "10 07 " + hex;
}

TEST_F(FilterDispatchTest, EveryEventWithEveryBody) {
    for (const int event : {0, 1, 2, 3, 4, 5, 6, 7, 8, 127}) {
        for (int body = 0; body < 7; ++body) {
            SCOPED_TRACE(std::to_string(event) + " " + std::to_string(body));
            destroySdfClient();
            startUpWithAll();
            const std::string hex = withId7(message(event, body, kBodies[body]));
            if (event == body) {
                receive(hex);
                EXPECT_NE(app::takeCalls(), Calls{});
            } else {
                EXPECT_EQ(changesBy(hex), "");
                EXPECT_EQ(app::takeCalls(), Calls{});
            }
        }
        for (const char* nothing : {"", " 1A 00"}) {
            EXPECT_EQ(changesBy("10 07 08 " + toHex(std::vector<int>{event}) + nothing), "");
            EXPECT_EQ(app::takeCalls(), Calls{});
        }
    }
    // 255, 2^31 and -1.
    for (const char* event : {"FF 01", "80 80 80 80 08", "FF FF FF FF FF FF FF FF FF 01"}) {
        for (int body = 0; body < 7; ++body) {
            const std::string hex = message(0, body, kBodies[body]).substr(6);  // without its event
            EXPECT_EQ(changesBy(std::string("10 07 08 ") + event + " " + hex), "") << event;
            EXPECT_EQ(app::takeCalls(), Calls{}) << event;
        }
    }
}

// Of a message that breaks off, or is broken, what was read before counts: it is the same as the
// sound message that says just that.
class BrokenMessageTest : public FilterDispatchTest {
  protected:
    // The calls and the changes that these bytes make of a client with everything registered.
    struct Outcome {
        Calls calls;
        std::string changes;
        std::string told;
    };
    static Outcome outcome(const std::vector<uint8_t>& bytes) {
        destroySdfClient();
        startUpWithAll();
        client().mServiceUp = false;
        const ClientState before;
        sdk().listener(SdkClientBase::SDK_BLOB_RECEIVED, bytes);
        return {app::takeCalls(), ClientState().differences(before), app::autoInfo()};
    }

    static void expectAsFarAsRead(const std::vector<uint8_t>& bytes) {
        SdfProto::ClientMsg read;
        (void)read.ParseFromArray(bytes.data(), static_cast<int>(bytes.size()));
        const std::string sound = read.SerializeAsString();
        const Outcome expected = outcome({sound.begin(), sound.end()});
        const Outcome actual = outcome(bytes);
        EXPECT_EQ(actual.calls, expected.calls) << toHex(bytes);
        EXPECT_EQ(actual.changes, expected.changes) << toHex(bytes);
        EXPECT_EQ(actual.told, expected.told) << toHex(bytes);
    }
};

TEST_F(BrokenMessageTest, CutAtEveryByte) {
    for (int event = 0; event < 7; ++event) {
        const std::vector<uint8_t> whole = fromHex(withId7(message(event, kBodies[event])));
        size_t last = 0;
        for (size_t length = 0; length <= whole.size(); ++length) {
            const std::vector<uint8_t> cut(whole.begin(),
                                           whole.begin() + static_cast<long>(length));
            expectAsFarAsRead(cut);
            last = outcome(cut).calls.size();
        }
        EXPECT_GT(last, 0U) << event;
    }
}

// Filter by filter: those that were begun, with what was read of them.
TEST_F(BrokenMessageTest, ListCutAtEveryByte) {
    // 08 02 1A 0C 1A 0A 12 02 08 05 12 04 08 06 10 03
    const std::vector<uint8_t> whole =
        fromHex(message(kFilterStatus, field("12", "08 05") + " " + field("12", "08 06 10 03")));
    const Calls first = {"filterStatus(5,0)"};
    const Calls unread = {"filterStatus(0,0)"};
    const Calls both = {"filterStatus(5,0)", "filterStatus(0,0)"};
    const Calls known = {"filterStatus(5,0)", "filterStatus(6,0)"};
    // A filter is begun as soon as its tag is read.
    const std::vector<Calls> expected = {{},
                                         {},
                                         {},
                                         {},
                                         {},
                                         {},
                                         {},
                                         unread,
                                         unread,
                                         unread,
                                         first,
                                         both,
                                         both,
                                         both,
                                         known,
                                         known,
                                         {"filterStatus(5,0)", "filterStatus(6,3)"}};
    ASSERT_EQ(expected.size(), whole.size() + 1);
    for (size_t length = 0; length <= whole.size(); ++length) {
        EXPECT_EQ(outcome({whole.begin(), whole.begin() + static_cast<long>(length)}).calls,
                  expected[length])
            << length;
    }
}

// Text that is not UTF-8 ends the reading: what stands behind it is not read.
TEST_F(BrokenMessageTest, TextThatIsNotUtf8) {
    const Outcome status = outcome(fromHex(
        message(kFilterStatus, field("12", "08 05 10 01 1A 01 FF") + " " + field("12", "08 06"))));
    EXPECT_EQ(status.calls, Calls{"filterStatus(5,1)"});
    const Outcome added =
        outcome(fromHex(message(kAddFilter, field("0A", "08 08 1A 01 FF 10 04"))));
    EXPECT_EQ(added.calls, Calls{"added(8,0)"});
    EXPECT_EQ(added.changes, "usedIds filterIds filterCbs");
}

// Bytes of a sound message changed at random: nobody is called who does not wait, the client goes
// on.
TEST_F(BrokenMessageTest, ChangedAtRandom) {
    const google::protobuf::LogSilencer silencer;
    std::mt19937 random(20240612);
    for (int round = 0; round < 300; ++round) {
        const int event = round % 7;
        std::vector<uint8_t> bytes = fromHex(withId7(message(event, kBodies[event])));
        for (int changes = 0; changes < 3; ++changes) {
            bytes[random() % bytes.size()] = static_cast<uint8_t>(random());
        }
        expectAsFarAsRead(bytes);
    }
}

}  // namespace
