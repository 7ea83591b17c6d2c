// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <map>
#include <string>

#include "proto/SdfProto.pb.h"

namespace {

using Names = std::map<int, std::string>;

// `names`: every value of the enumeration E, and no other.
template <typename E, typename IsValid, typename Name, typename Parse>
void expectEnum(const Names& names, const IsValid& isValid, const Name& name, const Parse& parse) {
    for (int value = -3; value <= 70; ++value) {
        const auto found = names.find(value);
        EXPECT_EQ(isValid(value), found != names.end()) << value;
        EXPECT_EQ(name(static_cast<E>(value)), found == names.end() ? "" : found->second) << value;
    }
    for (const int value : {INT32_MIN, INT32_MAX}) {
        EXPECT_FALSE(isValid(value));
        EXPECT_EQ(name(static_cast<E>(value)), "");
    }
    for (const auto& [value, text] : names) {
        E parsed = static_cast<E>(99);
        EXPECT_TRUE(parse(text, &parsed)) << text;
        EXPECT_EQ(parsed, value) << text;
        std::string lower = text;
        lower[0] = static_cast<char>(tolower(lower[0]));
        for (const std::string& wrong : {lower, text + " ", text + "X", text.substr(1)}) {
            parsed = static_cast<E>(99);
            EXPECT_FALSE(parse(wrong, &parsed)) << wrong;
            EXPECT_EQ(parsed, 99) << wrong;
        }
    }
    E parsed = static_cast<E>(99);
    EXPECT_FALSE(parse("", &parsed));
    EXPECT_EQ(parsed, 99);
}

#define EXPECT_ENUM(E, ...)                                                       \
    expectEnum<SdfProto::E>(                                                      \
        __VA_ARGS__, [](int value) { return SdfProto::E##_IsValid(value); },      \
        [](SdfProto::E value) { return std::string(SdfProto::E##_Name(value)); }, \
        [](const std::string& text, SdfProto::E* out) { return SdfProto::E##_Parse(text, out); })

TEST(Enums, Status) {
    EXPECT_ENUM(Status, Names{{0, "INVALID"},
                              {1, "SUCCESS"},
                              {2, "INVALID_ARG"},
                              {3, "INTERNAL_ERROR"},
                              {4, "NOT_SUPPORTED"},
                              {5, "INVALID_OPERATION"},
                              {6, "SERVICE_UP"},
                              {7, "SERVICE_DOWN"},
                              {8, "INVALID_SLOT"}});
}

TEST(Enums, ServiceEventId) {
    EXPECT_ENUM(ServiceEventId, Names{{0, "ENABLE"},
                                      {1, "SET_LATENCY_LEVEL"},
                                      {2, "PRIORITIZE_DDS"},
                                      {3, "REG_FILTER_STATUS"},
                                      {4, "ADD_FILTER"},
                                      {5, "GET_FILTERS"},
                                      {6, "UPDATE_LATENCY_LEVEL"},
                                      {7, "UPDATE_OOD"},
                                      {8, "UPDATE_PDCP_TIMER"},
                                      {9, "DELETE_FILTER"},
                                      {10, "DELETE_ALL_FILTER"},
                                      {11, "UPDATE_DDS_OOD"},
                                      {12, "UPDATE_DDS_PDCP_TIMER"},
                                      {13, "EN_HIGH_PERF_GAMING"},
                                      {14, "PRIORITIZE_DATA"},
                                      {15, "REG_PRIORITY_QUEUE_REPORTS"},
                                      {16, "GET_PRIORITY_QUEUE_REPORT"},
                                      {17, "REG_AUTO_FILTER_INFO_IND"},
                                      {18, "UPDATE_TARGET_DSCP"}});
}

TEST(Enums, ClientEventId) {
    EXPECT_ENUM(ClientEventId, Names{{0, "STATUS_IND"},
                                     {1, "EFFECTIVE_LEVELS_CB"},
                                     {2, "FILTER_STATUS_INDICATION"},
                                     {3, "ADD_FILTER_CB"},
                                     {4, "GET_FILTER_CB"},
                                     {5, "PRIORITY_QUEUE_REPORT_CB"},
                                     {6, "AUTO_FILTER_INFO_IND"}});
}

TEST(Enums, SlotId) {
    EXPECT_ENUM(SlotId, Names{{0, "SLOT_ID_UNSPECIFIED"},
                              {1, "SLOT_ID_FIRST"},
                              {2, "SLOT_ID_SECOND"},
                              {3, "SLOT_ID_THIRD"}});
}

TEST(Enums, Level) {
    EXPECT_ENUM(Level, Names{{0, "L1"}, {1, "L2"}, {2, "L3"}, {3, "L4"}, {4, "L5"}, {5, "L6"}});
}

TEST(Enums, Protocol) {
    EXPECT_ENUM(Protocol, Names{{0, "PROTOCOL_NONE"},
                                {1, "PROTOCOL_TCP"},
                                {2, "PROTOCOL_UDP"},
                                {3, "PROTOCOL_TCPUDP"}});
}

TEST(Enums, SdfOod) {
    EXPECT_ENUM(SdfOod,
                Names{{0, "SDF_OOD_UNSPECIFIED"}, {1, "SDF_OOD_ENABLED"}, {2, "SDF_OOD_DISABLED"}});
}

TEST(Enums, AppType) {
    Names names{{0, "APP_TYPE_NONE"},
                {1, "APP_TYPE_UNSPECIFIED"},
                {2, "APP_TYPE_TRAFFIC_PRIO_HIGHEST"},
                {33, "APP_TYPE_TRAFFIC_PRIO_BE"}};
    for (int n = 2; n <= 31; ++n) names[n + 1] = "APP_TYPE_TRAFFIC_PRIO_" + std::to_string(n);
    ASSERT_EQ(names.size(), 34U);
    EXPECT_EQ(names[3], "APP_TYPE_TRAFFIC_PRIO_2");
    EXPECT_EQ(names[32], "APP_TYPE_TRAFFIC_PRIO_31");
    EXPECT_ENUM(AppType, names);
}

TEST(Enums, AppTypeHasNoPriorityOne) {
    SdfProto::AppType type = SdfProto::APP_TYPE_TRAFFIC_PRIO_BE;
    EXPECT_FALSE(SdfProto::AppType_Parse("APP_TYPE_TRAFFIC_PRIO_1", &type));
    EXPECT_EQ(type, 33);
}

TEST(Enums, FilterStatus) {
    EXPECT_ENUM(FilterStatus, Names{{0, "FILTER_PENDING"},
                                    {1, "FILTER_ACTIVE"},
                                    {3, "FILTER_DELETED"},
                                    {4, "ERROR_DUPLICATE_FILTER"},
                                    {5, "ERROR_FILTER_LIMIT_REACHED"},
                                    {6, "ERROR_INVALID_ARGS"},
                                    {7, "ERROR_INTERNAL"},
                                    {8, "ERROR_NO_PERMISSION"},
                                    {23, "FILTER_INACTIVITY_TIMEOUT"}});
}

}  // namespace
