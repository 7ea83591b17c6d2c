// SPDX-License-Identifier: Apache-2.0
// The public header as C++17, included first.
#include "tests/api/HeaderTest.h"

#include <gtest/gtest.h>
#include <lum_sdf_sdk.h>

#include <cstdint>
#include <string>
#include <vector>

namespace {

// The constants of each enumeration, in the order of their values from the first one on.
TEST(HeaderTest, Constants) {
    const struct {
        int first;
        std::vector<int> constants;
    } rows[] = {
        {-1,
         {SDF_STATUS_INVALID, SDF_STATUS_SUCCESS, SDF_STATUS_INVALID_ARG, SDF_STATUS_INTERNAL_ERROR,
          SDF_STATUS_NOT_SUPPORTED, SDF_STATUS_INVALID_OPERATION, SDF_STATUS_SERVICE_UP,
          SDF_STATUS_SERVICE_DOWN, SDF_STATUS_INVALID_SLOT}},
        {-1, {SDF_SLOT_ID_UNSPECIFIED, SDF_SLOT_ID_FIRST, SDF_SLOT_ID_SECOND}},
        {1,
         {SDF_LATENCY_LVL_1, SDF_LATENCY_LVL_2, SDF_LATENCY_LVL_3, SDF_LATENCY_LVL_4,
          SDF_LATENCY_LVL_5, SDF_LATENCY_LVL_6}},
        {1, {SDF_OOD_UNSPECIFIED_LVL, SDF_OOD_ENABLED_LVL, SDF_OOD_DISABLED_LVL}},
        {0, {SDF_PROTOCOL_NONE, SDF_PROTOCOL_TCP, SDF_PROTOCOL_UDP, SDF_PROTOCOL_TCPUDP}},
        {0, {SDF_APP_TYPE_UNSPECIFIED,     SDF_APP_TYPE_TRAFFIC_PRIO_HIGHEST,
             SDF_APP_TYPE_TRAFFIC_PRIO_2,  SDF_APP_TYPE_TRAFFIC_PRIO_3,
             SDF_APP_TYPE_TRAFFIC_PRIO_4,  SDF_APP_TYPE_TRAFFIC_PRIO_5,
             SDF_APP_TYPE_TRAFFIC_PRIO_6,  SDF_APP_TYPE_TRAFFIC_PRIO_7,
             SDF_APP_TYPE_TRAFFIC_PRIO_8,  SDF_APP_TYPE_TRAFFIC_PRIO_9,
             SDF_APP_TYPE_TRAFFIC_PRIO_10, SDF_APP_TYPE_TRAFFIC_PRIO_11,
             SDF_APP_TYPE_TRAFFIC_PRIO_12, SDF_APP_TYPE_TRAFFIC_PRIO_13,
             SDF_APP_TYPE_TRAFFIC_PRIO_14, SDF_APP_TYPE_TRAFFIC_PRIO_15,
             SDF_APP_TYPE_TRAFFIC_PRIO_16, SDF_APP_TYPE_TRAFFIC_PRIO_17,
             SDF_APP_TYPE_TRAFFIC_PRIO_18, SDF_APP_TYPE_TRAFFIC_PRIO_19,
             SDF_APP_TYPE_TRAFFIC_PRIO_20, SDF_APP_TYPE_TRAFFIC_PRIO_21,
             SDF_APP_TYPE_TRAFFIC_PRIO_22, SDF_APP_TYPE_TRAFFIC_PRIO_23,
             SDF_APP_TYPE_TRAFFIC_PRIO_24, SDF_APP_TYPE_TRAFFIC_PRIO_25,
             SDF_APP_TYPE_TRAFFIC_PRIO_26, SDF_APP_TYPE_TRAFFIC_PRIO_27,
             SDF_APP_TYPE_TRAFFIC_PRIO_28, SDF_APP_TYPE_TRAFFIC_PRIO_29,
             SDF_APP_TYPE_TRAFFIC_PRIO_30, SDF_APP_TYPE_TRAFFIC_PRIO_31,
             SDF_APP_TYPE_TRAFFIC_PRIO_BE}},
        {0,
         {SDF_FILTER_PENDING, SDF_FILTER_ACTIVE, SDF_FILTER_INACTIVITY_TIMEOUT, SDF_FILTER_DELETED,
          SDF_FILTER_ERROR_DUPLICATE, SDF_FILTER_ERROR_LIMIT_REACHED, SDF_FILTER_ERROR_INVALID_ARGS,
          SDF_FILTER_ERROR_INTERNAL, SDF_FILTER_ERROR_NO_PERMISSION}},
    };
    for (const auto& row : rows) {
        int value = row.first;
        for (const int constant : row.constants) EXPECT_EQ(constant, value++);
    }
    // Without -6.
    EXPECT_EQ((std::vector<int>{SDF_V2_SUCCESS, SDF_V2_INVALID, SDF_V2_INVALID_ARG,
                                SDF_V2_INTERNAL_ERROR, SDF_V2_NOT_SUPPORTED,
                                SDF_V2_INVALID_OPERATION, SDF_V2_SERVICE_UP, SDF_V2_SERVICE_DOWN}),
              (std::vector<int>{0, -1, -2, -3, -4, -5, -7, -8}));
}

// Every value around the valid ones, and those at the ends of the type, in both languages.
TEST(HeaderTest, Texts) {
    std::vector<std::string> types = {"unspecified", "highest priority"};
    for (int n = 2; n <= 31; ++n) types.push_back("priority " + std::to_string(n));
    types.emplace_back("best effort");
    // By the value of the first.
    const std::vector<std::pair<int, std::vector<std::string>>> tables = {
        {-8,
         {"service down", "service up", "unknown", "invalid operation", "not supported",
          "internal error", "invalid argument", "invalid", "success"}},
        {-1,
         {"invalid", "success", "invalid argument", "internal error", "not supported",
          "invalid operation", "service up", "service down", "invalid slot"}},
        {-1, {"unspecified", "first", "second"}},
        {1, {"level 1", "level 2", "level 3", "level 4", "level 5", "level 6"}},
        {1, {"unspecified", "enabled", "disabled"}},
        {0, {"none", "TCP", "UDP", "TCP and UDP"}},
        {0, types},
        {0,
         {"pending", "active", "inactivity timeout", "deleted", "duplicate filter",
          "filter limit reached", "invalid arguments", "internal error", "no permission"}},
    };
    std::vector<int> values = {INT32_MIN, INT32_MIN + 1, -256, 256, INT32_MAX - 1, INT32_MAX};
    for (int value = -20; value <= 50; ++value) values.push_back(value);
    for (int table = 0; table < 8; ++table) {
        const auto& [first, texts] = tables[static_cast<size_t>(table)];
        for (const int value : values) {
            const auto index = static_cast<size_t>(int64_t{value} - first);
            std::string expected = index < texts.size() ? texts[index] : "unknown";
            // What a function returns may be an id, too.
            if (table == 0 && value > 0) expected = "success";
            EXPECT_EQ(textOf(table, value), expected) << table << " " << value;
            EXPECT_EQ(textFromC(table, value), expected) << table << " " << value;
        }
    }
    EXPECT_STREQ(sdfStatusV2Text(INT64_MAX), "success");
    EXPECT_STREQ(sdfStatusV2Text(INT64_MIN), "unknown");
    EXPECT_STREQ(sdfStatusV2Text(-(1LL << 32)), "unknown");
}

}  // namespace
