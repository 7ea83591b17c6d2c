// SPDX-License-Identifier: Apache-2.0
// Dispatch of what the service says of filters and queues.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "tests/api/ClientFixture.h"
#include "tests/api/Requests.h"
#include "tests/api/ScriptedRand.h"
#include "tests/support/Hex.h"

namespace {

using service::field;
using service::message;

constexpr int kFilterStatus = 2;
constexpr int kAddFilter = 3;
constexpr int kGetFilters = 4;
constexpr int kReport = 5;
constexpr int kAuto = 6;

// The states that the service sends, as the byte on the wire, and as the application gets them. 2,
// 9 and 24 have no name.
struct State {
    const char* wire;
    int state;
};
const State kStates[] = {{"00", 0}, {"01", 1}, {"17", 2}, {"03", 3}, {"04", 4}, {"05", 5},
                         {"06", 6}, {"07", 7}, {"08", 8}, {"02", 0}, {"09", 0}, {"18", 0}};

// A filter's entry with this id and this state.
std::string entry(const std::string& id, const char* state) {
    return "08 " + id + " 10 " + state;
}

class FilterDispatchTest : public ClientTest {
  protected:
    // Everything registered; requests 7 (levels) and 8 (a filter) wait; filter 300 is confirmed.
    void SetUp() override { startUpWithAll(); }
};

// ---- FILTER_STATUS_INDICATION

TEST_F(FilterDispatchTest, StatusOfALiveFilter) {
    for (const bool callback : {true, false}) {
        if (!callback) client().mFilterStatusCb = nullptr;
        for (const auto& [wire, state] : kStates) {
            SCOPED_TRACE(wire);
            client().mFilterIds = {1, 9, 2, 9};
            client().mFilterCbs = {{8, app::onAdded}, {9, app::onOtherAdded}};
            client().mUsedIds = {9};
            Texts expected;
            if (callback) expected.push_back("filterStatus(9," + std::to_string(state) + ")");
            if (state > 1) expected.emplace_back("changed filterIds filterCbs");
            EXPECT_EQ(effectOf(message(kFilterStatus, field("12", entry("09", wire)))), expected);
            EXPECT_EQ(client().mFilterIds, state > 1 ? (Ids{1, 2, 9}) : (Ids{1, 9, 2, 9}));
            EXPECT_EQ(client().mFilterCbs.count(8), 1U);
        }
    }
}

// A filter that awaits its answer goes on awaiting it.
TEST_F(FilterDispatchTest, StatusOfAnUnknownFilter) {
    for (const auto& [wire, state] : kStates) {
        EXPECT_EQ(effectOf(message(kFilterStatus, field("12", entry("08", wire)))),
                  Texts{"filterStatus(8," + std::to_string(state) + ")"});
    }
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
    EXPECT_EQ(effectOf(message(kFilterStatus, "")), Texts{});
    EXPECT_EQ(effectOf(message(kFilterStatus, "08 01")), Texts{});
}

// ---- ADD_FILTER_CB

// The callback comes first, then its entry goes, then the id.
TEST_F(FilterDispatchTest, Added) {
    for (const auto& [wire, state] : kStates) {
        SCOPED_TRACE(wire);
        client().mUsedIds = {7, 9, 6, 9};
        client().mFilterIds = {kFilterId};
        client().mFilterCbs = {{8, app::onOtherAdded}, {9, app::onAdded}};
        app::inside("added", [] {
            EXPECT_EQ(client().mUsedIds, (Ids{7, 9, 6, 9}));
            EXPECT_EQ(client().mFilterCbs.count(9), 1U);
            EXPECT_EQ(sdfUpdateOod(9, SDF_OOD_ENABLED_LVL), -2);
            EXPECT_EQ(sdfDeleteFilter(9), -2);
        });
        const bool lives = state <= 1;
        EXPECT_EQ(
            effectOf(message(kAddFilter, field("0A", entry("09", wire)))),
            (Texts{"added(9," + std::to_string(state) + ")",
                   lives ? "changed usedIds filterIds filterCbs" : "changed usedIds filterCbs"}));
        EXPECT_EQ(client().mUsedIds, (Ids{7, 6, 9}));
        EXPECT_EQ(client().mFilterIds, lives ? (Ids{kFilterId, 9}) : Ids{kFilterId});
        EXPECT_EQ(client().mFilterCbs.count(8), 1U);
        EXPECT_EQ(sdfUpdateOod(9, SDF_OOD_ENABLED_LVL), lives ? 0 : -2);
    }
}

// The body's id counts, not the message's. A second answer finds nobody waiting.
TEST_F(FilterDispatchTest, AddedGoesByTheBodysIdAndComesOnce) {
    const std::string added = "08 03 10 07 1A 08 22 06 0A 04 08 08 10 01";
    EXPECT_EQ(effectOf(added), (Texts{"added(8,1)", "changed usedIds filterIds filterCbs"}));
    EXPECT_EQ(effectOf(added), Texts{});
    EXPECT_EQ(client().mFilterIds, (Ids{kFilterId, 8}));
}

// With an entry but no pending id the callback comes, and no filter is made of it. Without an entry
// nothing is called, and an id that is pending is retired all the same.
TEST_F(FilterDispatchTest, AddedWithoutAPendingIdOrWithoutACallback) {
    client().mFilterCbs[9] = app::onOtherAdded;
    EXPECT_EQ(effectOf(message(kAddFilter, field("0A", entry("09", "01")))),
              (Texts{"otherAdded(9,1)", "changed filterCbs"}));
    EXPECT_EQ(effectOf(message(kAddFilter, field("0A", entry("63", "01")))), Texts{});
    EXPECT_EQ(effectOf(message(kAddFilter, field("0A", entry("07", "01")))),
              Texts{"changed usedIds filterIds"});
    EXPECT_EQ(client().mFilterIds, (Ids{kFilterId, 7}));
    client().mFilterCbs.clear();
    EXPECT_EQ(effectOf(message(kAddFilter, field("0A", entry("08", "04")))),
              Texts{"changed usedIds"});
}

// No record is id 0, which no request has. Without its body the message names no filter at all.
TEST_F(FilterDispatchTest, AddedNothing) {
    EXPECT_EQ(effectOf(message(kAddFilter, "")), Texts{});
    EXPECT_EQ(effectOf(message(kAddFilter, "0A 00")), Texts{});
    client().mUsedIds.push_back(0);
    client().mFilterCbs[0] = app::onAdded;
    EXPECT_EQ(effectOf("08 03"), Texts{});
    EXPECT_EQ(effectOf("08 03 1A 00"), Texts{});
    EXPECT_EQ(effectOf(message(kAddFilter, kFilterStatus, "")), Texts{});
    EXPECT_EQ(effectOf(message(kAddFilter, "")),
              (Texts{"added(0,0)", "changed usedIds filterIds filterCbs"}));
}

// ---- GET_FILTER_CB

// A filter is logged when its callback has returned.
TEST_F(FilterDispatchTest, Listed) {
    // Two whole records, one that is empty, one with numbers beyond the enumerations.
    const std::string list =
        message(kGetFilters,
                "08 01 " + field("12", "08 AC 02 10 01 1A 02 68 69 20 05 28 02 30 E8 07 38 02") +
                    " " + field("12", "08 09 10 17 20 01 28 04 38 01") + " 12 00 " +
                    field("12", "08 FF FF FF FF 0F 10 02 20 06 28 7F 30 FF FF FF FF 0F 38 03"));
    const std::string log = "log 3: GET_FILTER_CB cb sent, filter ";
    EXPECT_EQ(effectOf(list),
              (Texts{"filter(300,1,6,3,3,1000)", log + "300", "filter(9,2,2,5,2,0)", log + "9",
                     "filter(0,0,1,1,1,0)", log + "0", "filter(4294967295,0,1,1,1,4294967295)",
                     log + "4294967295", "changed getFilters"}));
    EXPECT_EQ(client().mGetFiltersCb, nullptr);
    EXPECT_EQ(effectOf(list), Texts{});  // nobody asked for a second one
}

TEST_F(FilterDispatchTest, ListedStates) {
    for (const auto& [wire, state] : kStates) {
        client().mGetFiltersCb = app::onFilter;
        receive(message(kGetFilters, field("12", entry("05", wire))));
        EXPECT_EQ(app::takeCalls(), Calls{"filter(5," + std::to_string(state) + ",1,1,1,0)"});
    }
}

TEST_F(FilterDispatchTest, EmptyListIsAnAnswerToo) {
    for (const char* body : {"", "08 07"}) {
        client().mGetFiltersCb = app::onFilter;
        EXPECT_EQ(effectOf(message(kGetFilters, body)), Texts{"changed getFilters"});
    }
}

// ---- PRIORITY_QUEUE_REPORT_CB

TEST_F(FilterDispatchTest, ReportGoesToBothAndOnceToTheOneThatAsked) {
    // Overall status 1; two entries: (5, 6, 7), and an empty one.
    const std::string report =
        message(kReport, "08 01 " + field("12", "08 05 10 06 18 07") + " 12 00");
    const std::string missing = "log 3: PRIORITY_QUEUE_REPORT_CB missing cb";
    const std::string none = "log 3: PRIORITY_QUEUE_REPORT_CB no cb made";
    EXPECT_EQ(effectOf(report), (Texts{"reports(5,6,7)", "report(5,6,7)", "reports(0,0,0)",
                                       "report(0,0,0)", "changed getReport"}));
    EXPECT_EQ(effectOf(report), (Texts{"reports(5,6,7)", missing, "reports(0,0,0)", missing}));
    client().mPriorityQueueReportsCb = nullptr;
    EXPECT_EQ(effectOf(report), (Texts{missing, none, missing, none}));
    client().mGetPriorityQueueReportCb = app::onReport;
    EXPECT_EQ(effectOf(report), (Texts{"report(5,6,7)", "report(0,0,0)", "changed getReport"}));
}

TEST_F(FilterDispatchTest, EmptyReportIsAnAnswerToo) {
    EXPECT_EQ(effectOf(message(kReport, "")), Texts{"changed getReport"});
    EXPECT_EQ(effectOf(message(kReport, "08 01")), Texts{});
}

// All 64 bits of the figures, and no sign.
TEST_F(FilterDispatchTest, ReportOfLargeNumbers) {
    client().mGetPriorityQueueReportCb = nullptr;
    receive(message(kReport, field("12",
                                   "08 FF FF FF FF 0F 10 80 80 80 80 10 18 FF FF FF FF FF FF"
                                   " FF FF FF 01")));
    EXPECT_EQ(app::takeCalls(), (Calls{"reports(4294967295,4294967296,18446744073709551615)"}));
}

// ---- AUTO_FILTER_INFO_IND

const std::string kV4 = "31 2E 32 2E 33 2E 34";             // 1.2.3.4
const std::string kOtherV4 = "35 2E 36 2E 37 2E 38";        // 5.6.7.8
const std::string kV6 = "3A 3A 31";                         // ::1
const std::string kOtherV6 = "66 65 38 30 3A 3A 61 3A 39";  // fe80::a:9

// From the flow information on.
const std::string kV6Bytes = "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 01";
const std::string kOtherV6Bytes = "00 00 00 00 FE 80 00 00 00 00 00 00 00 00 00 00 00 0A 00 09";

// An address of this family whose port and further bytes are these, in network order.
sockaddr_storage address(int family, const std::string& rest) {
    sockaddr_storage storage{};
    storage.ss_family = static_cast<sa_family_t>(family);
    const std::vector<uint8_t> bytes = fromHex(rest);
    std::copy(bytes.begin(), bytes.end(), reinterpret_cast<uint8_t*>(&storage) + 2);
    return storage;
}

// The bytes of a description with nothing but these members.
std::string described(const sockaddr_storage& source, const sockaddr_storage& destination,
                      SdfProtocol protocol = SDF_PROTOCOL_NONE,
                      SdfFilterAppType type = SDF_APP_TYPE_UNSPECIFIED) {
    SdfAddFilterInfo info;
    memset(&info, 0, sizeof info);
    info.src_addr = source;
    info.dest_addr = destination;
    info.protocol = protocol;
    info.app_type = type;
    return bytesOf(info);
}

// Of an active filter: addresses with ports, protocol and application type, nothing else, to the
// last byte. The source decides on the family, and counts as IPv6 if it is no IPv4 address.
TEST_F(FilterDispatchTest, AutoFilterOfActiveFilters) {
    const std::string v4 = "01 02 03 04";
    const std::string otherV4 = "05 06 07 08";
    const struct {
        std::string source;
        std::string destination;
        const char* more;
        std::string expected;
    } rows[] = {
        // Every field is there.
        {kV4, kOtherV4,
         "18 BB 03 20 35 28 02 30 C9 01 38 01 40 05 48 AC 02 50 02 58 FF FF FF FF 0F 60 21 68 0D 70"
         " 64 78 FF 01 80 01 C8 01 88 01 11 90 01 12 98 01 13 A0 01 14",
         described(address(2, "01 BB " + v4), address(2, "00 35 " + otherV4), SDF_PROTOCOL_UDP,
                   SDF_APP_TYPE_TRAFFIC_PRIO_BE)},
        {kV6, kOtherV6, "18 BB 03 20 35 28 03 60 02",
         described(address(10, "01 BB " + kV6Bytes), address(10, "00 35 " + kOtherV6Bytes),
                   SDF_PROTOCOL_TCPUDP, SDF_APP_TYPE_TRAFFIC_PRIO_HIGHEST)},
        // A destination of the other family is zero, but has its port.
        {kV4, kV6, "18 01 20 02", described(address(2, "00 01 " + v4), address(2, "00 02"))},
        {kV6, kV4, "18 01 20 02",
         described(address(10, "00 01 " + kV6Bytes), address(10, "00 02"))},
        // Text that is no address.
        {"", kOtherV6, "18 01",
         described(address(10, "00 01"), address(10, "00 00 " + kOtherV6Bytes))},
        {kV4 + " 2E", kV4, "", described(address(10, ""), address(10, ""))},
        // Of a port its low 16 bits: 65536 + 443, and -2.
        {kV4, kOtherV4, "18 BB 83 04 20 FE FF FF FF FF FF FF FF FF 01",
         described(address(2, "01 BB " + v4), address(2, "FF FE " + otherV4))},
        // Beyond the enumerations: 0. Application types 0 and 1 are both 0, too.
        {kV4, kV4, "28 04 60 22", described(address(2, "00 00 " + v4), address(2, "00 00 " + v4))},
        {kV4, kV4, "28 FF FF FF FF FF FF FF FF FF 01 60 01",
         described(address(2, "00 00 " + v4), address(2, "00 00 " + v4))},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.source + ", " + row.destination + ", " + row.more);
        const std::string filter =
            field("0A", row.source) + " " + field("12", row.destination) + " " + row.more;
        EXPECT_EQ(effectOf(message(kAuto, "08 AC 02 " + field("12", filter) + " 18 01")),
                  Texts{"auto(300)"});
        EXPECT_EQ(app::autoInfo(), row.expected);
    }
    // Without a description.
    for (const char* body : {"08 AC 02 18 01", "08 AC 02 12 00 18 01"}) {
        EXPECT_EQ(effectOf(message(kAuto, body)), Texts{"auto(300)"});
        EXPECT_EQ(app::autoInfo(), described(address(10, ""), address(10, "")));
    }
    client().mAutoFilterInfoCb = nullptr;
    EXPECT_EQ(effectOf(message(kAuto, "08 AC 02 18 01")), Texts{});
}

TEST_F(FilterDispatchTest, AutoFilterOfAnotherStateIsAllZero) {
    const std::string filter =
        field("12", field("0A", kV4) + " " + field("12", kOtherV4) + " 18 01 20 02 28 01 60 02");
    for (const auto& [wire, state] : kStates) {
        if (state == 1) continue;
        receive(message(kAuto, "18 01"));  // so that the next one has something to clear
        app::takeCalls();
        EXPECT_EQ(effectOf(message(kAuto, "08 AC 02 " + filter + " 18 " + wire)),
                  Texts{"auto(300)"});
        EXPECT_EQ(app::autoInfo(), described({}, {})) << wire;
    }
    EXPECT_EQ(effectOf(message(kAuto, "")), Texts{"auto(0)"});
}

}  // namespace
