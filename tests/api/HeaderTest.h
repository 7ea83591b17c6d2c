// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "api/lum_sdf_sdk.h"

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

// Every named constant, enumeration by enumeration, compiled the same way.
#define SDF_CONSTANTS                                                                              \
    SDF_V2_SUCCESS, SDF_V2_INVALID, SDF_V2_INVALID_ARG, SDF_V2_INTERNAL_ERROR,                     \
        SDF_V2_NOT_SUPPORTED, SDF_V2_INVALID_OPERATION, SDF_V2_SERVICE_UP, SDF_V2_SERVICE_DOWN,    \
        SDF_STATUS_INVALID, SDF_STATUS_SUCCESS, SDF_STATUS_INVALID_ARG, SDF_STATUS_INTERNAL_ERROR, \
        SDF_STATUS_NOT_SUPPORTED, SDF_STATUS_INVALID_OPERATION, SDF_STATUS_SERVICE_UP,             \
        SDF_STATUS_SERVICE_DOWN, SDF_STATUS_INVALID_SLOT, SDF_SLOT_ID_UNSPECIFIED,                 \
        SDF_SLOT_ID_FIRST, SDF_SLOT_ID_SECOND, SDF_LATENCY_LVL_1, SDF_LATENCY_LVL_2,               \
        SDF_LATENCY_LVL_3, SDF_LATENCY_LVL_4, SDF_LATENCY_LVL_5, SDF_LATENCY_LVL_6,                \
        SDF_OOD_UNSPECIFIED_LVL, SDF_OOD_ENABLED_LVL, SDF_OOD_DISABLED_LVL, SDF_PROTOCOL_NONE,     \
        SDF_PROTOCOL_TCP, SDF_PROTOCOL_UDP, SDF_PROTOCOL_TCPUDP, SDF_APP_TYPE_UNSPECIFIED,         \
        SDF_APP_TYPE_TRAFFIC_PRIO_HIGHEST, SDF_APP_TYPE_TRAFFIC_PRIO_2,                            \
        SDF_APP_TYPE_TRAFFIC_PRIO_3, SDF_APP_TYPE_TRAFFIC_PRIO_4, SDF_APP_TYPE_TRAFFIC_PRIO_5,     \
        SDF_APP_TYPE_TRAFFIC_PRIO_6, SDF_APP_TYPE_TRAFFIC_PRIO_7, SDF_APP_TYPE_TRAFFIC_PRIO_8,     \
        SDF_APP_TYPE_TRAFFIC_PRIO_9, SDF_APP_TYPE_TRAFFIC_PRIO_10, SDF_APP_TYPE_TRAFFIC_PRIO_11,   \
        SDF_APP_TYPE_TRAFFIC_PRIO_12, SDF_APP_TYPE_TRAFFIC_PRIO_13, SDF_APP_TYPE_TRAFFIC_PRIO_14,  \
        SDF_APP_TYPE_TRAFFIC_PRIO_15, SDF_APP_TYPE_TRAFFIC_PRIO_16, SDF_APP_TYPE_TRAFFIC_PRIO_17,  \
        SDF_APP_TYPE_TRAFFIC_PRIO_18, SDF_APP_TYPE_TRAFFIC_PRIO_19, SDF_APP_TYPE_TRAFFIC_PRIO_20,  \
        SDF_APP_TYPE_TRAFFIC_PRIO_21, SDF_APP_TYPE_TRAFFIC_PRIO_22, SDF_APP_TYPE_TRAFFIC_PRIO_23,  \
        SDF_APP_TYPE_TRAFFIC_PRIO_24, SDF_APP_TYPE_TRAFFIC_PRIO_25, SDF_APP_TYPE_TRAFFIC_PRIO_26,  \
        SDF_APP_TYPE_TRAFFIC_PRIO_27, SDF_APP_TYPE_TRAFFIC_PRIO_28, SDF_APP_TYPE_TRAFFIC_PRIO_29,  \
        SDF_APP_TYPE_TRAFFIC_PRIO_30, SDF_APP_TYPE_TRAFFIC_PRIO_31, SDF_APP_TYPE_TRAFFIC_PRIO_BE,  \
        SDF_FILTER_PENDING, SDF_FILTER_ACTIVE, SDF_FILTER_INACTIVITY_TIMEOUT, SDF_FILTER_DELETED,  \
        SDF_FILTER_ERROR_DUPLICATE, SDF_FILTER_ERROR_LIMIT_REACHED, SDF_FILTER_ERROR_INVALID_ARGS, \
        SDF_FILTER_ERROR_INTERNAL, SDF_FILTER_ERROR_NO_PERMISSION
#define SDF_CONSTANTS_SIZE 75

#ifdef __cplusplus
extern "C" {
#endif

extern const size_t kLayoutInC[SDF_LAYOUT_SIZE];

extern const int kConstantsInC[SDF_CONSTANTS_SIZE];

// Calls one of the exported functions from C, with valid arguments, in the order of the header:
// 0 createSdfClient, 1 destroySdfClient, 2 lum_sdf_enable, 3 lum_sdf_disable, 4 sdfSetLatencyLvl to
// 22 sdfDeleteAllFilter. Those that take a filter's id are given `filter`.
#define SDF_FUNCTIONS_SIZE 23
long long callFromC(int which, unsigned int filter);

// Calls one of the text functions from C: 0 sdfStatusV2Text to 7 sdfFilterStatusText.
const char* textFromC(int which, int value);

#ifdef __cplusplus
}
#endif
