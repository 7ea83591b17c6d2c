// SPDX-License-Identifier: Apache-2.0
#include "session/Values.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <cstdint>
#include <cstring>

namespace {

bool inRange(int32_t value, int32_t first, int32_t last) {
    return value >= first && value <= last;
}

// Without a family an address counts as the one of which it has bytes, and as none without any.
bool isAddress(const sockaddr_storage& address) {
    if (address.ss_family == AF_INET || address.ss_family == AF_INET6) return true;
    if (address.ss_family != AF_UNSPEC) return false;
    sockaddr_in v4;
    sockaddr_in6 v6;
    memcpy(&v4, &address, sizeof v4);
    memcpy(&v6, &address, sizeof v6);
    const in6_addr none{};
    return v4.sin_addr.s_addr != 0 || memcmp(&v6.sin6_addr, &none, sizeof none) != 0;
}

bool isRange(const sockaddr_storage& address, uint16_t range) {
    if (address.ss_family == AF_UNSPEC) return true;
    sockaddr_in v4;  // the port lies at the same place in both
    memcpy(&v4, &address, sizeof v4);
    return ntohs(v4.sin_port) + range <= UINT16_MAX;
}

}  // namespace

bool isValid(SdfSlotID slot) {
    return inRange(slot, SDF_SLOT_ID_UNSPECIFIED, SDF_SLOT_ID_SECOND);
}

bool isValid(SdfLatencyLvl level) {
    return inRange(level, SDF_LATENCY_LVL_1, SDF_LATENCY_LVL_6);
}

bool isValid(SdfOod ood) {
    return inRange(ood, SDF_OOD_UNSPECIFIED_LVL, SDF_OOD_DISABLED_LVL);
}

bool isValid(const SdfAddFilterInfo& info) {
    return isAddress(info.src_addr) && isAddress(info.dest_addr) && isValid(info.first_level) &&
           isValid(info.second_level) && isValid(info.ood) &&
           inRange(info.app_type, SDF_APP_TYPE_UNSPECIFIED, SDF_APP_TYPE_TRAFFIC_PRIO_BE) &&
           inRange(info.protocol, SDF_PROTOCOL_NONE, SDF_PROTOCOL_TCPUDP) &&
           isRange(info.src_addr, info.src_port_range) &&
           isRange(info.dest_addr, info.dest_port_range);
}

bool isDuration(unsigned int milliseconds) {
    return milliseconds >= 1 && milliseconds <= 86400000;
}
