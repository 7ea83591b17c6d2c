// SPDX-License-Identifier: Apache-2.0
#include "tools/emulator/FilterCheck.h"

#include <arpa/inet.h>
#include <sys/socket.h>

#include <cstdint>

namespace {

constexpr int64_t kLastPort = 65535;

// AF_INET, AF_INET6, or AF_UNSPEC for what is no numeric address.
int familyOf(const std::string& address) {
    in6_addr bytes{};
    for (const int family : {AF_INET, AF_INET6}) {
        // With a zero byte inside, only what goes before it would be looked at.
        if (address.find('\0') != std::string::npos) break;
        if (inet_pton(family, address.c_str(), &bytes) == 1) return family;
    }
    return AF_UNSPEC;
}

std::string wrongAddresses(const SdfProto::AddFilter& filter) {
    const int source = familyOf(filter.src_ip());
    const int destination = familyOf(filter.dest_ip());
    if (source == AF_UNSPEC) return "src_ip is no numeric address";
    if (destination == AF_UNSPEC) return "dest_ip is no numeric address";
    if (source != destination) return "src_ip and dest_ip are not of one family";
    return "";
}

std::string wrongPort(const std::string& name, int64_t port, int64_t range) {
    if (port < 0 || port > kLastPort) return name + "_port is not 0 to 65535";
    if (port + range > kLastPort) return name + "_port plus " + name + "_port_range exceeds 65535";
    return "";
}

std::string wrongPorts(const SdfProto::AddFilter& filter) {
    std::string source = wrongPort("src", filter.src_port(), filter.src_port_range());
    if (!source.empty()) return source;
    return wrongPort("dest", filter.dest_port(), filter.dest_port_range());
}

std::string unknownValue(const SdfProto::AddFilter& filter) {
    if (!SdfProto::Protocol_IsValid(filter.protocol())) return "protocol is unknown";
    if (!SdfProto::Level_IsValid(filter.first_level())) return "first_level is unknown";
    if (!SdfProto::Level_IsValid(filter.second_level())) return "second_level is unknown";
    if (!SdfProto::SdfOod_IsValid(filter.ood())) return "ood is unknown";
    if (!SdfProto::AppType_IsValid(filter.app_type())) return "app_type is unknown";
    return "";
}

}  // namespace

std::string whatIsWrong(const SdfProto::AddFilter& description) {
    for (auto* const check : {wrongAddresses, wrongPorts, unknownValue}) {
        std::string wrong = check(description);
        if (!wrong.empty()) return wrong;
    }
    return "";
}
