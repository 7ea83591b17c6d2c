// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <string>

#include "tools/emulator/FilterCheck.h"

namespace {

using SdfProto::AddFilter;

TEST(FilterCheckTest, SaysWhatIsWrong) {
    const struct {
        const char* name;
        void (*change)(AddFilter& filter);
        const char* wrong;
    } rows[] = {
        {"Good", [](AddFilter&) {}, ""},
        {"Family6", [](AddFilter& f) { f.set_src_ip("::1"), f.set_dest_ip("2001:db8::1"); }, ""},
        {"NoSource", [](AddFilter& f) { f.clear_src_ip(); }, "src_ip is no numeric address"},
        {"NamedSource", [](AddFilter& f) { f.set_src_ip("localhost"); },
         "src_ip is no numeric address"},
        {"SourceWithMore", [](AddFilter& f) { f.set_src_ip(std::string("10.0.0.1\0x", 10)); },
         "src_ip is no numeric address"},
        {"NoDestination", [](AddFilter& f) { f.clear_dest_ip(); }, "dest_ip is no numeric address"},
        {"TwoFamilies", [](AddFilter& f) { f.set_dest_ip("::1"); },
         "src_ip and dest_ip are not of one family"},
        {"LastSourcePort", [](AddFilter& f) { f.set_src_port(65535); }, ""},
        {"SourcePortTooHigh", [](AddFilter& f) { f.set_src_port(65536); },
         "src_port is not 0 to 65535"},
        {"SourcePortNegative", [](AddFilter& f) { f.set_src_port(-1); },
         "src_port is not 0 to 65535"},
        {"LastSourceRange", [](AddFilter& f) { f.set_src_port(65000), f.set_src_port_range(535); },
         ""},
        {"SourceRangeTooLong",
         [](AddFilter& f) { f.set_src_port(65000), f.set_src_port_range(536); },
         "src_port plus src_port_range exceeds 65535"},
        {"SourceRangeThatWouldWrap", [](AddFilter& f) { f.set_src_port_range(4294967295U); },
         "src_port plus src_port_range exceeds 65535"},
        {"DestinationPortTooHigh", [](AddFilter& f) { f.set_dest_port(65536); },
         "dest_port is not 0 to 65535"},
        {"LastDestinationRange",
         [](AddFilter& f) { f.set_dest_port(1), f.set_dest_port_range(65534); }, ""},
        {"DestinationRangeTooLong",
         [](AddFilter& f) { f.set_dest_port(1), f.set_dest_port_range(65535); },
         "dest_port plus dest_port_range exceeds 65535"},
        {"LastValues",
         [](AddFilter& f) {
             f.set_protocol(SdfProto::PROTOCOL_TCPUDP), f.set_first_level(SdfProto::L6),
                 f.set_second_level(SdfProto::L6), f.set_ood(SdfProto::SDF_OOD_DISABLED),
                 f.set_app_type(SdfProto::APP_TYPE_TRAFFIC_PRIO_BE);
         },
         ""},
        {"Protocol", [](AddFilter& f) { f.set_protocol(static_cast<SdfProto::Protocol>(4)); },
         "protocol is unknown"},
        {"FirstLevel", [](AddFilter& f) { f.set_first_level(static_cast<SdfProto::Level>(6)); },
         "first_level is unknown"},
        {"SecondLevel", [](AddFilter& f) { f.set_second_level(static_cast<SdfProto::Level>(-1)); },
         "second_level is unknown"},
        {"Ood", [](AddFilter& f) { f.set_ood(static_cast<SdfProto::SdfOod>(3)); },
         "ood is unknown"},
        {"AppType", [](AddFilter& f) { f.set_app_type(static_cast<SdfProto::AppType>(34)); },
         "app_type is unknown"},
        {"TheFirstWrongThing",
         [](AddFilter& f) {
             f.set_dest_port(70000), f.set_app_type(static_cast<SdfProto::AppType>(34));
         },
         "dest_port is not 0 to 65535"},
    };
    for (const auto& row : rows) {
        AddFilter filter;
        filter.set_src_ip("10.0.0.1");
        filter.set_dest_ip("10.0.0.2");
        row.change(filter);
        EXPECT_EQ(whatIsWrong(filter), row.wrong) << row.name;
    }
}

}  // namespace
