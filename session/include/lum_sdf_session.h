// SPDX-License-Identifier: Apache-2.0
#pragma once

/// @file
/// A session with the device's data service: say once what is wanted, and it is kept with the
/// service, also when the service is lost and comes back. Stands on lum_sdf_sdk.h. Plain C11;
/// lum_sdf_session.hpp is the same for C++17.
///
/// ## How to use it
///
///   1. sdfSessionOpen().
///   2. Say what is wanted: sdfFilterAdd(), sdfSessionSetLevels(), ... No service is needed yet.
///   3. Call sdfSessionRun(); or have the program's own loop call sdfSessionDispatch() whenever
///      sdfSessionFd() is readable.
///   4. sdfSessionClose().
///
/// ## Losing the service
///
/// The session notices that the service was lost, that it refused a message, reported anything but
/// "service up", or did not answer in time. It then makes a new client, attempt by attempt, each
/// after a pause, and sends everything that is wanted again: first registrations (filter states,
/// queue reports), then gaming, priorities, the default data subscription's settings and levels,
/// then filters in the order in which they were added. Questions that were under way end with
/// #SDF_SESSION_LOST.
///
/// ## Threads and callbacks
///
/// Callbacks come from sdfSessionDispatch() and sdfSessionRun(), on the thread that calls these,
/// and from nowhere else. They may call every function here, sdfSessionDispatch() and
/// sdfSessionClose() included. A session is used by one thread at a time; only sdfSessionStop() may
/// be called from any thread, before sdfSessionClose(). A C++ exception that a callback throws
/// leaves sdfSessionDispatch() or sdfSessionRun(); the next dispatch goes on with what is left, of
/// an answer to a question too.
///
/// A child made by fork() must not use the session: it has none of its threads.
///
/// ## Return values
///
/// Functions return 0 or a negative code: of #SdfSessionError, or one of #SdfStatusV2. A function
/// that fails has changed nothing. 0 says that the request is recorded; what becomes of it is
/// reported by callbacks. sdfSessionText() has a text for each code.
///
/// ## One per process
///
/// A process has one client of the service, so also one session. The application must not call
/// createSdfClient(), destroySdfClient(), lum_sdf_enable() or lum_sdf_disable() from
/// sdfSessionOpen() on until sdfSessionClose() has returned 0, or until sdfSessionOpen() no longer
/// returns #SDF_SESSION_CLOSING. The library has to be built with LUM_SDF_GUARDED.

#include <lum_sdf_sdk.h>
#include <stdbool.h>
#include <stdint.h>

/// The version of this header; it is that of lum_sdf_sdk.h, which it was made with.
#define LUM_SDF_SESSION_VERSION LUM_SDF_SDK_VERSION

#ifdef __cplusplus
extern "C" {
#endif

// NOLINTBEGIN(modernize-use-using): this header is also C.

/// What functions return, besides 0 and the codes of #SdfStatusV2.
__extension__ enum SdfSessionError SDF_INT32_ENUM {
    SDF_SESSION_INVALID_ARG = SDF_V2_INVALID_ARG,      ///< null, or a value out of its range
    SDF_SESSION_NO_RESOURCES = SDF_V2_INTERNAL_ERROR,  ///< no memory, descriptors or threads left
    SDF_SESSION_NO_SERVICE = -100,     ///< an attempt ended and the service was not up
    SDF_SESSION_NO_ANSWER = -101,      ///< the service did not answer in time
    SDF_SESSION_LOST = -102,           ///< the service was lost before it answered
    SDF_SESSION_EXISTS = -103,         ///< the process has a session already
    SDF_SESSION_CLIENT_EXISTS = -104,  ///< the process has a client of its own already
    SDF_SESSION_CLOSING = -105,        ///< the last session's client is still being destroyed
    SDF_SESSION_CLOSED = -106,         ///< the session was closed, by the callback that is running
};

/// A step in the life of the connection. After DOWN comes CONNECTING, or UP if the service answers
/// an attempt late; after CONNECTING comes UP or DOWN; after UP comes DOWN. The first is
/// CONNECTING.
///
/// An attempt takes up to four seconds; on a device, whose look-up of the service has no limit, as
/// long as the look-up.
///
/// UP is reported when the service has answered all filters and levels and, where changes had to be
/// sent after them, has answered once more. Settings, which it never answers, have been sent
/// before.
__extension__ typedef enum SdfSessionState SDF_INT32_ENUM {
    SDF_SESSION_CONNECTING = 0,  ///< an attempt is being made
    SDF_SESSION_UP = 1,          ///< everything that is wanted has been sent and answered
    SDF_SESSION_DOWN = 2,        ///< there is no service; an attempt follows after a pause
} SdfSessionState;

/// The state of a filter. From any state to REMOVED; otherwise
///   - REQUESTED to PENDING, ACTIVE, REJECTED or EXPIRED;
///   - PENDING and ACTIVE to each other, to REJECTED, EXPIRED or LOST;
///   - REJECTED, LOST and EXPIRED to REQUESTED.
__extension__ typedef enum SdfFilterState SDF_INT32_ENUM {
    SDF_FILTER_STATE_REQUESTED = 0,  ///< wanted, not answered; perhaps there is no service yet
    SDF_FILTER_STATE_PENDING = 1,    ///< the service has it, not yet in force
    SDF_FILTER_STATE_ACTIVE = 2,     ///< in force
    SDF_FILTER_STATE_REJECTED = 3,  ///< the service does not have it, and says why; requested again
                                    ///< when the session connects anew
    SDF_FILTER_STATE_EXPIRED = 4,   ///< the service has removed it after inactivity
    SDF_FILTER_STATE_LOST = 5,      ///< the service was lost; requested again when it is back
    SDF_FILTER_STATE_REMOVED = 6,   ///< the application has removed it; the last callback
} SdfFilterState;

/// A session. Made by sdfSessionOpen(), freed by sdfSessionClose().
typedef struct SdfSession SdfSession;

/// A filter that is wanted. Made by sdfFilterAdd(), owned by its session; no longer valid once
/// sdfFilterRemove() or sdfSessionClose() has been called.
typedef struct SdfFilter SdfFilter;

/// The session has another state.
/// @param reason  DOWN: why, a code or another status that the service reported, never 0; else 0
/// @param user    as given to sdfSessionOpen()
typedef void (*SdfSessionStateCb)(SdfSession* session, SdfSessionState state, int reason,
                                  void* user);

/// A filter has another state. For REMOVED `filter` only tells which one it was.
/// @param why   REJECTED: the service's reason (SDF_FILTER_DELETED: it has deleted the filter by
///              itself); otherwise the status that goes with the state
/// @param user  as given to sdfFilterAdd()
typedef void (*SdfFilterStateCb)(SdfFilter* filter, SdfFilterState state, SdfFilterStatus why,
                                 void* user);

/// The service has answered sdfSessionSetLevels(): after it was called, and each time when the
/// session has connected anew.
/// @param error   0, or #SDF_SESSION_NO_ANSWER: then the levels are those asked for
/// @param first   first level in force
/// @param second  second level in force
/// @param user    as given to sdfSessionSetLevels()
typedef void (*SdfSessionLevelsCb)(SdfSession* session, SdfSlotID slot, int error,
                                   SdfLatencyLvl first, SdfLatencyLvl second, void* user);

/// One entry of a periodic priority-queue report.
/// @param user  as given to sdfSessionSetQueueReports(); the others as in #SdfPriorityQueueReportCb
typedef void (*SdfSessionReportCb)(SdfSession* session, unsigned int entry_key,
                                   uint64_t first_value, uint64_t second_value, void* user);

/// A filter that the service made on its own.
/// @param info  valid during the call; as in #SdfAutoFilterInfoCb
/// @param user  as given to sdfSessionSetAutoFilters()
typedef void (*SdfSessionAutoFilterCb)(SdfSession* session, unsigned int filter_id,
                                       const SdfAddFilterInfo* info, void* user);

/// The answer to sdfSessionAskFilters(): once for each filter, then once for the end.
/// @param result  1: one filter, described by the rest; 0: the end; negative: failed, and the end.
///                The rest is 0 at the end.
/// @param filter  the application's handle; null if the service's filter has none
/// @param user    as given to sdfSessionAskFilters(); the others as in #SdfGetFiltersCb
typedef void (*SdfSessionFiltersCb)(SdfSession* session, int result, SdfFilter* filter,
                                    unsigned int filter_id, SdfFilterStatus status,
                                    SdfLatencyLvl first, SdfLatencyLvl second, SdfOod ood,
                                    unsigned int pdcp_timer, void* user);

/// The answer to sdfSessionAskQueueReport(): once for each entry, then once for the end.
/// @param result  1: one entry; 0: the end; negative: failed, and the end
/// @param user    as given to sdfSessionAskQueueReport();
///                the others as in #SdfPriorityQueueReportCb
typedef void (*SdfSessionQueueReportCb)(SdfSession* session, int result, unsigned int entry_key,
                                        uint64_t first_value, uint64_t second_value, void* user);

// NOLINTEND(modernize-use-using)

/// @name Session
/// @{

/// Opens the session and begins to connect. Does not wait for the service. Does not notice a client
/// of the application whose link could not be set up.
///
/// @param cb       reports each step of the connection's life; may be null
/// @param user     handed to `cb`
/// @param session  receives the session; null if there is none
/// @return 0; #SDF_SESSION_INVALID_ARG when `session` is null; #SDF_SESSION_EXISTS;
///         #SDF_SESSION_CLIENT_EXISTS; #SDF_SESSION_CLOSING; #SDF_SESSION_NO_RESOURCES
SDF_API int sdfSessionOpen(SdfSessionStateCb cb, void* user, SdfSession** session);

/// Closes the session and frees it with all its filters. No callback comes after it. Allowed from
/// inside a callback.
///
/// The client disconnects from the service in the background, which takes as long as
/// destroySdfClient() does: as a rule no time, 3.15 seconds for each request that was still queued
/// when the service was lost, and without limit where the look-up of the service has none. Until
/// that is done no session can be opened. A process may end meanwhile.
///
/// @param session  null does nothing
/// @param wait_ms  how long to wait for that at most, in milliseconds; 0 does not wait
/// @return 0; #SDF_SESSION_CLOSING when that is not yet done: the session is closed all the same
SDF_API int sdfSessionClose(SdfSession* session, unsigned int wait_ms);

/// How long the service may take to answer when something awaits its answer, by default 10000. When
/// the service leaves filters unanswered, and no other answer to a filter comes for so long, it
/// counts as lost.
///
/// @param milliseconds  1 to 86400000
/// @return 0; #SDF_SESSION_INVALID_ARG
SDF_API int sdfSessionSetAnswerDeadline(SdfSession* session, unsigned int milliseconds);

/// How long to pause before an attempt, by default 250 and 8000. The pause begins with the first
/// value, doubles with each attempt that fails up to the longest, and is the first one again when
/// the session was up.
///
/// @param first_ms    1 to 86400000, in milliseconds
/// @param longest_ms  first_ms to 86400000
/// @return 0; #SDF_SESSION_INVALID_ARG
SDF_API int sdfSessionSetPauses(SdfSession* session, unsigned int first_ms,
                                unsigned int longest_ms);

/// The descriptor to wait for: readable when sdfSessionDispatch() has something to do. Always the
/// same one, owned by the session. For poll(), epoll, libuv, GLib, ALooper.
SDF_API int sdfSessionFd(const SdfSession* session);

/// Does what is due and calls the callbacks. Never blocks.
///
/// @return 0; #SDF_SESSION_CLOSED when a callback has closed the session
SDF_API int sdfSessionDispatch(SdfSession* session);

/// Waits and dispatches until sdfSessionStop() is called or a callback closes the session.
///
/// @return 0; #SDF_SESSION_CLOSED when a callback has closed the session
SDF_API int sdfSessionRun(SdfSession* session);

/// Ends sdfSessionRun(), the present or else the next one. From any thread and from a signal
/// handler, before sdfSessionClose().
SDF_API void sdfSessionStop(SdfSession* session);

/// The state that was reported last.
SDF_API SdfSessionState sdfSessionGetState(const SdfSession* session);

/// @}
/// @name Filters
/// Values as in sdfAddFilter() and the functions that update a filter.
/// @{

/// Requests a filter and keeps it requested.
///
/// @param info    the flow; copied
/// @param cb      reports each state of the filter; may be null
/// @param user    handed to `cb`
/// @param filter  receives the handle; may be null: then only sdfSessionClose() removes the filter
/// @return 0; #SDF_SESSION_INVALID_ARG; #SDF_SESSION_NO_RESOURCES; #SDF_SESSION_CLOSED
SDF_API int sdfFilterAdd(SdfSession* session, const SdfAddFilterInfo* info, SdfFilterStateCb cb,
                         void* user, SdfFilter** filter);

/// sdfFilterAdd() with the value that sdfAddFilterV2() has more.
SDF_API int sdfFilterAddV2(SdfSession* session, const SdfAddFilterInfo* info, unsigned char extra,
                           SdfFilterStateCb cb, void* user, SdfFilter** filter);

/// Whether the filter is requested again when it expires, as it is by default; not more often than
/// once in a second. With false it stays expired.
SDF_API int sdfFilterSetRenewed(SdfFilter* filter, bool renewed);

/// Changes the latency levels.
/// @return 0; #SDF_SESSION_INVALID_ARG; #SDF_SESSION_CLOSED
SDF_API int sdfFilterSetLevels(SdfFilter* filter, SdfLatencyLvl first, SdfLatencyLvl second);

/// Changes the out-of-order delivery.
/// @return 0; #SDF_SESSION_INVALID_ARG; #SDF_SESSION_CLOSED
SDF_API int sdfFilterSetOod(SdfFilter* filter, SdfOod ood);

/// Changes the PDCP timer.
/// @return 0; #SDF_SESSION_CLOSED
SDF_API int sdfFilterSetPdcpTimer(SdfFilter* filter, unsigned int pdcp_timer);

/// Sets the DSCP with which the filter's traffic is marked. Without it the service decides.
/// @return 0; #SDF_SESSION_CLOSED
SDF_API int sdfFilterSetDscp(SdfFilter* filter, unsigned int target_dscp);

/// The state that was reported last, REQUESTED before that.
SDF_API SdfFilterState sdfFilterGetState(const SdfFilter* filter);

/// The service's number for it at present; 0 when it has none. Another one after each loss.
SDF_API unsigned int sdfFilterGetId(const SdfFilter* filter);

/// Removes the filter. Exactly one callback follows, REMOVED, unless the session is closed before.
/// The handle is no longer valid.
///
/// @param filter  null does nothing
SDF_API void sdfFilterRemove(SdfFilter* filter);

/// @}
/// @name Settings
/// Each replaces what was requested before, and is sent again when the session connects anew. All
/// return 0; #SDF_SESSION_INVALID_ARG for values out of their range; #SDF_SESSION_CLOSED.
/// @{

/// Requests latency levels for the traffic of one SIM slot, as sdfSetLatencyLvl() does, and keeps
/// them requested.
///
/// @param cb    reports the levels in force; may be null
/// @param user  handed to `cb`
SDF_API int sdfSessionSetLevels(SdfSession* session, SdfSlotID slot, SdfLatencyLvl first,
                                SdfLatencyLvl second, bool flag, SdfSessionLevelsCb cb, void* user);

/// Removes the levels of a slot: they are not sent again. The service has no request that takes
/// levels back; it keeps the last ones until the session connects anew or is closed.
SDF_API int sdfSessionClearLevels(SdfSession* session, SdfSlotID slot);

/// Requests high-performance gaming and keeps it requested, or stops it.
SDF_API int sdfSessionSetGaming(SdfSession* session, bool enable);

/// Requests priority for the data of one SIM slot and keeps it requested, or stops it.
SDF_API int sdfSessionSetDataPriority(SdfSession* session, SdfSlotID slot, bool enable);

/// Requests priority for the default data subscription and keeps it requested, or stops it.
SDF_API int sdfSessionSetDdsPriority(SdfSession* session, bool enable);

/// Requests this out-of-order delivery for the default data subscription and keeps it requested.
/// #SDF_OOD_UNSPECIFIED_LVL leaves it to the service again.
SDF_API int sdfSessionSetDdsOod(SdfSession* session, SdfOod ood);

/// Requests this PDCP timer for the default data subscription and keeps it requested.
SDF_API int sdfSessionSetDdsPdcpTimer(SdfSession* session, unsigned int pdcp_timer);

/// Removes the PDCP timer: it is not sent again, as in sdfSessionClearLevels().
SDF_API int sdfSessionClearDdsPdcpTimer(SdfSession* session);

/// Subscribes to periodic priority-queue reports, or stops them. When the application does not
/// dispatch, the entries beyond 4096 are dropped.
///
/// @param report_value  as in sdfRegPriorityQueueReports()
/// @param cb            called for each entry; null stops the reports
/// @param user          handed to `cb`
SDF_API int sdfSessionSetQueueReports(SdfSession* session, unsigned int report_value,
                                      SdfSessionReportCb cb, void* user);

/// Subscribes to the filters that the service makes on its own, or stops the notifications. Dropped
/// as queue reports are.
///
/// @param cb    called for each; null stops the notifications
/// @param user  handed to `cb`
SDF_API int sdfSessionSetAutoFilters(SdfSession* session, SdfSessionAutoFilterCb cb, void* user);

/// @}
/// @name Questions
/// One answer each. Asked before the service is up, they wait for it. Fail with #SDF_SESSION_LOST
/// when the service is lost meanwhile and with #SDF_SESSION_NO_ANSWER at the deadline. The end of
/// an answer shows only when the service answers once more, so each costs two requests; and an
/// empty list is not distinguishable from no answer.
/// @{

/// Asks for the service's list of this client's filters.
///
/// @param deadline_ms  how long to wait for the answer, 1 to 86400000 milliseconds; 0: as long as
///                     sdfSessionSetAnswerDeadline() says
/// @param cb           not null
/// @param user         handed to `cb`
/// @return 0; #SDF_SESSION_INVALID_ARG; #SDF_SESSION_NO_RESOURCES; #SDF_SESSION_CLOSED
SDF_API int sdfSessionAskFilters(SdfSession* session, unsigned int deadline_ms,
                                 SdfSessionFiltersCb cb, void* user);

/// Asks for one priority-queue report. As sdfSessionAskFilters().
SDF_API int sdfSessionAskQueueReport(SdfSession* session, unsigned int deadline_ms,
                                     SdfSessionQueueReportCb cb, void* user);

/// @}
/// @name Texts
/// Static storage, never null, any thread.
/// @{

/// The text of what a function here returned or a callback received as reason, error or result.
SDF_API const char* sdfSessionText(int code);

/// The text of a session's state; "unknown" for other values.
SDF_API const char* sdfSessionStateText(SdfSessionState state);

/// The text of a filter's state; "unknown" for other values.
SDF_API const char* sdfFilterStateText(SdfFilterState state);

/// @}

#ifdef __cplusplus
}
#endif
