// SPDX-License-Identifier: Apache-2.0
// The public header as C++17, included first.
#include "tests/api/HeaderTest.h"

#include <gtest/gtest.h>
#include <lum_sdf_sdk.h>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "tests/api/ClientFixture.h"
#include "tests/api/ScriptedRand.h"

namespace {

class HeaderTest : public ClientTest {};

TEST_F(HeaderTest, Constants) {
    std::vector<int> expected = {0,  -1, -2, -3, -4, -5, -7, -8,             // SdfStatusV2
                                 -1, 0,  1,  2,  3,  4,  5,  6,  7,          // status_e
                                 -1, 0,  1,                                  // SdfSlotID
                                 1,  2,  3,  4,  5,  6,                      // SdfLatencyLvl
                                 1,  2,  3,                                  // SdfOod
                                 0,  1,  2,  3};                             // SdfProtocol
    for (int type = 0; type <= 32; ++type) expected.push_back(type);         // SdfFilterAppType
    for (int status = 0; status <= 8; ++status) expected.push_back(status);  // SdfFilterStatus
    EXPECT_EQ(std::vector<int>({SDF_CONSTANTS}), expected);
    EXPECT_EQ(std::vector<int>(kConstantsInC, kConstantsInC + SDF_CONSTANTS_SIZE), expected);
}

const char* textInCpp(int which, int value) {
    switch (which) {
        case 0: return sdfStatusV2Text(value);
        case 1: return sdfStatusText(static_cast<status_e>(value));
        case 2: return sdfSlotIdText(static_cast<SdfSlotID>(value));
        case 3: return sdfLatencyLvlText(static_cast<SdfLatencyLvl>(value));
        case 4: return sdfOodText(static_cast<SdfOod>(value));
        case 5: return sdfProtocolText(static_cast<SdfProtocol>(value));
        case 6: return sdfFilterAppTypeText(static_cast<SdfFilterAppType>(value));
        default: return sdfFilterStatusText(static_cast<SdfFilterStatus>(value));
    }
}

// Every value around the valid ones, and those at the ends of the type, in both languages.
TEST_F(HeaderTest, Texts) {
    std::map<int, std::string> types = {
        {0, "unspecified"}, {1, "highest priority"}, {32, "best effort"}};
    for (int n = 2; n <= 31; ++n) types[n] = "priority " + std::to_string(n);
    const std::vector<std::map<int, std::string>> tables = {
        {{0, "success"},
         {-1, "invalid"},
         {-2, "invalid argument"},
         {-3, "internal error"},
         {-4, "not supported"},
         {-5, "invalid operation"},
         {-7, "service up"},
         {-8, "service down"}},
        {{-1, "invalid"},
         {0, "success"},
         {1, "invalid argument"},
         {2, "internal error"},
         {3, "not supported"},
         {4, "invalid operation"},
         {5, "service up"},
         {6, "service down"},
         {7, "invalid slot"}},
        {{-1, "unspecified"}, {0, "first"}, {1, "second"}},
        {{1, "level 1"},
         {2, "level 2"},
         {3, "level 3"},
         {4, "level 4"},
         {5, "level 5"},
         {6, "level 6"}},
        {{1, "unspecified"}, {2, "enabled"}, {3, "disabled"}},
        {{0, "none"}, {1, "TCP"}, {2, "UDP"}, {3, "TCP and UDP"}},
        types,
        {{0, "pending"},
         {1, "active"},
         {2, "inactivity timeout"},
         {3, "deleted"},
         {4, "duplicate filter"},
         {5, "filter limit reached"},
         {6, "invalid arguments"},
         {7, "internal error"},
         {8, "no permission"}},
    };
    std::vector<int> values = {INT32_MIN, INT32_MIN + 1, -256, 256, INT32_MAX - 1, INT32_MAX};
    for (int value = -20; value <= 50; ++value) values.push_back(value);
    for (size_t table = 0; table < tables.size(); ++table) {
        for (const int value : values) {
            const auto found = tables[table].find(value);
            std::string expected = found == tables[table].end() ? "unknown" : found->second;
            // What a function returns may be an id, too.
            if (table == 0 && value > 0) expected = "success";
            EXPECT_EQ(textInCpp(static_cast<int>(table), value), expected) << table << " " << value;
            EXPECT_EQ(textFromC(static_cast<int>(table), value), expected) << table << " " << value;
        }
    }
    EXPECT_STREQ(sdfStatusV2Text(INT64_MAX), "success");
    EXPECT_STREQ(sdfStatusV2Text(INT64_MIN), "unknown");
    EXPECT_STREQ(sdfStatusV2Text(-(1LL << 32)), "unknown");
}

TEST_F(HeaderTest, EveryFunctionFromC) {
    constexpr int kFirstRequest = 4;
    constexpr unsigned int kFilter = 5;
    const auto expectRequests = [](long long result) {
        for (int which = kFirstRequest; which < SDF_FUNCTIONS_SIZE; ++which) {
            EXPECT_EQ(callFromC(which, kFilter), result) << which;
        }
    };
    expectRequests(-5);
    EXPECT_EQ(callFromC(1, 0), -5);
    EXPECT_EQ(callFromC(3, 0), 0);
    EXPECT_EQ(callFromC(0, 0), 0);
    EXPECT_EQ(callFromC(2, 0), 1);
    client().mFilterIds = {kFilter};
    expectRequests(-8);
    receive(service::statusInd("06"));
    for (int which = kFirstRequest; which < SDF_FUNCTIONS_SIZE; ++which) {
        client().mFilterIds = {kFilter};
        const long long result = callFromC(which, kFilter);
        const bool drawsId = which == 4 || which == 18 || which == 19;
        EXPECT_TRUE(drawsId ? result > 0 : result == 0) << which << " " << result;
    }
    // Two enable requests, and one event for each request but the one that posts none.
    EXPECT_EQ(sdk().transport->take().size(), 2U + (SDF_FUNCTIONS_SIZE - kFirstRequest) - 1U);
    EXPECT_EQ(callFromC(3, 0), 1);
    EXPECT_EQ(callFromC(0, 0), 0);
    EXPECT_EQ(callFromC(1, 0), 0);
    EXPECT_EQ(callFromC(1, 0), -5);
}

// What a C program passes by value arrives whole.
TEST_F(HeaderTest, DescriptionFromC) {
    startUp();
    scriptRand({7});
    EXPECT_EQ(callFromC(19, 0), 7);
    // 127.0.0.1 twice, second level 6, delivery in order, application type "unspecified", 255.
    EXPECT_EQ(sdk().transport->takeText(),
              std::vector<std::string>{"5: 08 04 10 07 1A 22 32 20 0A 09 31 32 37 2E 30 2E 30 2E 31"
                                       " 12 09 31 32 37 2E 30 2E 30 2E 31 40 05 50 02 60 01 90 01"
                                       " FF 01"});
}

}  // namespace
