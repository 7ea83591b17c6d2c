// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <lum_sdf_session.h>
#include <stddef.h>

// The members of SdfAddFilterInfo, in order.
#define ABI_MEMBERS(X) \
    X(src_addr)        \
    X(dest_addr)       \
    X(first_level)     \
    X(second_level)    \
    X(ood)             \
    X(app_type)        \
    X(protocol)        \
    X(filter_arg6)     \
    X(pdcp_timer)      \
    X(filter_arg11)    \
    X(filter_arg13)    \
    X(src_port_range)  \
    X(dest_port_range) \
    X(filter_arg19)    \
    X(filter_arg20)    \
    X(filter_arg16)    \
    X(filter_arg17)

// The types that the interfaces pass.
#define ABI_TYPES(X)            \
    X(status_e)                 \
    X(enum SdfStatusV2)         \
    X(SdfSlotID)                \
    X(SdfLatencyLvl)            \
    X(SdfOod)                   \
    X(SdfProtocol)              \
    X(SdfFilterAppType)         \
    X(SdfFilterStatus)          \
    X(SdfStatusV2Cb)            \
    X(SdfLegacyStatusCb)        \
    X(SdfEffectiveLevelsCb)     \
    X(SdfFilterStatusCb)        \
    X(SdfGetFiltersCb)          \
    X(SdfPriorityQueueReportCb) \
    X(SdfAutoFilterInfoCb)      \
    X(SdfAddFilterInfo)         \
    X(enum SdfSessionError)     \
    X(SdfSessionState)          \
    X(SdfFilterState)           \
    X(SdfSessionStateCb)        \
    X(SdfFilterStateCb)         \
    X(SdfSessionLevelsCb)       \
    X(SdfSessionReportCb)       \
    X(SdfSessionAutoFilterCb)   \
    X(SdfSessionFiltersCb)      \
    X(SdfSessionQueueReportCb)  \
    X(bool)                     \
    X(int)                      \
    X(long long)                \
    X(uint64_t)                 \
    X(struct sockaddr_storage)

struct AbiMember {
    const char* name;
    size_t offset;
    size_t size;
};

struct AbiType {
    const char* name;
    size_t size;
    size_t alignment;
};

#define ABI_MEMBER(MEMBER) \
    {#MEMBER, offsetof(SdfAddFilterInfo, MEMBER), sizeof(((const SdfAddFilterInfo*)NULL)->MEMBER)},
#define ABI_TYPE(TYPE) {#TYPE, sizeof(TYPE), alignof(TYPE)},
#define ABI_MEMBER_COUNT 17
#define ABI_TYPE_COUNT 31

#ifdef __cplusplus
extern "C" {
#endif

// As the C compiler has it.
extern const struct AbiMember kMembersInC[ABI_MEMBER_COUNT];
extern const struct AbiType kTypesInC[ABI_TYPE_COUNT];

#ifdef __cplusplus
}
#endif
