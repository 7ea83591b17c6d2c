// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <lum_sdf_sdk.h>

#include <array>

// The callbacks that a client is made and asked with; they put what they get into the inbox. A
// client and the next one have different lanes: a callback of the library may still be running when
// its client has been destroyed, and what it brings is not of the next client.
struct Lane {
    static constexpr int kLanes = 4;
    static const Lane& at(int index);

    SdfStatusV2Cb status;
    SdfFilterStatusCb added;
    SdfFilterStatusCb filter;
    SdfEffectiveLevelsCb levels;
    SdfPriorityQueueReportCb report;
    SdfAutoFilterInfoCb autoFilter;
    std::array<SdfGetFiltersCb, 2> list;  // by turn
    std::array<SdfPriorityQueueReportCb, 2> oneReport;
};
