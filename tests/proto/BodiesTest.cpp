// SPDX-License-Identifier: Apache-2.0
#include <google/protobuf/stubs/logging.h>
#include <gtest/gtest.h>

#include <string>

#include "proto/SdfProto.pb.h"
#include "tests/proto/Wire.h"

using namespace SdfProto;

namespace {

const char kMinusOne[] = "FF FF FF FF FF FF FF FF FF 01";

TEST(Bodies, EnableService) {
    expectWire<EnableService>(
        "08 01", [](EnableService& m) { m.set_enable(true); },
        [](const EnableService& m) { EXPECT_TRUE(m.enable()); });
}

TEST(Bodies, SetLatencyLevel) {
    expectWire<SetLatencyLevel>(
        "08 02 10 05 18 01 20 01",
        [](SetLatencyLevel& m) {
            m.set_slot_id(SLOT_ID_SECOND);
            m.set_first_level(L6);
            m.set_second_level(L2);
            m.set_level_flag(true);
        },
        [](const SetLatencyLevel& m) {
            EXPECT_EQ(m.slot_id(), SLOT_ID_SECOND);
            EXPECT_EQ(m.first_level(), L6);
            EXPECT_EQ(m.second_level(), L2);
            EXPECT_TRUE(m.level_flag());
        });
}

TEST(Bodies, SetLatencyLevelOmitsDefaults) {
    SetLatencyLevel m;
    m.set_slot_id(SLOT_ID_FIRST);
    m.set_first_level(L1);
    m.set_second_level(L3);
    m.set_level_flag(false);
    EXPECT_EQ(encode(m), "08 01 18 02");
}

TEST(Bodies, PrioritizeDds) {
    expectWire<PrioritizeDds>(
        "08 01", [](PrioritizeDds& m) { m.set_enable(true); },
        [](const PrioritizeDds& m) { EXPECT_TRUE(m.enable()); });
}

TEST(Bodies, RegFilterStatusIsANumber) {
    expectWire<RegFilterStatus>(
        "08 01", [](RegFilterStatus& m) { m.set_enable(1); },
        [](const RegFilterStatus& m) { EXPECT_EQ(m.enable(), 1); });
    expectWire<RegFilterStatus>(
        "08 AC 02", [](RegFilterStatus& m) { m.set_enable(300); },
        [](const RegFilterStatus& m) { EXPECT_EQ(m.enable(), 300); });
    expectWire<RegFilterStatus>(
        std::string("08 ") + kMinusOne, [](RegFilterStatus& m) { m.set_enable(-1); },
        [](const RegFilterStatus& m) { EXPECT_EQ(m.enable(), -1); });
}

const char kWholeFilter[] =
    "0A 07 31 2E 32 2E 33 2E 34 "
    "12 03 3A 3A 31 "
    "18 BB 03 "
    "20 FF FF 03 "
    "28 03 "
    "30 C8 01 "
    "38 05 "
    "40 01 "
    "48 FF FF FF FF 0F "
    "50 02 "
    "58 AC 02 "
    "60 21 "
    "68 01 "
    "70 97 04 "
    "78 FE FF 03 "
    "80 01 C8 01 "
    "88 01 02 "
    "90 01 03 "
    "98 01 FF 01 "
    "A0 01 80 01";

void fillWholeFilter(AddFilter& m) {
    m.set_src_ip("1.2.3.4");
    m.set_dest_ip("::1");
    m.set_src_port(443);
    m.set_dest_port(65535);
    m.set_protocol(PROTOCOL_TCPUDP);
    m.set_filter_arg6(200);
    m.set_first_level(L6);
    m.set_second_level(L2);
    m.set_pdcp_timer(UINT32_MAX);
    m.set_ood(SDF_OOD_DISABLED);
    m.set_filter_arg11(300);
    m.set_app_type(APP_TYPE_TRAFFIC_PRIO_BE);
    m.set_filter_arg13(1);
    m.set_src_port_range(535);
    m.set_dest_port_range(65534);
    m.set_filter_arg16(200);
    m.set_filter_arg17(2);
    m.set_filter_arg18(3);
    m.set_filter_arg19(255);
    m.set_filter_arg20(128);
}

void checkWholeFilter(const AddFilter& m) {
    EXPECT_EQ(m.src_ip(), "1.2.3.4");
    EXPECT_EQ(m.dest_ip(), "::1");
    EXPECT_EQ(m.src_port(), 443);
    EXPECT_EQ(m.dest_port(), 65535);
    EXPECT_EQ(m.protocol(), PROTOCOL_TCPUDP);
    EXPECT_EQ(m.filter_arg6(), 200U);
    EXPECT_EQ(m.first_level(), L6);
    EXPECT_EQ(m.second_level(), L2);
    EXPECT_EQ(m.pdcp_timer(), UINT32_MAX);
    EXPECT_EQ(m.ood(), SDF_OOD_DISABLED);
    EXPECT_EQ(m.filter_arg11(), 300U);
    EXPECT_EQ(m.app_type(), APP_TYPE_TRAFFIC_PRIO_BE);
    EXPECT_EQ(m.filter_arg13(), 1U);
    EXPECT_EQ(m.src_port_range(), 535U);
    EXPECT_EQ(m.dest_port_range(), 65534U);
    EXPECT_EQ(m.filter_arg16(), 200U);
    EXPECT_EQ(m.filter_arg17(), 2U);
    EXPECT_TRUE(m.has_filter_arg18());
    EXPECT_EQ(m.filter_arg18(), 3U);
    EXPECT_EQ(m.filter_arg19(), 255U);
    EXPECT_EQ(m.filter_arg20(), 128U);
}

TEST(Bodies, AddFilter) {
    expectWire<AddFilter>(kWholeFilter, fillWholeFilter, checkWholeFilter);
}

TEST(Bodies, AddFilterOmitsZeros) {
    AddFilter m;
    fillWholeFilter(m);
    m.set_src_ip("");
    m.set_dest_ip("");
    m.set_src_port(0);
    m.set_dest_port(0);
    m.set_protocol(PROTOCOL_NONE);
    m.set_filter_arg6(0);
    m.set_first_level(L1);
    m.set_second_level(L1);
    m.set_pdcp_timer(0);
    m.set_ood(SDF_OOD_UNSPECIFIED);
    m.set_filter_arg11(0);
    m.set_app_type(APP_TYPE_NONE);
    m.set_filter_arg13(0);
    m.set_src_port_range(0);
    m.set_dest_port_range(0);
    m.set_filter_arg16(0);
    m.set_filter_arg17(0);
    m.set_filter_arg19(0);
    m.set_filter_arg20(0);
    EXPECT_EQ(encode(m), "90 01 03");
    m.set_filter_arg18(0);
    EXPECT_EQ(encode(m), "90 01 00");
    m.clear_filter_arg18();
    EXPECT_EQ(encode(m), "");
}

TEST(Bodies, AddFilterExtraIsPresentOrAbsent) {
    AddFilter without;
    ASSERT_TRUE(decode(without, "88 01 01"));
    EXPECT_FALSE(without.has_filter_arg18());
    AddFilter with;
    ASSERT_TRUE(decode(with, "90 01 00"));
    EXPECT_TRUE(with.has_filter_arg18());
    EXPECT_EQ(with.filter_arg18(), 0U);
}

TEST(Bodies, AddFilterSignedFieldsTakeTenBytesWhenNegative) {
    const struct {
        const char* tag;
        void (*fill)(AddFilter&);
        int (*get)(const AddFilter&);
    } fields[] = {
        {"18", [](AddFilter& m) { m.set_src_port(-1); },
         [](const AddFilter& m) { return m.src_port(); }},
        {"20", [](AddFilter& m) { m.set_dest_port(-1); },
         [](const AddFilter& m) { return m.dest_port(); }},
        {"28", [](AddFilter& m) { m.set_protocol(Protocol{-1}); },
         [](const AddFilter& m) { return int{m.protocol()}; }},
        {"38", [](AddFilter& m) { m.set_first_level(Level{-1}); },
         [](const AddFilter& m) { return int{m.first_level()}; }},
        {"40", [](AddFilter& m) { m.set_second_level(Level{-1}); },
         [](const AddFilter& m) { return int{m.second_level()}; }},
        {"50", [](AddFilter& m) { m.set_ood(SdfOod{-1}); },
         [](const AddFilter& m) { return int{m.ood()}; }},
        {"60", [](AddFilter& m) { m.set_app_type(AppType{-1}); },
         [](const AddFilter& m) { return int{m.app_type()}; }},
    };
    for (const auto& field : fields) {
        expectWire<AddFilter>(std::string(field.tag) + " " + kMinusOne, field.fill,
                              [&](const AddFilter& m) { EXPECT_EQ(field.get(m), -1); });
    }
}

TEST(Bodies, AddFilterUnsignedFieldsTakeFiveBytesAtMost) {
    const struct {
        const char* tag;
        void (*fill)(AddFilter&);
        uint32_t (*get)(const AddFilter&);
    } fields[] = {
        {"30", [](AddFilter& m) { m.set_filter_arg6(UINT32_MAX); },
         [](const AddFilter& m) { return m.filter_arg6(); }},
        {"48", [](AddFilter& m) { m.set_pdcp_timer(UINT32_MAX); },
         [](const AddFilter& m) { return m.pdcp_timer(); }},
        {"58", [](AddFilter& m) { m.set_filter_arg11(UINT32_MAX); },
         [](const AddFilter& m) { return m.filter_arg11(); }},
        {"68", [](AddFilter& m) { m.set_filter_arg13(UINT32_MAX); },
         [](const AddFilter& m) { return m.filter_arg13(); }},
        {"70", [](AddFilter& m) { m.set_src_port_range(UINT32_MAX); },
         [](const AddFilter& m) { return m.src_port_range(); }},
        {"78", [](AddFilter& m) { m.set_dest_port_range(UINT32_MAX); },
         [](const AddFilter& m) { return m.dest_port_range(); }},
        {"80 01", [](AddFilter& m) { m.set_filter_arg16(UINT32_MAX); },
         [](const AddFilter& m) { return m.filter_arg16(); }},
        {"88 01", [](AddFilter& m) { m.set_filter_arg17(UINT32_MAX); },
         [](const AddFilter& m) { return m.filter_arg17(); }},
        {"90 01", [](AddFilter& m) { m.set_filter_arg18(UINT32_MAX); },
         [](const AddFilter& m) { return m.filter_arg18(); }},
        {"98 01", [](AddFilter& m) { m.set_filter_arg19(UINT32_MAX); },
         [](const AddFilter& m) { return m.filter_arg19(); }},
        {"A0 01", [](AddFilter& m) { m.set_filter_arg20(UINT32_MAX); },
         [](const AddFilter& m) { return m.filter_arg20(); }},
    };
    for (const auto& field : fields) {
        expectWire<AddFilter>(std::string(field.tag) + " FF FF FF FF 0F", field.fill,
                              [&](const AddFilter& m) { EXPECT_EQ(field.get(m), UINT32_MAX); });
    }
}

TEST(Bodies, UpdateLatencyLevel) {
    expectWire<UpdateLatencyLevel>(
        "08 AC 02 10 03 18 04",
        [](UpdateLatencyLevel& m) {
            m.set_filter_id(300);
            m.set_first_level(L4);
            m.set_second_level(L5);
        },
        [](const UpdateLatencyLevel& m) {
            EXPECT_EQ(m.filter_id(), 300U);
            EXPECT_EQ(m.first_level(), L4);
            EXPECT_EQ(m.second_level(), L5);
        });
}

TEST(Bodies, UpdateOod) {
    expectWire<UpdateOod>(
        "08 FF FF FF FF 0F 10 01",
        [](UpdateOod& m) {
            m.set_filter_id(UINT32_MAX);
            m.set_ood(SDF_OOD_ENABLED);
        },
        [](const UpdateOod& m) {
            EXPECT_EQ(m.filter_id(), UINT32_MAX);
            EXPECT_EQ(m.ood(), SDF_OOD_ENABLED);
        });
}

TEST(Bodies, UpdatePdcpTimer) {
    expectWire<UpdatePdcpTimer>(
        "08 01 10 AC 02",
        [](UpdatePdcpTimer& m) {
            m.set_filter_id(1);
            m.set_pdcp_timer(300);
        },
        [](const UpdatePdcpTimer& m) {
            EXPECT_EQ(m.filter_id(), 1U);
            EXPECT_EQ(m.pdcp_timer(), 300U);
        });
}

TEST(Bodies, DeleteFilter) {
    expectWire<DeleteFilter>(
        "08 AC 02", [](DeleteFilter& m) { m.set_filter_id(300); },
        [](const DeleteFilter& m) { EXPECT_EQ(m.filter_id(), 300U); });
}

TEST(Bodies, UpdateDdsOod) {
    expectWire<UpdateDdsOod>(
        "08 02", [](UpdateDdsOod& m) { m.set_ood(SDF_OOD_DISABLED); },
        [](const UpdateDdsOod& m) { EXPECT_EQ(m.ood(), SDF_OOD_DISABLED); });
    ServiceData data;
    data.mutable_update_dds_ood()->set_ood(SDF_OOD_UNSPECIFIED);
    EXPECT_EQ(encode(data), "5A 00");
}

TEST(Bodies, UpdateDdsPdcpTimer) {
    expectWire<UpdateDdsPdcpTimer>(
        "08 AC 02", [](UpdateDdsPdcpTimer& m) { m.set_pdcp_timer(300); },
        [](const UpdateDdsPdcpTimer& m) { EXPECT_EQ(m.pdcp_timer(), 300U); });
}

TEST(Bodies, EnHighPerfGaming) {
    expectWire<EnHighPerfGaming>(
        "08 01", [](EnHighPerfGaming& m) { m.set_enable(true); },
        [](const EnHighPerfGaming& m) { EXPECT_TRUE(m.enable()); });
}

TEST(Bodies, PrioritizeData) {
    expectWire<PrioritizeData>(
        "08 03 10 01",
        [](PrioritizeData& m) {
            m.set_slot_id(SLOT_ID_THIRD);
            m.set_enable(true);
        },
        [](const PrioritizeData& m) {
            EXPECT_EQ(m.slot_id(), SLOT_ID_THIRD);
            EXPECT_TRUE(m.enable());
        });
}

TEST(Bodies, RegPriorityQueueReports) {
    expectWire<RegPriorityQueueReports>(
        "08 01 10 AC 02",
        [](RegPriorityQueueReports& m) {
            m.set_enable(true);
            m.set_report_value(300);
        },
        [](const RegPriorityQueueReports& m) {
            EXPECT_TRUE(m.enable());
            EXPECT_EQ(m.report_value(), 300U);
        });
}

TEST(Bodies, UpdateTargetDscp) {
    expectWire<UpdateTargetDscp>(
        "08 AC 02 10 2E",
        [](UpdateTargetDscp& m) {
            m.set_filter_id(300);
            m.set_target_dscp(46);
        },
        [](const UpdateTargetDscp& m) {
            EXPECT_EQ(m.filter_id(), 300U);
            EXPECT_EQ(m.target_dscp(), 46U);
        });
}

TEST(Bodies, StatusInd) {
    expectWire<StatusInd>(
        "08 06", [](StatusInd& m) { m.set_status(SERVICE_UP); },
        [](const StatusInd& m) { EXPECT_EQ(m.status(), SERVICE_UP); });
    StatusInd unknown;
    ASSERT_TRUE(decode(unknown, "08 0A"));
    EXPECT_EQ(static_cast<int>(unknown.status()), 10);
}

TEST(Bodies, EffectiveLevelsCb) {
    expectWire<EffectiveLevelsCb>(
        "08 05 10 02",
        [](EffectiveLevelsCb& m) {
            m.set_first_level(L6);
            m.set_second_level(L3);
        },
        [](const EffectiveLevelsCb& m) {
            EXPECT_EQ(m.first_level(), L6);
            EXPECT_EQ(m.second_level(), L3);
        });
}

TEST(Bodies, FilterData) {
    expectWire<FilterData>(
        "08 AC 02 10 17 1A 03 6F 6C 64",
        [](FilterData& m) {
            m.set_filter_id(300);
            m.set_status(FILTER_INACTIVITY_TIMEOUT);
            m.set_status_string("old");
        },
        [](const FilterData& m) {
            EXPECT_EQ(m.filter_id(), 300U);
            EXPECT_EQ(m.status(), FILTER_INACTIVITY_TIMEOUT);
            EXPECT_EQ(m.status_string(), "old");
        });
    FilterData pending;
    pending.set_filter_id(9);
    pending.set_status(FILTER_PENDING);
    EXPECT_EQ(encode(pending), "08 09");
}

TEST(Bodies, FilterStatusIndicationKeepsTheOrder) {
    expectWire<FilterStatusIndication>(
        "08 07 12 04 08 02 10 01 12 00 12 02 08 01",
        [](FilterStatusIndication& m) {
            m.set_status(7);
            FilterData* first = m.add_filters();
            first->set_filter_id(2);
            first->set_status(FILTER_ACTIVE);
            m.add_filters();
            m.add_filters()->set_filter_id(1);
        },
        [](const FilterStatusIndication& m) {
            EXPECT_EQ(m.status(), 7);
            ASSERT_EQ(m.filters_size(), 3);
            EXPECT_EQ(m.filters(0).filter_id(), 2U);
            EXPECT_EQ(m.filters(0).status(), FILTER_ACTIVE);
            EXPECT_EQ(m.filters(1).filter_id(), 0U);
            EXPECT_EQ(m.filters(2).filter_id(), 1U);
        });
}

TEST(Bodies, AddFilterCb) {
    expectWire<AddFilterCb>(
        "0A 04 08 05 10 08",
        [](AddFilterCb& m) {
            m.mutable_filter()->set_filter_id(5);
            m.mutable_filter()->set_status(ERROR_NO_PERMISSION);
        },
        [](const AddFilterCb& m) {
            EXPECT_TRUE(m.has_filter());
            EXPECT_EQ(m.filter().filter_id(), 5U);
            EXPECT_EQ(m.filter().status(), ERROR_NO_PERMISSION);
        });
}

TEST(Bodies, FilterInfo) {
    expectWire<FilterInfo>(
        "08 AC 02 10 03 1A 01 78 20 04 28 01 30 80 01 38 02",
        [](FilterInfo& m) {
            m.set_filter_id(300);
            m.set_status(FILTER_DELETED);
            m.set_status_string("x");
            m.set_first_level(L5);
            m.set_second_level(L2);
            m.set_pdcp_timer(128);
            m.set_ood(SDF_OOD_DISABLED);
        },
        [](const FilterInfo& m) {
            EXPECT_EQ(m.filter_id(), 300U);
            EXPECT_EQ(m.status(), FILTER_DELETED);
            EXPECT_EQ(m.status_string(), "x");
            EXPECT_EQ(m.first_level(), L5);
            EXPECT_EQ(m.second_level(), L2);
            EXPECT_EQ(m.pdcp_timer(), 128U);
            EXPECT_EQ(m.ood(), SDF_OOD_DISABLED);
        });
}

TEST(Bodies, GetFilterCb) {
    expectWire<GetFilterCb>(
        std::string("08 ") + kMinusOne + " 12 02 08 02 12 02 08 01",
        [](GetFilterCb& m) {
            m.set_status(-1);
            m.add_filters()->set_filter_id(2);
            m.add_filters()->set_filter_id(1);
        },
        [](const GetFilterCb& m) {
            EXPECT_EQ(m.status(), -1);
            ASSERT_EQ(m.filters_size(), 2);
            EXPECT_EQ(m.filters(0).filter_id(), 2U);
            EXPECT_EQ(m.filters(1).filter_id(), 1U);
        });
}

TEST(Bodies, GetFilterCbWithoutFilters) {
    for (const char* hex : {"", "08 03"}) {
        GetFilterCb m;
        ASSERT_TRUE(decode(m, hex));
        EXPECT_EQ(m.filters_size(), 0);
        EXPECT_EQ(encode(m), hex);
    }
}

TEST(Bodies, Entry) {
    expectWire<Entry>(
        "08 FF FF FF FF 0F 10 80 80 80 80 10 18 FF FF FF FF FF FF FF FF FF 01",
        [](Entry& m) {
            m.set_entry_key(UINT32_MAX);
            m.set_first_value(uint64_t{1} << 32);
            m.set_second_value(UINT64_MAX);
        },
        [](const Entry& m) {
            EXPECT_EQ(m.entry_key(), UINT32_MAX);
            EXPECT_EQ(m.first_value(), uint64_t{1} << 32);
            EXPECT_EQ(m.second_value(), UINT64_MAX);
        });
}

TEST(Bodies, PriorityQueueReportCb) {
    expectWire<PriorityQueueReportCb>(
        "08 01 12 02 08 02 12 04 08 01 10 03",
        [](PriorityQueueReportCb& m) {
            m.set_status(1);
            m.add_entries()->set_entry_key(2);
            Entry* second = m.add_entries();
            second->set_entry_key(1);
            second->set_first_value(3);
        },
        [](const PriorityQueueReportCb& m) {
            EXPECT_EQ(m.status(), 1);
            ASSERT_EQ(m.entries_size(), 2);
            EXPECT_EQ(m.entries(0).entry_key(), 2U);
            EXPECT_EQ(m.entries(1).entry_key(), 1U);
            EXPECT_EQ(m.entries(1).first_value(), 3U);
        });
}

TEST(Bodies, AutoFilterInfoInd) {
    // 0x46: the filter's 70 bytes.
    expectWire<AutoFilterInfoInd>(
        std::string("08 AC 02 12 46 ") + kWholeFilter + " 18 01",
        [](AutoFilterInfoInd& m) {
            m.set_filter_id(300);
            fillWholeFilter(*m.mutable_filter());
            m.set_status(FILTER_ACTIVE);
        },
        [](const AutoFilterInfoInd& m) {
            EXPECT_EQ(m.filter_id(), 300U);
            checkWholeFilter(m.filter());
            EXPECT_EQ(m.status(), FILTER_ACTIVE);
        });
}

TEST(Bodies, AutoFilterInfoIndOfAnotherStatusCarriesItsFilter) {
    AutoFilterInfoInd m;
    ASSERT_TRUE(decode(m, "08 05 12 02 18 07 18 03"));
    EXPECT_EQ(m.filter_id(), 5U);
    EXPECT_EQ(m.filter().src_port(), 7);
    EXPECT_EQ(m.status(), FILTER_DELETED);
}

std::string gLastReport;

void recordReport(google::protobuf::LogLevel, const char*, int, const std::string& text) {
    gLastReport = text;
}

// Text that is not UTF-8 is reported under the field's name: written all the same, refused when
// read.
template <typename Message>
void expectUtf8Checked(const std::string& tag, const std::string& field,
                       void (*set)(Message&, const std::string&)) {
    google::protobuf::LogHandler* const before = google::protobuf::SetLogHandler(recordReport);
    Message message;
    set(message, "\xC3\xA9");
    EXPECT_EQ(encode(message), tag + " 02 C3 A9");
    EXPECT_TRUE(decode(message, tag + " 02 C3 A9"));
    EXPECT_EQ(gLastReport, "");
    for (const std::string wrong : {"\xFF", "\xC3", "\xC0\x80", "\xED\xA0\x80"}) {
        set(message, wrong);
        const std::string length = wrong.size() == 1 ? " 01 " : wrong.size() == 2 ? " 02 " : " 03 ";
        EXPECT_EQ(encode(message), tag + length + toHex(wrong));
        EXPECT_NE(gLastReport.find("'" + field + "'"), std::string::npos) << gLastReport;
        gLastReport.clear();
        EXPECT_FALSE(decode(message, tag + length + toHex(wrong)));
        gLastReport.clear();
    }
    google::protobuf::SetLogHandler(before);
}

TEST(Bodies, TextIsUtf8) {
    expectUtf8Checked<AddFilter>("0A", "SdfProto.AddFilter.src_ip",
                                 [](AddFilter& m, const std::string& s) { m.set_src_ip(s); });
    expectUtf8Checked<AddFilter>("12", "SdfProto.AddFilter.dest_ip",
                                 [](AddFilter& m, const std::string& s) { m.set_dest_ip(s); });
    expectUtf8Checked<FilterData>(
        "1A", "SdfProto.FilterData.status_string",
        [](FilterData& m, const std::string& s) { m.set_status_string(s); });
    expectUtf8Checked<FilterInfo>(
        "1A", "SdfProto.FilterInfo.status_string",
        [](FilterInfo& m, const std::string& s) { m.set_status_string(s); });
}

template <typename... Messages>
std::vector<std::string> typeNames() {
    return {Messages().GetTypeName()...};
}

template <typename... Messages>
std::vector<std::string> emptyEncodings() {
    return {encode(Messages())...};
}

TEST(Bodies, TypeNames) {
    const auto names =
        typeNames<ServiceMsg, ServiceData, ClientMsg, ClientData, EnableService, SetLatencyLevel,
                  PrioritizeDds, RegFilterStatus, AddFilter, UpdateLatencyLevel, UpdateOod,
                  UpdatePdcpTimer, DeleteFilter, UpdateDdsOod, UpdateDdsPdcpTimer, EnHighPerfGaming,
                  PrioritizeData, RegPriorityQueueReports, UpdateTargetDscp, StatusInd,
                  EffectiveLevelsCb, FilterStatusIndication, AddFilterCb, GetFilterCb,
                  PriorityQueueReportCb, AutoFilterInfoInd, FilterData, FilterInfo, Entry>();
    const std::vector<std::string> expected = {
        "SdfProto.ServiceMsg",
        "SdfProto.ServiceData",
        "SdfProto.ClientMsg",
        "SdfProto.ClientData",
        "SdfProto.EnableService",
        "SdfProto.SetLatencyLevel",
        "SdfProto.PrioritizeDds",
        "SdfProto.RegFilterStatus",
        "SdfProto.AddFilter",
        "SdfProto.UpdateLatencyLevel",
        "SdfProto.UpdateOod",
        "SdfProto.UpdatePdcpTimer",
        "SdfProto.DeleteFilter",
        "SdfProto.UpdateDdsOod",
        "SdfProto.UpdateDdsPdcpTimer",
        "SdfProto.EnHighPerfGaming",
        "SdfProto.PrioritizeData",
        "SdfProto.RegPriorityQueueReports",
        "SdfProto.UpdateTargetDscp",
        "SdfProto.StatusInd",
        "SdfProto.EffectiveLevelsCb",
        "SdfProto.FilterStatusIndication",
        "SdfProto.AddFilterCb",
        "SdfProto.GetFilterCb",
        "SdfProto.PriorityQueueReportCb",
        "SdfProto.AutoFilterInfoInd",
        "SdfProto.FilterData",
        "SdfProto.FilterInfo",
        "SdfProto.Entry",
    };
    EXPECT_EQ(names, expected);
}

TEST(Bodies, DefaultsAreNoBytes) {
    const auto all =
        emptyEncodings<EnableService, SetLatencyLevel, PrioritizeDds, RegFilterStatus, AddFilter,
                       UpdateLatencyLevel, UpdateOod, UpdatePdcpTimer, DeleteFilter, UpdateDdsOod,
                       UpdateDdsPdcpTimer, EnHighPerfGaming, PrioritizeData,
                       RegPriorityQueueReports, UpdateTargetDscp, StatusInd, EffectiveLevelsCb,
                       FilterStatusIndication, AddFilterCb, GetFilterCb, PriorityQueueReportCb,
                       AutoFilterInfoInd, FilterData, FilterInfo, Entry>();
    EXPECT_EQ(all, std::vector<std::string>(25));
}

}  // namespace
