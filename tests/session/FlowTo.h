// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <arpa/inet.h>
#include <lum_sdf_sdk.h>
#include <netinet/in.h>

#include <cstdint>
#include <cstring>

// A flow by its destination port.
inline SdfAddFilterInfo flowTo(uint16_t port) {
    SdfAddFilterInfo info{};
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    inet_pton(AF_INET, "10.0.0.1", &address.sin_addr);
    memcpy(&info.src_addr, &address, sizeof address);
    memcpy(&info.dest_addr, &address, sizeof address);
    info.first_level = SDF_LATENCY_LVL_1;
    info.second_level = SDF_LATENCY_LVL_2;
    info.ood = SDF_OOD_ENABLED_LVL;
    info.pdcp_timer = 50;
    return info;
}
