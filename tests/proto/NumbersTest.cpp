// SPDX-License-Identifier: Apache-2.0
// The numbers of the schema, which services in the field rely on, as bytes worked out by hand. A
// field's tag is its number times 8, plus 2 for text and messages, as a varint. What protobuf makes
// of the bytes (unknown fields, malformed messages, merging) is protobuf's business.
#include <google/protobuf/stubs/logging.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "proto/SdfProto.pb.h"
#include "tests/support/Hex.h"

using namespace SdfProto;

namespace {

std::string encode(const google::protobuf::MessageLite& message) {
    return toHex(message.SerializeAsString());
}

bool decode(google::protobuf::MessageLite& message, const std::string& hex) {
    const std::vector<uint8_t> bytes = fromHex(hex);
    return message.ParseFromArray(bytes.data(), static_cast<int>(bytes.size()));
}

// A field of type T. The signed 32-bit types take ten bytes for -1, uint32_t takes five at most.
template <typename T, typename Message, typename Get, typename Set>
void expectField(const std::string& tag, Get Message::*get, Set Message::*set) {
    EXPECT_TRUE((std::is_same_v<Get Message::*, T (Message::*)() const>)) << "type of " << tag;
    const bool wide = !std::is_same_v<T, uint32_t>;
    const auto value = static_cast<T>(-1);
    const std::string hex = tag + (std::is_same_v<T, bool> ? " 01"
                                   : wide                  ? " FF FF FF FF FF FF FF FF FF 01"
                                                           : " FF FF FF FF 0F");
    Message message;
    (message.*set)(value);
    EXPECT_EQ(encode(message), hex);
    Message decoded;
    EXPECT_TRUE(decode(decoded, hex));
    EXPECT_EQ((decoded.*get)(), value) << hex;
    (message.*set)(T());
    EXPECT_EQ(encode(message), "") << "zero is not sent: " << hex;
}

// A field of text: bytes need not be UTF-8.
template <typename Message>
void expectText(const std::string& tag, const std::string& (Message::*get)() const) {
    Message decoded;
    EXPECT_TRUE(decode(decoded, tag + " 02 C3 A9"));
    EXPECT_EQ((decoded.*get)(), "\xC3\xA9") << tag;
    EXPECT_EQ(encode(decoded), tag + " 02 C3 A9");
    const google::protobuf::LogSilencer silencer;
    EXPECT_FALSE(decode(decoded, tag + " 01 FF")) << tag;
}

// A message in a message, present though it is empty. Of two the last counts, in a list both.
// `make` is its mutable_... or, of a list, add_...
template <typename Message, typename Inner>
void expectMessage(const std::string& tag, bool inList, Inner* (Message::*make)()) {
    const std::string one = tag + " 00";
    const std::string two = one + " " + one;
    Message message;
    (message.*make)();
    EXPECT_EQ(encode(message), one);
    EXPECT_TRUE(decode(message, two));
    EXPECT_EQ(encode(message), inList ? two : one);
}

#define FIELD(tag, T, Message, field) expectField<T>(tag, &Message::field, &Message::set_##field)
#define TEXT(tag, Message, field) expectText(tag, &Message::field)
#define MESSAGE(tag, Message, field) expectMessage(tag, false, &Message::mutable_##field)
#define LIST(tag, Message, field) expectMessage(tag, true, &Message::add_##field)

TEST(NumbersTest, Envelopes) {
    FIELD("08", ServiceEventId, ServiceMsg, event_id);
    FIELD("10", uint64_t, ServiceMsg, unique_id);
    MESSAGE("1A", ServiceMsg, data);
    FIELD("08", ClientEventId, ClientMsg, event_id);
    FIELD("10", uint64_t, ClientMsg, unique_id);
    MESSAGE("1A", ClientMsg, data);
}

TEST(NumbersTest, KindsOfBodies) {
    MESSAGE("0A", ServiceData, enable_msg);
    MESSAGE("1A", ServiceData, set_latency_level);
    MESSAGE("22", ServiceData, prioritize_dds);
    MESSAGE("2A", ServiceData, reg_filter_status);
    MESSAGE("32", ServiceData, add_filter);
    MESSAGE("3A", ServiceData, update_latency_level);
    MESSAGE("42", ServiceData, update_ood);
    MESSAGE("4A", ServiceData, update_pdcp_timer);
    MESSAGE("52", ServiceData, delete_filter);
    MESSAGE("5A", ServiceData, update_dds_ood);
    MESSAGE("62", ServiceData, update_dds_pdcp_timer);
    MESSAGE("6A", ServiceData, en_high_perf_gaming);
    MESSAGE("72", ServiceData, prioritize_data);
    MESSAGE("7A", ServiceData, reg_priority_queue_reports);
    MESSAGE("82 01", ServiceData, update_target_dscp);

    MESSAGE("0A", ClientData, status_msg);
    MESSAGE("12", ClientData, effective_levels_cb);
    MESSAGE("1A", ClientData, filter_status_indication);
    MESSAGE("22", ClientData, add_filter_cb);
    MESSAGE("2A", ClientData, get_filter_cb);
    MESSAGE("32", ClientData, priority_queue_report_cb);
    MESSAGE("3A", ClientData, auto_filter_info_ind);
}

TEST(NumbersTest, OneBodyAtATime) {
    ServiceData request;
    ASSERT_TRUE(decode(request, "0A 00 82 01 00"));  // the first, then the last
    EXPECT_EQ(encode(request), "82 01 00");
    ClientData answer;
    ASSERT_TRUE(decode(answer, "0A 00 3A 00"));
    EXPECT_EQ(encode(answer), "3A 00");
}

TEST(NumbersTest, TwoIsNoBody) {
    ServiceData data;
    ASSERT_TRUE(decode(data, "12 00"));
    EXPECT_EQ(data.msg_type_case(), ServiceData::MSG_TYPE_NOT_SET);
}

TEST(NumbersTest, Requests) {
    FIELD("08", bool, EnableService, enable);
    FIELD("08", SlotId, SetLatencyLevel, slot_id);
    FIELD("10", Level, SetLatencyLevel, first_level);
    FIELD("18", Level, SetLatencyLevel, second_level);
    FIELD("20", bool, SetLatencyLevel, level_flag);
    FIELD("08", bool, PrioritizeDds, enable);
    FIELD("08", int32_t, RegFilterStatus, enable);
    FIELD("08", uint32_t, UpdateLatencyLevel, filter_id);
    FIELD("10", Level, UpdateLatencyLevel, first_level);
    FIELD("18", Level, UpdateLatencyLevel, second_level);
    FIELD("08", uint32_t, UpdateOod, filter_id);
    FIELD("10", SdfOod, UpdateOod, ood);
    FIELD("08", uint32_t, UpdatePdcpTimer, filter_id);
    FIELD("10", uint32_t, UpdatePdcpTimer, pdcp_timer);
    FIELD("08", uint32_t, DeleteFilter, filter_id);
    FIELD("08", SdfOod, UpdateDdsOod, ood);
    FIELD("08", uint32_t, UpdateDdsPdcpTimer, pdcp_timer);
    FIELD("08", bool, EnHighPerfGaming, enable);
    FIELD("08", SlotId, PrioritizeData, slot_id);
    FIELD("10", bool, PrioritizeData, enable);
    FIELD("08", bool, RegPriorityQueueReports, enable);
    FIELD("10", uint32_t, RegPriorityQueueReports, report_value);
    FIELD("08", uint32_t, UpdateTargetDscp, filter_id);
    FIELD("10", uint32_t, UpdateTargetDscp, target_dscp);
}

TEST(NumbersTest, Filter) {
    TEXT("0A", AddFilter, src_ip);
    TEXT("12", AddFilter, dest_ip);
    FIELD("18", int32_t, AddFilter, src_port);
    FIELD("20", int32_t, AddFilter, dest_port);
    FIELD("28", Protocol, AddFilter, protocol);
    FIELD("30", uint32_t, AddFilter, filter_arg6);
    FIELD("38", Level, AddFilter, first_level);
    FIELD("40", Level, AddFilter, second_level);
    FIELD("48", uint32_t, AddFilter, pdcp_timer);
    FIELD("50", SdfOod, AddFilter, ood);
    FIELD("58", uint32_t, AddFilter, filter_arg11);
    FIELD("60", AppType, AddFilter, app_type);
    FIELD("68", uint32_t, AddFilter, filter_arg13);
    FIELD("70", uint32_t, AddFilter, src_port_range);
    FIELD("78", uint32_t, AddFilter, dest_port_range);
    FIELD("80 01", uint32_t, AddFilter, filter_arg16);
    FIELD("88 01", uint32_t, AddFilter, filter_arg17);
    FIELD("98 01", uint32_t, AddFilter, filter_arg19);
    FIELD("A0 01", uint32_t, AddFilter, filter_arg20);
}

TEST(NumbersTest, AbsentAndZeroDifferInOneFieldOfAFilter) {
    AddFilter filter;
    filter.set_filter_arg18(UINT32_MAX);
    EXPECT_EQ(encode(filter), "90 01 FF FF FF FF 0F");
    filter.set_filter_arg18(0);
    EXPECT_EQ(encode(filter), "90 01 00");
    AddFilter decoded;
    EXPECT_FALSE(decoded.has_filter_arg18());
    ASSERT_TRUE(decode(decoded, "90 01 00"));
    EXPECT_TRUE(decoded.has_filter_arg18());
}

TEST(NumbersTest, AnswersAndIndications) {
    FIELD("08", Status, StatusInd, status);
    FIELD("08", Level, EffectiveLevelsCb, first_level);
    FIELD("10", Level, EffectiveLevelsCb, second_level);
    FIELD("08", uint32_t, FilterData, filter_id);
    FIELD("10", FilterStatus, FilterData, status);
    TEXT("1A", FilterData, status_string);
    FIELD("08", int32_t, FilterStatusIndication, status);
    LIST("12", FilterStatusIndication, filters);
    MESSAGE("0A", AddFilterCb, filter);
    FIELD("08", uint32_t, FilterInfo, filter_id);
    FIELD("10", FilterStatus, FilterInfo, status);
    TEXT("1A", FilterInfo, status_string);
    FIELD("20", Level, FilterInfo, first_level);
    FIELD("28", Level, FilterInfo, second_level);
    FIELD("30", uint32_t, FilterInfo, pdcp_timer);
    FIELD("38", SdfOod, FilterInfo, ood);
    FIELD("08", int32_t, GetFilterCb, status);
    LIST("12", GetFilterCb, filters);
    FIELD("08", uint32_t, Entry, entry_key);
    FIELD("10", uint64_t, Entry, first_value);
    FIELD("18", uint64_t, Entry, second_value);
    FIELD("08", int32_t, PriorityQueueReportCb, status);
    LIST("12", PriorityQueueReportCb, entries);
    FIELD("08", uint32_t, AutoFilterInfoInd, filter_id);
    MESSAGE("12", AutoFilterInfoInd, filter);
    FIELD("18", FilterStatus, AutoFilterInfoInd, status);
}

// The names of the values from 0 on, "-" for one that is not used, and of no others.
template <typename E>
void expectEnumeration(const std::vector<std::string>& names, const std::string& (*name)(E)) {
    for (int value = -1; value < 70; ++value) {
        const auto place = static_cast<size_t>(value);
        const bool used = place < names.size() && names[place] != "-";
        EXPECT_EQ(name(static_cast<E>(value)), used ? names[place] : "") << value;
    }
}

TEST(NumbersTest, Enumerations) {
    expectEnumeration<Status>(
        {"INVALID", "SUCCESS", "INVALID_ARG", "INTERNAL_ERROR", "NOT_SUPPORTED",
         "INVALID_OPERATION", "SERVICE_UP", "SERVICE_DOWN", "INVALID_SLOT"},
        Status_Name);
    expectEnumeration<ServiceEventId>(
        {"ENABLE", "SET_LATENCY_LEVEL", "PRIORITIZE_DDS", "REG_FILTER_STATUS", "ADD_FILTER",
         "GET_FILTERS", "UPDATE_LATENCY_LEVEL", "UPDATE_OOD", "UPDATE_PDCP_TIMER", "DELETE_FILTER",
         "DELETE_ALL_FILTER", "UPDATE_DDS_OOD", "UPDATE_DDS_PDCP_TIMER", "EN_HIGH_PERF_GAMING",
         "PRIORITIZE_DATA", "REG_PRIORITY_QUEUE_REPORTS", "GET_PRIORITY_QUEUE_REPORT",
         "REG_AUTO_FILTER_INFO_IND", "UPDATE_TARGET_DSCP"},
        ServiceEventId_Name);
    expectEnumeration<ClientEventId>(
        {"STATUS_IND", "EFFECTIVE_LEVELS_CB", "FILTER_STATUS_INDICATION", "ADD_FILTER_CB",
         "GET_FILTER_CB", "PRIORITY_QUEUE_REPORT_CB", "AUTO_FILTER_INFO_IND"},
        ClientEventId_Name);
    expectEnumeration<SlotId>(
        {"SLOT_ID_UNSPECIFIED", "SLOT_ID_FIRST", "SLOT_ID_SECOND", "SLOT_ID_THIRD"}, SlotId_Name);
    expectEnumeration<Level>({"L1", "L2", "L3", "L4", "L5", "L6"}, Level_Name);
    expectEnumeration<Protocol>(
        {"PROTOCOL_NONE", "PROTOCOL_TCP", "PROTOCOL_UDP", "PROTOCOL_TCPUDP"}, Protocol_Name);
    expectEnumeration<SdfOod>({"SDF_OOD_UNSPECIFIED", "SDF_OOD_ENABLED", "SDF_OOD_DISABLED"},
                              SdfOod_Name);

    std::vector<std::string> states = {
        "FILTER_PENDING",     "FILTER_ACTIVE",          "-",
        "FILTER_DELETED",     "ERROR_DUPLICATE_FILTER", "ERROR_FILTER_LIMIT_REACHED",
        "ERROR_INVALID_ARGS", "ERROR_INTERNAL",         "ERROR_NO_PERMISSION"};
    states.resize(23, "-");
    states.emplace_back("FILTER_INACTIVITY_TIMEOUT");
    expectEnumeration<FilterStatus>(states, FilterStatus_Name);

    std::vector<std::string> types = {"APP_TYPE_NONE", "APP_TYPE_UNSPECIFIED",
                                      "APP_TYPE_TRAFFIC_PRIO_HIGHEST"};
    for (int n = 2; n <= 31; ++n) types.push_back("APP_TYPE_TRAFFIC_PRIO_" + std::to_string(n));
    types.emplace_back("APP_TYPE_TRAFFIC_PRIO_BE");
    ASSERT_EQ(types.size(), 34U);
    expectEnumeration<AppType>(types, AppType_Name);
}

}  // namespace
