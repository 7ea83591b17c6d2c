// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <string>

#include "proto/SdfProto.pb.h"
#include "tests/proto/Wire.h"

namespace {

using SdfProto::ClientData;
using SdfProto::ClientMsg;
using SdfProto::ServiceData;
using SdfProto::ServiceMsg;

const char kMaxVarint[] = "FF FF FF FF FF FF FF FF FF 01";

TEST(Envelopes, ServiceMsgAllFields) {
    expectWire<ServiceMsg>(
        "08 12 10 AC 02 1A 02 0A 00",
        [](ServiceMsg& msg) {
            msg.set_event_id(SdfProto::UPDATE_TARGET_DSCP);
            msg.set_unique_id(300);
            msg.mutable_data()->mutable_enable_msg();
        },
        [](const ServiceMsg& msg) {
            EXPECT_EQ(msg.event_id(), 18);
            EXPECT_EQ(msg.unique_id(), 300U);
            EXPECT_EQ(msg.data().msg_type_case(), ServiceData::kEnableMsg);
        });
}

TEST(Envelopes, ClientMsgAllFields) {
    expectWire<ClientMsg>(
        std::string("08 06 10 ") + kMaxVarint + " 1A 02 3A 00",
        [](ClientMsg& msg) {
            msg.set_event_id(SdfProto::AUTO_FILTER_INFO_IND);
            msg.set_unique_id(UINT64_MAX);
            msg.mutable_data()->mutable_auto_filter_info_ind();
        },
        [](const ClientMsg& msg) {
            EXPECT_EQ(msg.event_id(), 6);
            EXPECT_EQ(msg.unique_id(), UINT64_MAX);
            EXPECT_EQ(msg.data().msg_type_case(), ClientData::kAutoFilterInfoInd);
        });
}

TEST(Envelopes, EnableOnAndOff) {
    ServiceMsg msg;
    msg.mutable_data()->mutable_enable_msg()->set_enable(true);
    EXPECT_EQ(encode(msg), "1A 04 0A 02 08 01");
    msg.mutable_data()->mutable_enable_msg()->set_enable(false);
    EXPECT_EQ(encode(msg), "1A 02 0A 00");
}

TEST(Envelopes, RequestWithoutBody) {
    ServiceMsg msg;
    msg.set_event_id(SdfProto::GET_FILTERS);
    EXPECT_EQ(encode(msg), "08 05");
    msg.set_unique_id(7);
    EXPECT_EQ(encode(msg), "08 05 10 07");
    EXPECT_FALSE(msg.has_data());
}

TEST(Envelopes, EmptyDataIsPresent) {
    ServiceMsg msg;
    msg.mutable_data();
    EXPECT_EQ(encode(msg), "1A 00");
    ClientMsg decoded;
    ASSERT_TRUE(decode(decoded, "1A 00"));
    EXPECT_TRUE(decoded.has_data());
    EXPECT_EQ(decoded.data().msg_type_case(), ClientData::MSG_TYPE_NOT_SET);
}

TEST(Envelopes, EmptyMessageIsAllDefaults) {
    ClientMsg msg;
    ASSERT_TRUE(decode(msg, ""));
    EXPECT_EQ(msg.event_id(), SdfProto::STATUS_IND);
    EXPECT_EQ(msg.unique_id(), 0U);
    EXPECT_FALSE(msg.has_data());
    EXPECT_EQ(encode(msg), "");
    EXPECT_EQ(encode(ServiceMsg()), "");
}

struct ServiceMember {
    const char* hex;  // the member set to an empty body
    int number;
    void (*set)(ServiceData&);
};

const ServiceMember kServiceMembers[] = {
    {"0A 00", 1, [](ServiceData& d) { d.mutable_enable_msg(); }},
    {"1A 00", 3, [](ServiceData& d) { d.mutable_set_latency_level(); }},
    {"22 00", 4, [](ServiceData& d) { d.mutable_prioritize_dds(); }},
    {"2A 00", 5, [](ServiceData& d) { d.mutable_reg_filter_status(); }},
    {"32 00", 6, [](ServiceData& d) { d.mutable_add_filter(); }},
    {"3A 00", 7, [](ServiceData& d) { d.mutable_update_latency_level(); }},
    {"42 00", 8, [](ServiceData& d) { d.mutable_update_ood(); }},
    {"4A 00", 9, [](ServiceData& d) { d.mutable_update_pdcp_timer(); }},
    {"52 00", 10, [](ServiceData& d) { d.mutable_delete_filter(); }},
    {"5A 00", 11, [](ServiceData& d) { d.mutable_update_dds_ood(); }},
    {"62 00", 12, [](ServiceData& d) { d.mutable_update_dds_pdcp_timer(); }},
    {"6A 00", 13, [](ServiceData& d) { d.mutable_en_high_perf_gaming(); }},
    {"72 00", 14, [](ServiceData& d) { d.mutable_prioritize_data(); }},
    {"7A 00", 15, [](ServiceData& d) { d.mutable_reg_priority_queue_reports(); }},
    {"82 01 00", 16, [](ServiceData& d) { d.mutable_update_target_dscp(); }},
};

TEST(Envelopes, ServiceDataMembers) {
    for (const ServiceMember& member : kServiceMembers) {
        expectWire<ServiceData>(member.hex, member.set, [&](const ServiceData& data) {
            EXPECT_EQ(static_cast<int>(data.msg_type_case()), member.number);
        });
    }
}

TEST(Envelopes, ServiceDataLastMemberSetWins) {
    for (const ServiceMember& first : kServiceMembers) {
        for (const ServiceMember& second : kServiceMembers) {
            ServiceData data;
            first.set(data);
            second.set(data);
            EXPECT_EQ(encode(data), second.hex);
            ServiceData decoded;
            ASSERT_TRUE(decode(decoded, std::string(first.hex) + " " + second.hex));
            EXPECT_EQ(static_cast<int>(decoded.msg_type_case()), second.number);
        }
    }
}

TEST(Envelopes, ServiceDataNumberTwoIsUnknownAndKept) {
    ServiceData data;
    ASSERT_TRUE(decode(data, "12 01 41 1A 00"));
    EXPECT_EQ(data.msg_type_case(), ServiceData::kSetLatencyLevel);
    EXPECT_EQ(encode(data), "1A 00 12 01 41");

    ServiceData onlyTwo;
    ASSERT_TRUE(decode(onlyTwo, "12 00"));
    EXPECT_EQ(onlyTwo.msg_type_case(), ServiceData::MSG_TYPE_NOT_SET);
    EXPECT_EQ(encode(onlyTwo), "12 00");
}

TEST(Envelopes, SetAllocatedAndClear) {
    ServiceData data;
    auto* body = new SdfProto::EnableService;
    body->set_enable(true);
    data.set_allocated_enable_msg(body);
    EXPECT_EQ(encode(data), "0A 02 08 01");
    data.clear_msg_type();
    EXPECT_EQ(data.msg_type_case(), ServiceData::MSG_TYPE_NOT_SET);
    EXPECT_EQ(encode(data), "");
}

TEST(Envelopes, ClientDataMembers) {
    const struct {
        const char* hex;
        int number;
        void (*set)(ClientData&);
    } members[] = {
        {"0A 00", 1, [](ClientData& d) { d.mutable_status_msg(); }},
        {"12 00", 2, [](ClientData& d) { d.mutable_effective_levels_cb(); }},
        {"1A 00", 3, [](ClientData& d) { d.mutable_filter_status_indication(); }},
        {"22 00", 4, [](ClientData& d) { d.mutable_add_filter_cb(); }},
        {"2A 00", 5, [](ClientData& d) { d.mutable_get_filter_cb(); }},
        {"32 00", 6, [](ClientData& d) { d.mutable_priority_queue_report_cb(); }},
        {"3A 00", 7, [](ClientData& d) { d.mutable_auto_filter_info_ind(); }},
    };
    for (const auto& member : members) {
        expectWire<ClientData>(member.hex, member.set, [&](const ClientData& data) {
            EXPECT_EQ(static_cast<int>(data.msg_type_case()), member.number);
        });
    }
}

TEST(Envelopes, UnknownEventIdsAreKept) {
    expectWire<ClientMsg>(
        "08 07", [](ClientMsg& msg) { msg.set_event_id(static_cast<SdfProto::ClientEventId>(7)); },
        [](const ClientMsg& msg) { EXPECT_EQ(static_cast<int>(msg.event_id()), 7); });
    expectWire<ServiceMsg>(
        std::string("08 ") + kMaxVarint,
        [](ServiceMsg& msg) { msg.set_event_id(static_cast<SdfProto::ServiceEventId>(-1)); },
        [](const ServiceMsg& msg) { EXPECT_EQ(static_cast<int>(msg.event_id()), -1); });
}

TEST(Envelopes, UnknownFieldsAreKeptAtTheEnd) {
    ClientMsg msg;
    // Field 100 as a varint and field 101 as text, before the known ones.
    ASSERT_TRUE(decode(msg, "A0 06 05 AA 06 02 68 69 08 01 10 02"));
    EXPECT_EQ(msg.event_id(), SdfProto::EFFECTIVE_LEVELS_CB);
    EXPECT_EQ(encode(msg), "08 01 10 02 A0 06 05 AA 06 02 68 69");
}

TEST(Envelopes, WrongWireTypeIsAnUnknownField) {
    ClientMsg msg;
    // event_id as text, unique_id as 32 bits, data as a varint.
    ASSERT_TRUE(decode(msg, "0A 01 06 15 01 00 00 00 18 01"));
    EXPECT_EQ(msg.event_id(), SdfProto::STATUS_IND);
    EXPECT_EQ(msg.unique_id(), 0U);
    EXPECT_FALSE(msg.has_data());
    EXPECT_EQ(encode(msg), "0A 01 06 15 01 00 00 00 18 01");
}

TEST(Envelopes, MalformedBytesFail) {
    for (const char* hex : {
             "08",                                   // tag without a value
             "08 80",                                // value cut in the middle
             "10 FF FF FF FF FF FF FF FF FF FF 01",  // value of eleven bytes
             "1A",                                   // tag without a length
             "1A 80",                                // length cut in the middle
             "1A 03 0A 00",                          // length past the end
             "1A FF FF FF FF 0F",                    // length of 2^32 - 1
             "0C",                                   // end of a group that never began
             "0B 08 01",                             // group that never ends
             "00 00",                                // field number 0
             "1A 02 0A 01",                          // the same inside the body
         }) {
        ClientMsg msg;
        EXPECT_FALSE(decode(msg, hex)) << hex;
    }
}

TEST(Envelopes, WhatWasReadBeforeAnErrorStays) {
    ClientMsg msg;
    EXPECT_FALSE(decode(msg, "08 01 10 05 1A"));
    EXPECT_EQ(msg.event_id(), SdfProto::EFFECTIVE_LEVELS_CB);
    EXPECT_EQ(msg.unique_id(), 5U);
    EXPECT_EQ(msg.data().msg_type_case(), ClientData::MSG_TYPE_NOT_SET);
}

}  // namespace
