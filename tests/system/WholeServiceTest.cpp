// SPDX-License-Identifier: Apache-2.0
// What the emulator's options do, seen through the library. The demo shows what comes of each
// request and of a loss of the service, tests/sdfctl/CommandsTest.cpp that each request arrives.

#include <gtest/gtest.h>
#include <lum_sdf_sdk.h>
#include <unistd.h>

#include <csignal>
#include <string>

#include "tests/stress/ClientEvents.h"
#include "tests/system/LibraryTest.h"

namespace {

class WholeServiceTest : public LibraryTest {};

TEST_F(WholeServiceTest, StateIsPrintedWhenAskedFor) {
    serve();
    connect();
    ASSERT_EQ(sdfRegFilterStatus(onFilterStatus), 0);
    const unsigned int id = add(5000);
    ASSERT_EQ(sdfUpdateTargetDscp(id, 46), 0);
    EXPECT_EQ(reportedSoFar(), Lines{filter(id, SDF_FILTER_ACTIVE)});
    mEmulator->process().signal(SIGUSR2);
    const auto printed = [this](const std::string& line) {
        return mEmulator->process().waitForLine(line);
    };
    EXPECT_TRUE(printed("state: clients=1"));
    EXPECT_TRUE(
        printed("    - slot_id=SLOT_ID_FIRST first_level=L2 second_level=L4 level_flag=off"));
    EXPECT_TRUE(printed("    - filter_id=" + std::to_string(id) +
                        " status=FILTER_ACTIVE src_ip=10.0.0.1 dest_ip=10.0.0.2 src_port=5000"));
    EXPECT_TRUE(printed("      filter_arg19=0 filter_arg20=0 target_dscp=46"));
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

}  // namespace
