// SPDX-License-Identifier: Apache-2.0
// Every kind of request, from the library's functions to the service and back to the callbacks.

#include <gtest/gtest.h>
#include <lum_sdf_sdk.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "tests/stress/ClientEvents.h"
#include "tests/system/LibraryTest.h"

namespace {

class WholeServiceTest : public LibraryTest {
  protected:
    // What the service keeps for this client, as it says itself.
    Lines state() {
        mEmulator->process().signal(SIGUSR2);
        EXPECT_TRUE(mEmulator->process().waitForLine("state: clients=1", ++mAsked));
        Lines kept;
        for (const std::string& line : mEmulator->process().lines()) {
            if (line.rfind("client ", 0) == 0) kept.clear();
            if (line.rfind("client ", 0) == 0 || line.rfind("  filter ", 0) == 0) {
                kept.push_back(line);
            }
        }
        return kept;
    }

    static std::string own() { return "client pid=" + std::to_string(getpid()) + " type=5 "; }

    size_t mAsked = 0;
};

TEST_F(WholeServiceTest, FilterIsAddedListedUpdatedAndDeleted) {
    serve();
    connect();
    ASSERT_EQ(sdfRegFilterStatus(onFilterStatus), 0);
    const unsigned int id = add(5000);

    ASSERT_EQ(sdfUpdateLatencyLvl(id, SDF_LATENCY_LVL_1, SDF_LATENCY_LVL_6), 0);
    ASSERT_EQ(sdfUpdateOod(id, SDF_OOD_DISABLED_LVL), 0);
    ASSERT_EQ(sdfUpdatePdcpTimer(id, 300), 0);
    ASSERT_EQ(sdfUpdateTargetDscp(id, 46), 0);
    EXPECT_EQ(reportedSoFar(), Lines(4, filter(id, SDF_FILTER_ACTIVE)));

    ASSERT_EQ(sdfGetFilters(onListed), 0);
    EXPECT_EQ(reportedSoFar(),
              Lines{"listed " + std::to_string(id) + ": 1, levels 1 6, ood 3, timer 300"});
    EXPECT_EQ(state(), (Lines{own() + "filters=1 filter_status=on reports=0ms gaming=off "
                                      "prioritize_dds=off levels=SLOT_ID_FIRST:L2,L4",
                              "  filter " + std::to_string(id) +
                                  " FILTER_ACTIVE 10.0.0.1#5000 > 10.0.0.2#80 PROTOCOL_UDP L1 L6 "
                                  "SDF_OOD_DISABLED APP_TYPE_TRAFFIC_PRIO_HIGHEST pdcp_timer=300 "
                                  "target_dscp=46"}));

    ASSERT_EQ(sdfDeleteFilter(id), 0);
    EXPECT_EQ(reportedSoFar(), Lines{filter(id, SDF_FILTER_DELETED)});
    ASSERT_EQ(sdfGetFilters(onListed), 0);
    EXPECT_EQ(reportedSoFar(), Lines{});
    EXPECT_EQ(sdfDeleteFilter(id), SDF_V2_INVALID_ARG);
    EXPECT_EQ(mEmulator->stats().filters, 0U);
}

// What arrives at the other end of the link, byte by byte. The ids are those of a fresh process.
TEST_F(WholeServiceTest, EveryRequestArrivesAsItIs) {
    srand(1);
    const std::string path = mDirectory.path() + "/record";
    serve({"--record", path});
    connect();
    ASSERT_EQ(askLevels(), 1804289383);
    ASSERT_EQ(sdfAddFilter(flow(5000), onAdded), 846930886);
    reportedSoFar();  // asks for levels again, and the filter is known then
    const unsigned int id = 846930886;
    ASSERT_EQ(sdfUpdateLatencyLvl(id, SDF_LATENCY_LVL_1, SDF_LATENCY_LVL_6), 0);
    ASSERT_EQ(sdfUpdateOod(id, SDF_OOD_DISABLED_LVL), 0);
    ASSERT_EQ(sdfUpdatePdcpTimer(id, 300), 0);
    ASSERT_EQ(sdfUpdateTargetDscp(id, 46), 0);
    ASSERT_EQ(sdfUpdateDdsOod(SDF_OOD_DISABLED_LVL), 0);
    ASSERT_EQ(sdfUpdateDdsPdcpTimer(300), 0);
    ASSERT_EQ(sdfEnHighPerfGaming(true), 0);
    ASSERT_EQ(sdfPrioritizeData(SDF_SLOT_ID_SECOND, true), 0);
    ASSERT_EQ(sdfPrioritizeDds(true), 0);
    ASSERT_EQ(sdfRegPriorityQueueReports(true, 86400000, onReport), 0);
    ASSERT_EQ(sdfGetPriorityQueueReport(onReport), 0);
    ASSERT_EQ(sdfRegAutoFilterInfo(onAutoFilter), 0);  // sends nothing
    ASSERT_EQ(sdfRegFilterStatus(onFilterStatus), 0);
    ASSERT_EQ(sdfAddFilterV2(flow(5001), 0, onAdded), 1714636915);
    ASSERT_EQ(sdfGetFilters(onListed), 0);
    ASSERT_EQ(sdfDeleteFilter(id), 0);
    reportedSoFar();
    ASSERT_EQ(sdfDeleteAllFilter(), 0);
    ASSERT_EQ(destroySdfClient(), 0);
    EXPECT_EQ(mEmulator->terminate(), 0);
    // Of a description of this length: the addresses, a source port, and port 80; then the rest.
    const auto ends = [](const std::string& length, const std::string& port) {
        return length + "0a0831302e302e302e31120831302e302e302e3218" + port + "2050";
    };
    const std::string settings = "280238014003483250016002";
    EXPECT_EQ(recordedRequests(path),
              (Lines{
                  "1a040a020801",
                  "080110e78aaddc061a081a06080110011803",
                  "080410c6c7ec93031a2732" + ends("25", "8827") + settings,
                  "080110e9b0f2a1061a081a06080110011803",
                  "08061a0a3a0808c6c7ec93031805",
                  "08071a0a420808c6c7ec93031002",
                  "08081a0b4a0908c6c7ec930310ac02",
                  "08121a0b82010808c6c7ec9303102e",
                  "080b1a045a020802",
                  "080c1a05620308ac02",
                  "080d1a046a020801",
                  "080e1a06720408021001",
                  "08021a0422020801",
                  "080f1a097a0708011080b89929",
                  "0810",
                  "08031a042a020801",
                  "080410f390cdb1061a2a32" + ends("28", "8927") + settings + "900100",
                  "0805",
                  "08091a08520608c6c7ec9303",
                  "080110d1b8c3a5071a081a06080110011803",
                  "080a",
                  "1a020a00",
              }));
}

TEST_F(WholeServiceTest, FilterLimitAndMissingPermissionAreReported) {
    serve({"--deny-uid", "4242", "--deny-uid", std::to_string(getuid())});
    connect();
    add(5000, SDF_FILTER_ERROR_NO_PERMISSION);
    EXPECT_EQ(destroySdfClient(), 0);
    EXPECT_EQ(mEmulator->terminate(), 0);
    serve({"--filter-limit", "2"});
    forgetClientEvents();
    connect();
    const unsigned int first = add(5000);
    add(5001);
    const unsigned int third = add(5002, SDF_FILTER_ERROR_LIMIT_REACHED);
    EXPECT_EQ(sdfDeleteFilter(third), SDF_V2_INVALID_ARG);
    ASSERT_EQ(sdfDeleteFilter(first), 0);
    add(5003);
}

TEST_F(WholeServiceTest, FilterBecomesActiveAndEndsWithoutActivity) {
    serve({"--activation-delay", "20", "--inactivity-timeout", "40"});
    connect();
    ASSERT_EQ(sdfRegFilterStatus(onFilterStatus), 0);
    const long long id = sdfAddFilter(flow(5000), onAdded);
    EXPECT_TRUE(waitForText(filter(id, SDF_FILTER_INACTIVITY_TIMEOUT)));
    EXPECT_EQ(reportedSoFar(), (Lines{added(id, SDF_FILTER_PENDING), filter(id, SDF_FILTER_ACTIVE),
                                      filter(id, SDF_FILTER_INACTIVITY_TIMEOUT)}));
    EXPECT_EQ(sdfDeleteFilter(static_cast<unsigned int>(id)), SDF_V2_INVALID_ARG);
    EXPECT_EQ(mEmulator->stats().filters, 0U);
}

// 2^32 packets and 1000 for each filter and each report, 1200 bytes a packet.
constexpr char kFirstReport[] = "report 32: 4294968296 5153961955200";
constexpr char kThirdReport[] = "report 32: 4294970296 5153964355200";

TEST_F(WholeServiceTest, ReportsComeAgainAndAgainUntilSwitchedOff) {
    serve();
    connect();
    ASSERT_EQ(sdfRegPriorityQueueReports(true, 10, onReport), 0);
    EXPECT_TRUE(waitForText(kThirdReport));
    ASSERT_EQ(sdfRegPriorityQueueReports(false, 0, onReport), 0);
    reportedSoFar();
    EXPECT_EQ(state(), Lines{own() + "filters=0 filter_status=off reports=0ms gaming=off "
                                     "prioritize_dds=off levels=SLOT_ID_FIRST:L2,L4"});
}

TEST_F(WholeServiceTest, GamingBringsAnAutomaticFilter) {
    serve();
    connect();
    ASSERT_EQ(sdfRegAutoFilterInfo(onAutoFilter), 0);
    ASSERT_EQ(sdfEnHighPerfGaming(true), 0);
    EXPECT_EQ(reportedSoFar(),
              Lines{"auto filter 2147483649: 192.0.2.10#50000 > 198.51.100.20#27015 0 0 0 1 2"});
    EXPECT_EQ(sdfDeleteFilter(2147483649U), SDF_V2_INVALID_ARG);
    ASSERT_EQ(sdfEnHighPerfGaming(false), 0);
    EXPECT_EQ(reportedSoFar(), Lines{"auto filter 2147483649: none#0 > none#0 0 0 0 0 0"});
}

TEST_F(WholeServiceTest, FiltersAndReportsEndWithTheClient) {
    serve({"--activation-delay", "3600000"});
    connect();
    add(5000, SDF_FILTER_PENDING);
    ASSERT_EQ(sdfRegPriorityQueueReports(true, 10, onReport), 0);
    EXPECT_TRUE(waitForText(kFirstReport));
    EXPECT_EQ(destroySdfClient(), 0);
    EXPECT_EQ(mEmulator->stats().filters, 0U);
    EXPECT_EQ(mEmulator->stats().clients, 0U);
    forgetClientEvents();
    connect();
    ASSERT_EQ(sdfGetFilters(onListed), 0);
    EXPECT_EQ(reportedSoFar(), Lines{});
    EXPECT_EQ(mEmulator->terminate(), 0);
}

// The loss is reported first, and the requests of before are gone with the service.
TEST_F(WholeServiceTest, FiltersAreGoneWithAServiceThatWasKilled) {
    serve();
    connect();
    const unsigned int id = add(5000);
    mEmulator->kill();
    ASSERT_TRUE(waitForStatus(SDF_V2_SERVICE_DOWN));
    EXPECT_EQ(sdfDeleteFilter(id), SDF_V2_SERVICE_DOWN);
    mEmulator->restart();
    forgetClientEvents();
    ASSERT_EQ(createSdfClient(onStatus), 0);
    ASSERT_TRUE(waitForStatus(SDF_V2_SERVICE_UP));
    reportedSoFar();
    // The library knows the filter still, the service does not.
    ASSERT_EQ(sdfUpdateOod(id, SDF_OOD_DISABLED_LVL), 0);
    EXPECT_EQ(reportedSoFar(), Lines{});
    EXPECT_TRUE(mEmulator->process().waitForLine(
        "notice: a request changes nothing, pid=" + std::to_string(getpid()) +
        ": UPDATE_OOD: there is no filter " + std::to_string(id)));
}

}  // namespace
