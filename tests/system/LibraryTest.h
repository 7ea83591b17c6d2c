// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <lum_sdf_sdk.h>
#include <netinet/in.h>

#include <memory>
#include <string>
#include <vector>

#include "tests/stress/ClientEvents.h"
#include "tests/support/EmulatorProcess.h"
#include "tests/support/TestDirectory.h"

// The library against an emulator of its own, and what the callbacks are called with.
class LibraryTest : public testing::Test {
  protected:
    using Lines = std::vector<std::string>;

    ~LibraryTest() override {
        // Whatever the test has come to, nothing may go on behind it.
        (void)destroySdfClient();
    }

    // Starts an emulator that prints what goes on.
    void serve(Lines options = {}) {
        options.emplace_back("--print");
        mEmulator = std::make_unique<EmulatorProcess>(options);
    }

    // The same, misbehaving by these rules.
    void serveBy(const Lines& rules) {
        Lines options;
        for (const std::string& rule : rules) {
            options.emplace_back("--rule");
            options.push_back(rule);
        }
        serve(options);
    }

    // Creates the client and waits until the service is up; what the callbacks have got is
    // forgotten then.
    void connect() {
        ASSERT_EQ(createSdfClient(onStatus), 0);
        ASSERT_TRUE(waitForStatus(SDF_V2_SERVICE_UP));
        forgetClientEvents();
    }

    static long long askLevels() {
        return sdfSetLatencyLvl(SDF_SLOT_ID_FIRST, SDF_LATENCY_LVL_2, SDF_LATENCY_LVL_4, false,
                                onLevels);
    }

    static std::string levels(long long id, const std::string& values = "2 4") {
        return "levels " + std::to_string(id) + ": " + values;
    }

    // Asks for levels and waits for the answer: all that the service has sent before has been dealt
    // with then. Returns what has been reported, without that answer, and forgets it.
    static Lines reportedSoFar() {
        const long long id = askLevels();
        EXPECT_GT(id, 0);
        EXPECT_TRUE(waitForText(levels(id)));
        Lines reported = clientTexts();
        if (!reported.empty()) {
            EXPECT_EQ(reported.back(), levels(id));
            reported.pop_back();
        }
        forgetClientEvents();
        return reported;
    }

    // A filter from a port of 10.0.0.1 to port 80 of 10.0.0.2.
    static SdfAddFilterInfo flow(uint16_t port) {
        SdfAddFilterInfo info{};
        info.src_addr = address("10.0.0.1", port);
        info.dest_addr = address("10.0.0.2", 80);
        info.first_level = SDF_LATENCY_LVL_2;
        info.second_level = SDF_LATENCY_LVL_4;
        info.ood = SDF_OOD_ENABLED_LVL;
        info.app_type = SDF_APP_TYPE_TRAFFIC_PRIO_HIGHEST;
        info.protocol = SDF_PROTOCOL_UDP;
        info.pdcp_timer = 50;
        return info;
    }

    static sockaddr_storage address(const char* text, uint16_t port) {
        sockaddr_storage storage{};
        auto& four = reinterpret_cast<sockaddr_in&>(storage);
        four.sin_family = AF_INET;
        four.sin_port = htons(port);
        inet_pton(AF_INET, text, &four.sin_addr);
        return storage;
    }

    // Adds a filter and waits until it is dealt with: nothing else must be reported meanwhile, and
    // that is forgotten. Returns its id.
    static unsigned int add(uint16_t port, SdfFilterStatus expected = SDF_FILTER_ACTIVE) {
        const long long id = sdfAddFilter(flow(port), onAdded);
        EXPECT_GT(id, 0);
        // Its callback is called before the library knows the filter.
        EXPECT_EQ(reportedSoFar(), Lines{added(id, expected)});
        return static_cast<unsigned int>(id);
    }

    static std::string added(long long id, SdfFilterStatus status) {
        return "added " + std::to_string(id) + ": " + std::to_string(status);
    }

    static std::string filter(long long id, SdfFilterStatus status) {
        return "filter " + std::to_string(id) + ": " + std::to_string(status);
    }

    const TestDirectory mDirectory;
    std::unique_ptr<EmulatorProcess> mEmulator;
};
