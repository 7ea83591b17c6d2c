// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <stddef.h>

// Where the members of SdfAddFilterInfo lie, in order, and its size: the same list compiled as C
// and as C++.
#define SDF_LAYOUT                                                                             \
    offsetof(SdfAddFilterInfo, src_addr), offsetof(SdfAddFilterInfo, dest_addr),               \
        offsetof(SdfAddFilterInfo, first_level), offsetof(SdfAddFilterInfo, second_level),     \
        offsetof(SdfAddFilterInfo, ood), offsetof(SdfAddFilterInfo, app_type),                 \
        offsetof(SdfAddFilterInfo, protocol), offsetof(SdfAddFilterInfo, filter_arg6),         \
        offsetof(SdfAddFilterInfo, pdcp_timer), offsetof(SdfAddFilterInfo, filter_arg11),      \
        offsetof(SdfAddFilterInfo, filter_arg13), offsetof(SdfAddFilterInfo, src_port_range),  \
        offsetof(SdfAddFilterInfo, dest_port_range), offsetof(SdfAddFilterInfo, filter_arg19), \
        offsetof(SdfAddFilterInfo, filter_arg20), offsetof(SdfAddFilterInfo, filter_arg16),    \
        offsetof(SdfAddFilterInfo, filter_arg17), sizeof(SdfAddFilterInfo)
#define SDF_LAYOUT_SIZE 18

#ifdef __cplusplus
extern "C" {
#endif

extern const size_t kLayoutInC[SDF_LAYOUT_SIZE];

// Calls, from C: 0 createSdfClient, 1 destroySdfClient, 2 lum_sdf_enable, 3 lum_sdf_disable,
// 4 sdfSetLatencyLvl, each with valid arguments.
long long callFromC(int which);

#ifdef __cplusplus
}
#endif
