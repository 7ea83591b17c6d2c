// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <lum_sdf_sdk.h>
#include <stdbool.h>
#include <stddef.h>

#ifdef __cplusplus
namespace app {
extern "C" {
#endif

// Callbacks that the requests below pass, see ClientFixture.h.
extern const SdfEffectiveLevelsCb onLevels;       // "levels(7,1,6)"
extern const SdfFilterStatusCb onFilterStatus;    // "filterStatus(7,1)"
extern const SdfFilterStatusCb onAdded;           // "added(7,1)"
extern const SdfGetFiltersCb onFilter;            // "filter(7,1,6,3,2,300)"
extern const SdfPriorityQueueReportCb onReports;  // "reports(1,2,3)"
extern const SdfPriorityQueueReportCb onReport;   // "report(1,2,3)"
extern const SdfAutoFilterInfoCb onAuto;          // "auto(7)"

#ifdef __cplusplus
}
}  // namespace app

extern "C" {
#endif

// The filter that the requests below name; on the wire 300 is AC 02.
static const unsigned int kFilterId = 300;

// From 1.2.3.4 to 5.6.7.8, everything else at its lowest valid value.
SdfAddFilterInfo makePlainFlow(void);

// One call of a request function from C, with arguments that it accepts when kFilterId is a
// confirmed filter.
struct Request {
    const char* name;
    long long (*call)(void);
    // The event it posts, as FakeTransport::takeText() shows it, when the id it draws, if it draws
    // one, is 7. Empty: it posts none.
    const char* event;
    bool drawsId;
    // The slots that its callback replaces, as ClientState names them. Empty: none.
    const char* slot;
};

// One for each request function.
extern const struct Request kRequests[];
extern const size_t kRequestCount;

#ifdef __cplusplus
}
#endif
