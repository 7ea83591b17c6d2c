// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <lum_sdf_sdk.h>

// Gives every member but the addresses a value of its own, as far as its range allows. In C, too.
static inline void fillFlow(SdfAddFilterInfo* info) {
    info->first_level = SDF_LATENCY_LVL_2;
    info->second_level = SDF_LATENCY_LVL_6;
    info->ood = SDF_OOD_DISABLED_LVL;
    info->app_type = SDF_APP_TYPE_TRAFFIC_PRIO_BE;
    info->protocol = SDF_PROTOCOL_UDP;
    info->filter_arg6 = 201;
    info->pdcp_timer = 300;
    info->filter_arg11 = UINT32_MAX;
    info->filter_arg13 = 13;
    info->src_port_range = 100;
    info->dest_port_range = 255;
    info->filter_arg19 = 19;
    info->filter_arg20 = 20;
    info->filter_arg16 = 200;
    info->filter_arg17 = 17;
}
