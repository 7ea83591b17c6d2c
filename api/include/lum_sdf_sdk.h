// SPDX-License-Identifier: Apache-2.0
#pragma once

/// @file
/// Client interface of the device's data service: asks it to treat the traffic of an application in
/// particular ways (service data flows). Plain C11, also usable from C++17.
///
/// ## How to use it
///
///   1. createSdfClient() with a status callback.
///   2. Wait until that callback reports #SDF_V2_SERVICE_UP (-7).
///   3. Issue requests. Their results come through callbacks.
///   4. destroySdfClient().
///
/// There is one client per process. Nothing here waits for the service's answer: a function returns
/// only what the library knows at once, everything else comes through callbacks.
///
/// ## Losing the service
///
/// When the status callback reports anything but #SDF_V2_SERVICE_UP, the service counts as down:
/// every request returns #SDF_V2_SERVICE_DOWN (-8) and sends nothing, so that no request can bring
/// the service back. Call createSdfClient() (or lum_sdf_enable()) again until #SDF_V2_SERVICE_UP
/// comes; only they make the library connect again. One call makes one attempt, in the background,
/// of up to 3.15 seconds (on a platform whose service lookup waits for the service, for as long as
/// that takes); an attempt that finds no service is not reported. Calls that come faster than every
/// four seconds queue up. A call made while the loss is still being reported may yet go to the lost
/// service, and be answered with #SDF_V2_INTERNAL_ERROR (-3): call again.
///
/// The service knows nothing of a client that comes back: register again and add the filters again,
/// after an sdfDeleteAllFilter(), since the library still knows those of before.
///
/// ## Return values
///
/// Requests and createSdfClient()/destroySdfClient() return a V2 code (enum #SdfStatusV2) when it
/// is negative, 0 or a request's id when they succeed. Arguments are checked in this order: is
/// there a client, and could the library set up its link (-5); are the arguments valid (-2); is the
/// service up (-8). Only sdfAddFilter() and sdfAddFilterV2() ask for the service before they look
/// at their arguments. When memory runs out a function returns -3: nothing has been sent, the
/// request is not on record, and the same call may be made again. A callback that was to replace
/// another may have done so. No function throws.
///
/// What the service makes of a request is not part of the return value, and for most requests it
/// does not report it: 0 says that the request is on its way.
///
/// ## Threads and callbacks
///
/// Callbacks are plain function pointers that belong to the application. They must not throw. They
/// are called
///   - on a thread of the binder thread pool: what the service sends, and the loss of the service;
///   - on the library's own thread: a message that the service refused to take;
///   - on the caller's thread, before the function returns, where a function says so.
///
/// A callback may call every function of this interface, destroySdfClient() and createSdfClient()
/// included. While it runs, nothing more is delivered on its thread: return soon. When one thread
/// destroys the client, a callback that another thread was about to call may still be running, or
/// just be starting, when destroySdfClient() returns: callbacks must stay callable past it. A
/// callback that destroys the client gets nothing more of the message that it was called for.
///
/// createSdfClient(), destroySdfClient() and the older pair may be called from any thread at any
/// time. So may the requests, unless the library was built without LUM_SDF_GUARDED, as for devices:
/// it does not lock the record that it keeps of requests, so issue them from inside the callbacks
/// that bring an answer, a report or #SDF_V2_SERVICE_UP, or otherwise make sure that none is being
/// delivered meanwhile.

#include <stdbool.h>
#include <stdint.h>
#include <sys/socket.h>

/// The version of this header, as text; the library that comes with it has the same.
#define LUM_SDF_SDK_VERSION "1.0.0"
/// The first number of it: with another one, programs have to be changed.
#define LUM_SDF_SDK_VERSION_MAJOR 1
/// The second number: counts what was added to the interface.
#define LUM_SDF_SDK_VERSION_MINOR 0
/// The third number: counts what was put right.
#define LUM_SDF_SDK_VERSION_PATCH 0

// Enumerations are 32-bit and signed, so that every such value may be passed and compared, also
// values with no name below.
#if defined(__cplusplus) || (defined(__STDC_VERSION__) && __STDC_VERSION__ >= 202311L)
#define SDF_INT32_ENUM : int32_t
#elif defined(__clang__) && defined(__has_extension)
#if __has_extension(cxx_fixed_enum)
#define SDF_INT32_ENUM : int32_t
#endif
#endif
#ifndef SDF_INT32_ENUM
// This C compiler has no syntax for the type. It takes one of 32 bits, but mostly an unsigned one
// where no value below is negative: convert to int32_t what you compare with a negative number.
#define SDF_INT32_ENUM
#endif

/// What the library exports.
#define SDF_API __attribute__((visibility("default")))

#ifdef __cplusplus
extern "C" {
#endif

// NOLINTBEGIN(modernize-use-using): this header is also C.

/// V2 codes: what functions return (as long long) and what the status callback of createSdfClient()
/// receives (as int).
__extension__ enum SdfStatusV2 SDF_INT32_ENUM {
    SDF_V2_SUCCESS = 0,             ///< success
    SDF_V2_INVALID = -1,            ///< unknown status
    SDF_V2_INVALID_ARG = -2,        ///< null callback, or a value out of its range
    SDF_V2_INTERNAL_ERROR = -3,     ///< out of memory, no link, or a message that could not be sent
    SDF_V2_NOT_SUPPORTED = -4,      ///< not supported by the service
    SDF_V2_INVALID_OPERATION = -5,  ///< there is no client, or its link could not be set up
    SDF_V2_SERVICE_UP = -7,         ///< requests are accepted from now on
    SDF_V2_SERVICE_DOWN = -8,       ///< requests are refused until the service is up
};

#ifndef __cplusplus
_Static_assert(sizeof(enum SdfStatusV2) == sizeof(int32_t), "compile without -fshort-enums");
#endif

/// The older status codes: what the status callback of lum_sdf_enable() receives.
__extension__ typedef enum status_e SDF_INT32_ENUM {
    SDF_STATUS_INVALID = -1,           ///< unknown status
    SDF_STATUS_SUCCESS = 0,            ///< success
    SDF_STATUS_INVALID_ARG = 1,        ///< invalid argument
    SDF_STATUS_INTERNAL_ERROR = 2,     ///< no link, or a message that could not be sent
    SDF_STATUS_NOT_SUPPORTED = 3,      ///< not supported by the service
    SDF_STATUS_INVALID_OPERATION = 4,  ///< invalid operation
    SDF_STATUS_SERVICE_UP = 5,         ///< requests are accepted from now on
    SDF_STATUS_SERVICE_DOWN = 6,       ///< requests are refused until the service is up
    SDF_STATUS_INVALID_SLOT = 7,       ///< reported as SDF_V2_INVALID in the V2 codes
} status_e;

/// A SIM slot. Valid: -1 to 1.
__extension__ typedef enum SdfSlotID SDF_INT32_ENUM {
    SDF_SLOT_ID_UNSPECIFIED = -1,  ///< no particular slot
    SDF_SLOT_ID_FIRST = 0,         ///< first slot
    SDF_SLOT_ID_SECOND = 1,        ///< second slot
} SdfSlotID;

/// A latency level. Valid: 1 to 6. Which latency a level stands for is the service's business.
__extension__ typedef enum SdfLatencyLvl SDF_INT32_ENUM {
    SDF_LATENCY_LVL_1 = 1,  ///< level 1
    SDF_LATENCY_LVL_2 = 2,  ///< level 2
    SDF_LATENCY_LVL_3 = 3,  ///< level 3
    SDF_LATENCY_LVL_4 = 4,  ///< level 4
    SDF_LATENCY_LVL_5 = 5,  ///< level 5
    SDF_LATENCY_LVL_6 = 6,  ///< level 6
} SdfLatencyLvl;

/// Out-of-order delivery. Valid: 1 to 3; there is no 0.
__extension__ typedef enum SdfOod SDF_INT32_ENUM {
    SDF_OOD_UNSPECIFIED_LVL = 1,  ///< left to the service
    SDF_OOD_ENABLED_LVL = 2,      ///< delivered in whatever order
    SDF_OOD_DISABLED_LVL = 3,     ///< delivered in order
} SdfOod;

/// The transport protocol of a flow. Valid: 0 to 3.
__extension__ typedef enum SdfProtocol SDF_INT32_ENUM {
    SDF_PROTOCOL_NONE = 0,    ///< not known
    SDF_PROTOCOL_TCP = 1,     ///< TCP
    SDF_PROTOCOL_UDP = 2,     ///< UDP
    SDF_PROTOCOL_TCPUDP = 3,  ///< both
} SdfProtocol;

/// The traffic priority class of a filter. Valid: 0 to 32; priority n has the value n.
__extension__ typedef enum SdfFilterAppType SDF_INT32_ENUM {
    SDF_APP_TYPE_UNSPECIFIED = 0,           ///< not known
    SDF_APP_TYPE_TRAFFIC_PRIO_HIGHEST = 1,  ///< priority 1
    SDF_APP_TYPE_TRAFFIC_PRIO_2 = 2,        ///< priority 2
    SDF_APP_TYPE_TRAFFIC_PRIO_3 = 3,        ///< priority 3
    SDF_APP_TYPE_TRAFFIC_PRIO_4 = 4,        ///< priority 4
    SDF_APP_TYPE_TRAFFIC_PRIO_5 = 5,        ///< priority 5
    SDF_APP_TYPE_TRAFFIC_PRIO_6 = 6,        ///< priority 6
    SDF_APP_TYPE_TRAFFIC_PRIO_7 = 7,        ///< priority 7
    SDF_APP_TYPE_TRAFFIC_PRIO_8 = 8,        ///< priority 8
    SDF_APP_TYPE_TRAFFIC_PRIO_9 = 9,        ///< priority 9
    SDF_APP_TYPE_TRAFFIC_PRIO_10 = 10,      ///< priority 10
    SDF_APP_TYPE_TRAFFIC_PRIO_11 = 11,      ///< priority 11
    SDF_APP_TYPE_TRAFFIC_PRIO_12 = 12,      ///< priority 12
    SDF_APP_TYPE_TRAFFIC_PRIO_13 = 13,      ///< priority 13
    SDF_APP_TYPE_TRAFFIC_PRIO_14 = 14,      ///< priority 14
    SDF_APP_TYPE_TRAFFIC_PRIO_15 = 15,      ///< priority 15
    SDF_APP_TYPE_TRAFFIC_PRIO_16 = 16,      ///< priority 16
    SDF_APP_TYPE_TRAFFIC_PRIO_17 = 17,      ///< priority 17
    SDF_APP_TYPE_TRAFFIC_PRIO_18 = 18,      ///< priority 18
    SDF_APP_TYPE_TRAFFIC_PRIO_19 = 19,      ///< priority 19
    SDF_APP_TYPE_TRAFFIC_PRIO_20 = 20,      ///< priority 20
    SDF_APP_TYPE_TRAFFIC_PRIO_21 = 21,      ///< priority 21
    SDF_APP_TYPE_TRAFFIC_PRIO_22 = 22,      ///< priority 22
    SDF_APP_TYPE_TRAFFIC_PRIO_23 = 23,      ///< priority 23
    SDF_APP_TYPE_TRAFFIC_PRIO_24 = 24,      ///< priority 24
    SDF_APP_TYPE_TRAFFIC_PRIO_25 = 25,      ///< priority 25
    SDF_APP_TYPE_TRAFFIC_PRIO_26 = 26,      ///< priority 26
    SDF_APP_TYPE_TRAFFIC_PRIO_27 = 27,      ///< priority 27
    SDF_APP_TYPE_TRAFFIC_PRIO_28 = 28,      ///< priority 28
    SDF_APP_TYPE_TRAFFIC_PRIO_29 = 29,      ///< priority 29
    SDF_APP_TYPE_TRAFFIC_PRIO_30 = 30,      ///< priority 30
    SDF_APP_TYPE_TRAFFIC_PRIO_31 = 31,      ///< priority 31
    SDF_APP_TYPE_TRAFFIC_PRIO_BE = 32,      ///< best effort
} SdfFilterAppType;

/// The state of a filter. Above SDF_FILTER_ACTIVE the filter no longer exists.
__extension__ typedef enum SdfFilterStatus SDF_INT32_ENUM {
    SDF_FILTER_PENDING = 0,              ///< requested, not yet active; also a state unknown to us
    SDF_FILTER_ACTIVE = 1,               ///< installed
    SDF_FILTER_INACTIVITY_TIMEOUT = 2,   ///< removed by the service after inactivity
    SDF_FILTER_DELETED = 3,              ///< deleted
    SDF_FILTER_ERROR_DUPLICATE = 4,      ///< rejected: the same filter exists
    SDF_FILTER_ERROR_LIMIT_REACHED = 5,  ///< rejected: too many filters
    SDF_FILTER_ERROR_INVALID_ARGS = 6,   ///< rejected: invalid arguments
    SDF_FILTER_ERROR_INTERNAL = 7,       ///< rejected: internal error
    SDF_FILTER_ERROR_NO_PERMISSION = 8,  ///< rejected: the caller lacks permission
} SdfFilterStatus;

/// A traffic flow and how to treat it. Passed by value: the order of the members is part of the
/// interface. What is not set must be 0. The filter_arg members are the service's own business and
/// are passed through.
typedef struct SdfAddFilterInfo {
    struct sockaddr_storage src_addr;   ///< AF_INET or AF_INET6; port in network order, 0 for none
    struct sockaddr_storage dest_addr;  ///< the same for the destination
    SdfLatencyLvl first_level;          ///< must be valid
    SdfLatencyLvl second_level;         ///< must be valid
    SdfOod ood;                         ///< must be valid: 0 is not
    SdfFilterAppType app_type;          ///< must be valid
    SdfProtocol protocol;               ///< must be valid
    uint8_t filter_arg6;                ///< passed through
    uint32_t pdcp_timer;                ///< passed through; the unit is the service's business
    uint32_t filter_arg11;              ///< passed through
    uint32_t filter_arg13;              ///< passed through
    uint16_t src_port_range;            ///< further ports; source port plus range is at most 65535
    uint16_t dest_port_range;           ///< the same for the destination
    uint8_t filter_arg19;               ///< passed through
    uint8_t filter_arg20;               ///< passed through
    uint8_t filter_arg16;               ///< passed through
    uint8_t filter_arg17;               ///< passed through
} SdfAddFilterInfo;

/// Status of the client and of the service.
/// @param status a V2 code (enum #SdfStatusV2)
typedef void (*SdfStatusV2Cb)(int status);

/// The same in the older codes.
/// @param status what #SdfStatusV2Cb receives, as #status_e
typedef void (*SdfLegacyStatusCb)(status_e status);

/// The levels in force after sdfSetLatencyLvl(). Called at most once for each request.
/// @param id      what that call returned (the low 32 bits of the id in the service's message,
///                never negative)
/// @param first   first level in force
/// @param second  second level in force
typedef void (*SdfEffectiveLevelsCb)(long long id, SdfLatencyLvl first, SdfLatencyLvl second);

/// A filter's new state: the outcome of sdfAddFilter(), or what sdfRegFilterStatus() asked for.
/// @param filter_id  what sdfAddFilter() returned
/// @param status     above #SDF_FILTER_ACTIVE the filter does not exist, or no longer
typedef void (*SdfFilterStatusCb)(unsigned int filter_id, SdfFilterStatus status);

/// One filter of the list that the service keeps for this client.
/// @param filter_id   what sdfAddFilter() returned
/// @param status      its state
/// @param first       its first latency level
/// @param second      its second latency level
/// @param ood         its out-of-order delivery
/// @param pdcp_timer  its PDCP timer, in the service's unit
typedef void (*SdfGetFiltersCb)(unsigned int filter_id, SdfFilterStatus status, SdfLatencyLvl first,
                                SdfLatencyLvl second, SdfOod ood, unsigned int pdcp_timer);

/// One entry of a priority-queue report. What the figures mean is the service's business.
/// @param entry_key     what the entry is about
/// @param first_value   its first figure
/// @param second_value  its second figure
typedef void (*SdfPriorityQueueReportCb)(unsigned int entry_key, uint64_t first_value,
                                         uint64_t second_value);

/// A filter that the service made on its own.
/// @param filter_id  the service's number for it; not one to update or delete it by
/// @param info       while the filter is active: its addresses with their ports, protocol and
///                   application type, everything else 0. The family found from the source address
///                   (AF_INET if it is an IPv4 address, AF_INET6 in every other case) is also the
///                   destination's; an address that is none of that family is all 0. When the
///                   filter is in any other state: all 0.
typedef void (*SdfAutoFilterInfoCb)(unsigned int filter_id, SdfAddFilterInfo info);

// NOLINTEND(modernize-use-using)

/// @name Lifecycle
/// @{

/// Creates the client and asks the service, in the background, to serve it. When there is a client
/// already, replaces its V2 status callback by `cb`, asks again, and connects again if the link was
/// lost. Does not wait for the service.
///
/// When the library could not set up its link (no fourth descriptor or no thread, or a destroy
/// still under way on another thread), the return value is 0 too, a callback of lum_sdf_enable() is
/// called with #SDF_STATUS_INTERNAL_ERROR before the function returns (but not from inside a
/// callback that reports this), `cb` is not called, and requests return -5: call again later.
///
/// Ends the process, with exit(-1) and an error in the log, when there are not even three
/// descriptors for the event loop.
///
/// @param cb  reports the service's status: #SDF_V2_SERVICE_UP, #SDF_V2_SERVICE_DOWN, or other
///            codes, which all mean that requests are refused. Not null. A callback of
///            lum_sdf_enable() stays in place and reports the same.
/// @return 0 when the client exists, whether or not the service can be reached; -2 when `cb` is
///         null; -3 when memory runs out: create again, or destroy
SDF_API long long createSdfClient(SdfStatusV2Cb cb);

/// Tells the service that this client is leaving and destroys the client with both its status
/// callbacks, however it was created. Replies that are still awaited are dropped.
///
/// When the client has no link (see createSdfClient()), the client stays, its status callbacks are
/// called with #SDF_STATUS_INTERNAL_ERROR and #SDF_V2_INTERNAL_ERROR before the function returns
/// (but not from inside a callback that reports this), and it returns -5.
///
/// Blocks until the library's thread has handled everything queued before. Each message takes as
/// long as the service takes to accept it. While there is no service, each takes one connection
/// attempt, about 3.15 seconds: each request that was still queued when the service died, and each
/// call of createSdfClient() or lum_sdf_enable() since then; a burst of requests so makes half a
/// minute. On a platform whose service lookup waits without limit for a service that does not come,
/// this function waits with it. It also waits for a callback that is running on the library's
/// thread; such a callback must not wait for the thread that destroys. Called from inside a
/// callback on the library's thread it does not wait.
///
/// @return 0; -5 when there is no client, or no link, or another thread is destroying it already;
///         -3 when memory runs out: the client stays, perhaps without this function's status
///         callback; destroy or create again
SDF_API long long destroySdfClient(void);

/// createSdfClient() for the older status codes, on the same client: a client has one callback of
/// each kind. Does not wait for the service.
///
/// When the library could not set up its link, `cb` is called with #SDF_STATUS_INTERNAL_ERROR
/// before the function returns 1 (but not from inside a callback that reports this). When
/// there is no memory for the client object itself, the same, and it returns 0. Ends the process as
/// createSdfClient() does.
///
/// @param cb  receives #SDF_STATUS_SERVICE_UP, #SDF_STATUS_SERVICE_DOWN, other codes. Not null.
/// @return 1 when the client exists; 0 when `cb` is null or memory runs out
SDF_API long long lum_sdf_enable(SdfLegacyStatusCb cb);

/// destroySdfClient() with the older results: it destroys the same client, and waits the same.
/// @return 1; 0 where destroySdfClient() returns a negative code
SDF_API long long lum_sdf_disable(void);

/// @}
/// @name Latency, link and priority requests
/// All of them return -5, -2, -8 or -3 as said at the top, from any thread, without waiting. Those
/// that take a filter id want one that the service has confirmed to this client: it is known from
/// the return of the add callback (see sdfAddFilter()) until the filter is deleted or its end is
/// reported.
/// @{

/// Asks for latency levels for the traffic of one SIM slot.
///
/// @param slot    #SDF_SLOT_ID_UNSPECIFIED, #SDF_SLOT_ID_FIRST or #SDF_SLOT_ID_SECOND
/// @param first   1 to 6
/// @param second  1 to 6
/// @param flag    passed to the service, which knows its meaning
/// @param cb      called with the levels in force when the service replies; not null. Never called
///                when the service does not reply, or the client is destroyed before.
/// @return the request's id (1 or more), which `cb` receives; or -5, -2, -8, -3
SDF_API long long sdfSetLatencyLvl(SdfSlotID slot, SdfLatencyLvl first, SdfLatencyLvl second,
                                   bool flag, SdfEffectiveLevelsCb cb);

/// Changes the latency levels of a filter. The service sends no result.
///
/// @param filter_id  a confirmed filter
/// @param first      1 to 6
/// @param second     1 to 6
/// @return 0; or -5, -2, -8, -3
SDF_API long long sdfUpdateLatencyLvl(unsigned int filter_id, SdfLatencyLvl first,
                                      SdfLatencyLvl second);

/// Changes the out-of-order delivery of a filter. The service sends no result.
///
/// @param filter_id  a confirmed filter
/// @param ood        1 to 3
/// @return 0; or -5, -2, -8, -3
SDF_API long long sdfUpdateOod(unsigned int filter_id, SdfOod ood);

/// Changes the PDCP timer of a filter. The service sends no result.
///
/// @param filter_id   a confirmed filter
/// @param pdcp_timer  any value, in the service's unit; the service judges it
/// @return 0; or -5, -2, -8, -3
SDF_API long long sdfUpdatePdcpTimer(unsigned int filter_id, unsigned int pdcp_timer);

/// Changes the DSCP with which the traffic of a filter is marked. The service sends no result.
///
/// @param filter_id    a confirmed filter
/// @param target_dscp  any value (a DSCP has six bits); the service judges it
/// @return 0; or -5, -2, -8, -3
SDF_API long long sdfUpdateTargetDscp(unsigned int filter_id, unsigned int target_dscp);

/// Changes the out-of-order delivery of the default data subscription. The service sends no result.
///
/// @param ood  1 to 3
/// @return 0; or -5, -2, -8, -3
SDF_API long long sdfUpdateDdsOod(SdfOod ood);

/// Changes the PDCP timer of the default data subscription. The service sends no result.
///
/// @param pdcp_timer  any value, in the service's unit; the service judges it
/// @return 0; or -5, -8, -3
SDF_API long long sdfUpdateDdsPdcpTimer(unsigned int pdcp_timer);

/// Switches high-performance gaming on or off. The service sends no result.
///
/// @param enable  whether it is to be on
/// @return 0; or -5, -8, -3
SDF_API long long sdfEnHighPerfGaming(bool enable);

/// Prioritises the data of one SIM slot, or stops doing so. The service sends no result.
///
/// @param slot    #SDF_SLOT_ID_UNSPECIFIED, #SDF_SLOT_ID_FIRST or #SDF_SLOT_ID_SECOND
/// @param enable  whether the slot's data is to be prioritised
/// @return 0; or -5, -2, -8, -3
SDF_API long long sdfPrioritizeData(SdfSlotID slot, bool enable);

/// Prioritises the default data subscription, or stops doing so. The service sends no result.
///
/// @param enable  whether it is to be prioritised
/// @return 0; or -5, -8, -3
SDF_API long long sdfPrioritizeDds(bool enable);

/// Asks for priority-queue reports, as often as the service sees fit, or stops them.
///
/// @param enable        whether the service is to report
/// @param report_value  passed to the service, which knows its meaning
/// @param cb            called once for each entry of each report, from now on and as long as the
///                      client lives: `enable` does not matter for it. Not null, also to stop.
///                      Replaces the one of an earlier call.
/// @return 0; or -5, -2, -8, -3
SDF_API long long sdfRegPriorityQueueReports(bool enable, unsigned int report_value,
                                             SdfPriorityQueueReportCb cb);

/// Asks for one priority-queue report.
///
/// One such request can be outstanding at a time: a second one takes the first one's place, gets
/// whatever report comes next, and what comes after that reaches no one. A report that the
/// registration of sdfRegPriorityQueueReports() brings goes to both callbacks and counts as the
/// answer. Asking again from inside `cb` is fine.
///
/// @param cb  called once for each entry of the next report; not null
/// @return 0; or -5, -2, -8, -3
SDF_API long long sdfGetPriorityQueueReport(SdfPriorityQueueReportCb cb);

/// Registers for the filters that the service makes on its own. The service is not asked for
/// anything: the effect is that `cb` is called with what it reports unasked.
///
/// @param cb  called for each indication, as long as the client lives; not null. Replaces the one
///            of an earlier call.
/// @return 0; or -5, -2, -8, -3
SDF_API long long sdfRegAutoFilterInfo(SdfAutoFilterInfoCb cb);

/// Asks for reports of what becomes of filters, beyond the answer to adding them.
///
/// @param cb  called for each filter in each indication, as long as the client lives, also for
///            filters that this client does not know; not null. Replaces the one of an earlier
///            call. When it reports a filter's end, the filter is no longer known to update and
///            delete.
/// @return 0; or -5, -2, -8, -3
SDF_API long long sdfRegFilterStatus(SdfFilterStatusCb cb);

/// @}
/// @name Filters
/// @{

/// Adds a filter: describes a flow and how to treat it.
///
/// The service answers through `cb`. While `cb` runs, the filter is not yet known to update and
/// delete; it is when `cb` has returned, if the status was pending or active.
///
/// Looks in this order: is there a client with a link (-5); is the service up (-8); are `cb` and
/// the description valid (-2).
///
/// @param info  the flow. Valid: both addresses IPv4 or IPv6 (a family of 0 counts as the one of
///              which the address has bytes, without a port), levels, protocol, application type
///              and out-of-order delivery in their ranges, and each port plus its range at most
///              65535.
/// @param cb    called once, when the service replies; not null. Never called when the service does
///              not reply, or the client is destroyed before.
/// @return the filter's id (1 or more), which `cb` receives; or -5, -8, -2, -3
SDF_API long long sdfAddFilter(SdfAddFilterInfo info, SdfFilterStatusCb cb);

/// sdfAddFilter() with one value more.
///
/// @param info   as in sdfAddFilter()
/// @param extra  passed to the service, also when it is 0
/// @param cb     as in sdfAddFilter()
/// @return as sdfAddFilter()
SDF_API long long sdfAddFilterV2(SdfAddFilterInfo info, unsigned char extra, SdfFilterStatusCb cb);

/// Asks for the list of this client's filters.
///
/// One such request can be outstanding at a time: a second one takes the first one's place, gets
/// the list that comes first, and the other list reaches no one. Asking again from inside `cb` is
/// fine.
///
/// @param cb  called once for each filter of the list, so not at all when there is none; not null
/// @return 0; or -5, -2, -8, -3
SDF_API long long sdfGetFilters(SdfGetFiltersCb cb);

/// Deletes a filter. It counts as deleted at once, without waiting for the service.
///
/// @param filter_id  a confirmed filter; one whose `cb` has not yet returned is not
/// @return 0; or -5, -2, -8, -3
SDF_API long long sdfDeleteFilter(unsigned int filter_id);

/// Deletes all filters that the service has confirmed to this client. They count as deleted at
/// once, without waiting for the service.
///
/// @return 0; -5 also when there is no confirmed filter; or -8, -3
SDF_API long long sdfDeleteAllFilter(void);

/// @}
/// @name Texts
/// Short English texts for people to read, in logs and tools. They do not fail: a value with no
/// name gives "unknown". Static storage, never null, any thread.
/// @{

/// The text of a V2 code.
/// @param code  what a function returned or a status callback received; an id (above 0) is a
///              success
/// @return its text
static inline const char* sdfStatusV2Text(long long code) {
    if (code > 0) return "success";
    switch (code) {
        case SDF_V2_SUCCESS: return "success";
        case SDF_V2_INVALID: return "invalid";
        case SDF_V2_INVALID_ARG: return "invalid argument";
        case SDF_V2_INTERNAL_ERROR: return "internal error";
        case SDF_V2_NOT_SUPPORTED: return "not supported";
        case SDF_V2_INVALID_OPERATION: return "invalid operation";
        case SDF_V2_SERVICE_UP: return "service up";
        case SDF_V2_SERVICE_DOWN: return "service down";
        default: return "unknown";
    }
}

/// The text of one of the older status codes.
/// @param status  what the callback of lum_sdf_enable() received
/// @return its text
static inline const char* sdfStatusText(status_e status) {
    switch (status) {
        case SDF_STATUS_INVALID: return "invalid";
        case SDF_STATUS_SUCCESS: return "success";
        case SDF_STATUS_INVALID_ARG: return "invalid argument";
        case SDF_STATUS_INTERNAL_ERROR: return "internal error";
        case SDF_STATUS_NOT_SUPPORTED: return "not supported";
        case SDF_STATUS_INVALID_OPERATION: return "invalid operation";
        case SDF_STATUS_SERVICE_UP: return "service up";
        case SDF_STATUS_SERVICE_DOWN: return "service down";
        case SDF_STATUS_INVALID_SLOT: return "invalid slot";
        default: return "unknown";
    }
}

/// The text of a SIM slot.
/// @param slot  any value
/// @return its text
static inline const char* sdfSlotIdText(SdfSlotID slot) {
    switch (slot) {
        case SDF_SLOT_ID_UNSPECIFIED: return "unspecified";
        case SDF_SLOT_ID_FIRST: return "first";
        case SDF_SLOT_ID_SECOND: return "second";
        default: return "unknown";
    }
}

/// The text of a latency level.
/// @param level  any value
/// @return its text
static inline const char* sdfLatencyLvlText(SdfLatencyLvl level) {
    switch (level) {
        case SDF_LATENCY_LVL_1: return "level 1";
        case SDF_LATENCY_LVL_2: return "level 2";
        case SDF_LATENCY_LVL_3: return "level 3";
        case SDF_LATENCY_LVL_4: return "level 4";
        case SDF_LATENCY_LVL_5: return "level 5";
        case SDF_LATENCY_LVL_6: return "level 6";
        default: return "unknown";
    }
}

/// The text of an out-of-order delivery setting.
/// @param ood  any value
/// @return its text
static inline const char* sdfOodText(SdfOod ood) {
    switch (ood) {
        case SDF_OOD_UNSPECIFIED_LVL: return "unspecified";
        case SDF_OOD_ENABLED_LVL: return "enabled";
        case SDF_OOD_DISABLED_LVL: return "disabled";
        default: return "unknown";
    }
}

/// The text of a protocol.
/// @param protocol  any value
/// @return its text
static inline const char* sdfProtocolText(SdfProtocol protocol) {
    switch (protocol) {
        case SDF_PROTOCOL_NONE: return "none";
        case SDF_PROTOCOL_TCP: return "TCP";
        case SDF_PROTOCOL_UDP: return "UDP";
        case SDF_PROTOCOL_TCPUDP: return "TCP and UDP";
        default: return "unknown";
    }
}

/// The text of an application type.
/// @param type  any value
/// @return its text
static inline const char* sdfFilterAppTypeText(SdfFilterAppType type) {
    static const char* const kTexts[] = {
        "unspecified", "highest priority", "priority 2",  "priority 3",  "priority 4",
        "priority 5",  "priority 6",       "priority 7",  "priority 8",  "priority 9",
        "priority 10", "priority 11",      "priority 12", "priority 13", "priority 14",
        "priority 15", "priority 16",      "priority 17", "priority 18", "priority 19",
        "priority 20", "priority 21",      "priority 22", "priority 23", "priority 24",
        "priority 25", "priority 26",      "priority 27", "priority 28", "priority 29",
        "priority 30", "priority 31",      "best effort",
    };
    const long long index = type;
    return index >= SDF_APP_TYPE_UNSPECIFIED && index <= SDF_APP_TYPE_TRAFFIC_PRIO_BE
               ? kTexts[index]
               : "unknown";
}

/// The text of a filter's state.
/// @param status  what a filter callback received
/// @return its text
static inline const char* sdfFilterStatusText(SdfFilterStatus status) {
    switch (status) {
        case SDF_FILTER_PENDING: return "pending";
        case SDF_FILTER_ACTIVE: return "active";
        case SDF_FILTER_INACTIVITY_TIMEOUT: return "inactivity timeout";
        case SDF_FILTER_DELETED: return "deleted";
        case SDF_FILTER_ERROR_DUPLICATE: return "duplicate filter";
        case SDF_FILTER_ERROR_LIMIT_REACHED: return "filter limit reached";
        case SDF_FILTER_ERROR_INVALID_ARGS: return "invalid arguments";
        case SDF_FILTER_ERROR_INTERNAL: return "internal error";
        case SDF_FILTER_ERROR_NO_PERMISSION: return "no permission";
        default: return "unknown";
    }
}

/// @}

#ifdef __cplusplus
}
#endif
