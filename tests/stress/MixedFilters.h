// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <arpa/inet.h>
#include <lum_sdf_sdk.h>
#include <netinet/in.h>

#include <cstdint>
#include <cstring>
#include <string>

// Filters for requests by the thousand: all that there is to know of one follows from its number.

// How many are kept alive: as many as the emulator allows a client.
constexpr size_t kMostFilters = 64;

inline sockaddr_storage numberedAddress(uint32_t host, uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(0x0A000000U | host);  // 10.0.0.0/8
    sockaddr_storage storage{};
    memcpy(&storage, &address, sizeof address);
    return storage;
}

inline SdfLatencyLvl numberedLevel(uint32_t number) {
    return static_cast<SdfLatencyLvl>(SDF_LATENCY_LVL_1 + number % SDF_LATENCY_LVL_6);
}

inline SdfOod numberedOod(uint32_t number) {
    return static_cast<SdfOod>(SDF_OOD_UNSPECIFIED_LVL + number % SDF_OOD_DISABLED_LVL);
}

// Best effort, so that each report has one entry.
inline SdfAddFilterInfo numberedFilter(uint32_t number) {
    SdfAddFilterInfo info{};
    info.src_addr = numberedAddress(number & 0xFFFFFFU, 1000);
    info.dest_addr = numberedAddress(1, 443);
    info.first_level = numberedLevel(number);
    info.second_level = numberedLevel(number / 6);
    info.ood = numberedOod(number);
    info.app_type = SDF_APP_TYPE_TRAFFIC_PRIO_BE;
    info.protocol = SDF_PROTOCOL_UDP;
    info.pdcp_timer = number;
    return info;
}

// Adds the filter, odd ones with an extra value.
inline long long addNumbered(uint32_t number, SdfFilterStatusCb cb) {
    if (number % 2 == 0) return sdfAddFilter(numberedFilter(number), cb);
    return sdfAddFilterV2(numberedFilter(number), 7, cb);
}

// One of two families: nothing for the library to object to, but for the service.
inline SdfAddFilterInfo twoFamilies() {
    SdfAddFilterInfo info = numberedFilter(0);
    sockaddr_in6 address{};
    address.sin6_family = AF_INET6;
    address.sin6_addr = in6addr_loopback;
    memcpy(&info.dest_addr, &address, sizeof address);
    return info;
}

// What onAutoFilter() records of the filter that the emulator has while gaming is on.
inline std::string autoFilterText(unsigned int id, bool active) {
    return "auto filter " + std::to_string(id) +
           (active ? ": 192.0.2.10#50000 > 198.51.100.20#27015 0 0 0 1 2"
                   : ": none#0 > none#0 0 0 0 0 0");
}
