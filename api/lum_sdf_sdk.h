// SPDX-License-Identifier: Apache-2.0
#pragma once

// Client interface of the device's data service: asks it to treat the traffic of an application in
// particular ways (service data flows). Plain C11, also usable from C++17.
//
// How to use it
//
//   1. createSdfClient() with a status callback.
//   2. Wait until that callback is told SDF_V2_SERVICE_UP (-7).
//   3. Issue requests. Their results come through callbacks.
//   4. destroySdfClient().
//
// There is one client per process. Nothing here waits for the service's answer: a function returns
// only what the library can tell at once, everything else comes through callbacks.
//
// Losing the service
//
// When the status callback is told anything but SDF_V2_SERVICE_UP, the service counts as down:
// every request returns SDF_V2_SERVICE_DOWN (-8) and sends nothing, so that no request can bring
// the service back. Call createSdfClient() (or lum_sdf_enable()) again, every now and then, until
// SDF_V2_SERVICE_UP comes; only they make the library connect again. One call makes one attempt of
// up to 3.15 seconds, in the background; an attempt that finds no service is not reported. A call
// made while the loss is still being told may yet go to the lost service, and be answered with
// SDF_V2_INTERNAL_ERROR (-3): call again.
//
// Return values
//
// Requests and createSdfClient()/destroySdfClient() return a V2 code (enum SdfStatusV2) when it is
// negative, 0 or a request id when they succeed. Arguments are checked in this order: is there a
// client with a link to the service (-5); are the arguments valid (-2); is the service up (-8).
// When memory runs out a function returns -3, nothing has been sent, and everything is as before
// the call. No function throws.
//
// Threads and callbacks
//
// Callbacks are plain function pointers and belong to the application. They must not throw. They
// come
//   - on a thread of the binder thread pool: what the service sends, and the loss of the service;
//   - on the library's own thread: a message that the service refused to take;
//   - on the caller's thread, before the function returns, where a function says so.
// A callback may call every function of this interface, destroySdfClient() and createSdfClient()
// included. While it runs, nothing more is delivered on its thread: return soon. When one thread
// destroys the client, a callback that another thread was about to call may still be running, or
// just be starting, when destroySdfClient() returns: callbacks must stay callable past it.
//
// Functions may be called from any thread. A library built without LUM_SDF_GUARDED, as for devices,
// does not lock the record that it keeps of requests and callbacks: there, issue requests from
// inside callbacks, or otherwise make sure that no callback is being delivered meanwhile.

#include <stdbool.h>
#include <stdint.h>
#include <sys/socket.h>

#ifdef __cplusplus
// A fixed type, so that every 32-bit value may be passed and tested, also values with no name
// below.
#define SDF_INT32_ENUM : int32_t
#else
#define SDF_INT32_ENUM
#endif

// What the library exports.
#define SDF_API __attribute__((visibility("default")))

#ifdef __cplusplus
extern "C" {
#endif

// NOLINTBEGIN(modernize-use-using): this header is also C.

// V2 codes: what functions return (as long long) and what the status callback of createSdfClient()
// receives (as int).
enum SdfStatusV2 SDF_INT32_ENUM {
    SDF_V2_SUCCESS = 0,
    SDF_V2_INVALID = -1,            // unknown status
    SDF_V2_INVALID_ARG = -2,        // null callback, or a value out of its range
    SDF_V2_INTERNAL_ERROR = -3,     // out of memory, no link, or a message that could not be sent
    SDF_V2_NOT_SUPPORTED = -4,      // not supported by the service
    SDF_V2_INVALID_OPERATION = -5,  // there is no client, or it has no link to the service
    SDF_V2_SERVICE_UP = -7,         // requests are accepted from now on
    SDF_V2_SERVICE_DOWN = -8,       // requests are refused until the service is up
};

// The older status codes: what the status callback of lum_sdf_enable() receives.
typedef enum status_e SDF_INT32_ENUM {
    SDF_STATUS_INVALID = -1,
    SDF_STATUS_SUCCESS = 0,
    SDF_STATUS_INVALID_ARG = 1,
    SDF_STATUS_INTERNAL_ERROR = 2,
    SDF_STATUS_NOT_SUPPORTED = 3,
    SDF_STATUS_INVALID_OPERATION = 4,
    SDF_STATUS_SERVICE_UP = 5,
    SDF_STATUS_SERVICE_DOWN = 6,
    SDF_STATUS_INVALID_SLOT = 7,  // reported as SDF_V2_INVALID in the V2 codes
} status_e;

// A SIM slot. Valid: -1 to 1.
typedef enum SdfSlotID SDF_INT32_ENUM {
    SDF_SLOT_ID_UNSPECIFIED = -1,  // no particular slot
    SDF_SLOT_ID_FIRST = 0,
    SDF_SLOT_ID_SECOND = 1,
} SdfSlotID;

// A latency level. Valid: 1 to 6.
typedef enum SdfLatencyLvl SDF_INT32_ENUM {
    SDF_LATENCY_LVL_1 = 1,
    SDF_LATENCY_LVL_2 = 2,
    SDF_LATENCY_LVL_3 = 3,
    SDF_LATENCY_LVL_4 = 4,
    SDF_LATENCY_LVL_5 = 5,
    SDF_LATENCY_LVL_6 = 6,
} SdfLatencyLvl;

// Out-of-order delivery. Valid: 1 to 3; there is no 0.
typedef enum SdfOod SDF_INT32_ENUM {
    SDF_OOD_UNSPECIFIED_LVL = 1,
    SDF_OOD_ENABLED_LVL = 2,
    SDF_OOD_DISABLED_LVL = 3,
} SdfOod;

// The transport protocol of a flow. Valid: 0 to 3.
typedef enum SdfProtocol SDF_INT32_ENUM {
    SDF_PROTOCOL_NONE = 0,
    SDF_PROTOCOL_TCP = 1,
    SDF_PROTOCOL_UDP = 2,
    SDF_PROTOCOL_TCPUDP = 3,
} SdfProtocol;

// The traffic priority class of a filter. Valid: 0 to 32; priority n has the value n.
typedef enum SdfFilterAppType SDF_INT32_ENUM {
    SDF_APP_TYPE_UNSPECIFIED = 0,
    SDF_APP_TYPE_TRAFFIC_PRIO_HIGHEST = 1,
    SDF_APP_TYPE_TRAFFIC_PRIO_2 = 2,
    SDF_APP_TYPE_TRAFFIC_PRIO_3 = 3,
    SDF_APP_TYPE_TRAFFIC_PRIO_4 = 4,
    SDF_APP_TYPE_TRAFFIC_PRIO_5 = 5,
    SDF_APP_TYPE_TRAFFIC_PRIO_6 = 6,
    SDF_APP_TYPE_TRAFFIC_PRIO_7 = 7,
    SDF_APP_TYPE_TRAFFIC_PRIO_8 = 8,
    SDF_APP_TYPE_TRAFFIC_PRIO_9 = 9,
    SDF_APP_TYPE_TRAFFIC_PRIO_10 = 10,
    SDF_APP_TYPE_TRAFFIC_PRIO_11 = 11,
    SDF_APP_TYPE_TRAFFIC_PRIO_12 = 12,
    SDF_APP_TYPE_TRAFFIC_PRIO_13 = 13,
    SDF_APP_TYPE_TRAFFIC_PRIO_14 = 14,
    SDF_APP_TYPE_TRAFFIC_PRIO_15 = 15,
    SDF_APP_TYPE_TRAFFIC_PRIO_16 = 16,
    SDF_APP_TYPE_TRAFFIC_PRIO_17 = 17,
    SDF_APP_TYPE_TRAFFIC_PRIO_18 = 18,
    SDF_APP_TYPE_TRAFFIC_PRIO_19 = 19,
    SDF_APP_TYPE_TRAFFIC_PRIO_20 = 20,
    SDF_APP_TYPE_TRAFFIC_PRIO_21 = 21,
    SDF_APP_TYPE_TRAFFIC_PRIO_22 = 22,
    SDF_APP_TYPE_TRAFFIC_PRIO_23 = 23,
    SDF_APP_TYPE_TRAFFIC_PRIO_24 = 24,
    SDF_APP_TYPE_TRAFFIC_PRIO_25 = 25,
    SDF_APP_TYPE_TRAFFIC_PRIO_26 = 26,
    SDF_APP_TYPE_TRAFFIC_PRIO_27 = 27,
    SDF_APP_TYPE_TRAFFIC_PRIO_28 = 28,
    SDF_APP_TYPE_TRAFFIC_PRIO_29 = 29,
    SDF_APP_TYPE_TRAFFIC_PRIO_30 = 30,
    SDF_APP_TYPE_TRAFFIC_PRIO_31 = 31,
    SDF_APP_TYPE_TRAFFIC_PRIO_BE = 32,  // best effort
} SdfFilterAppType;

// The state of a filter. Above SDF_FILTER_ACTIVE the filter no longer exists.
typedef enum SdfFilterStatus SDF_INT32_ENUM {
    SDF_FILTER_PENDING = 0,             // requested, not yet active; also a state unknown to us
    SDF_FILTER_ACTIVE = 1,              // installed
    SDF_FILTER_INACTIVITY_TIMEOUT = 2,  // removed by the service after inactivity
    SDF_FILTER_DELETED = 3,
    SDF_FILTER_ERROR_DUPLICATE = 4,      // rejected: the same filter exists
    SDF_FILTER_ERROR_LIMIT_REACHED = 5,  // rejected: too many filters
    SDF_FILTER_ERROR_INVALID_ARGS = 6,   // rejected: invalid arguments
    SDF_FILTER_ERROR_INTERNAL = 7,       // rejected: internal error
    SDF_FILTER_ERROR_NO_PERMISSION = 8,  // rejected: the caller lacks permission
} SdfFilterStatus;

// A traffic flow and how to treat it. Passed by value: the order of the members is part of the
// interface. The filter_arg members are the service's own business and are passed through.
typedef struct SdfAddFilterInfo {
    struct sockaddr_storage src_addr;   // AF_INET or AF_INET6; port in network order, 0 for none
    struct sockaddr_storage dest_addr;  // the same for the destination
    SdfLatencyLvl first_level;
    SdfLatencyLvl second_level;
    SdfOod ood;
    SdfFilterAppType app_type;
    SdfProtocol protocol;
    uint8_t filter_arg6;
    uint32_t pdcp_timer;
    uint32_t filter_arg11;
    uint32_t filter_arg13;
    uint16_t src_port_range;   // further ports; source port plus range is at most 65535
    uint16_t dest_port_range;  // the same for the destination
    uint8_t filter_arg19;
    uint8_t filter_arg20;
    uint8_t filter_arg16;
    uint8_t filter_arg17;
} SdfAddFilterInfo;

// Status of the client and of the service: a V2 code (enum SdfStatusV2).
typedef void (*SdfStatusV2Cb)(int status);

// The same in the older codes.
typedef void (*SdfLegacyStatusCb)(status_e status);

// The levels in force after sdfSetLatencyLvl(). `id`: what that call returned (the low 32 bits of
// the id in the service's message, never negative). Called at most once for each request.
typedef void (*SdfEffectiveLevelsCb)(long long id, SdfLatencyLvl first, SdfLatencyLvl second);

// A filter's new state.
typedef void (*SdfFilterStatusCb)(unsigned int filter_id, SdfFilterStatus status);

// One filter of the list that the service keeps for this client.
typedef void (*SdfGetFiltersCb)(unsigned int filter_id, SdfFilterStatus status, SdfLatencyLvl first,
                                SdfLatencyLvl second, SdfOod ood, unsigned int pdcp_timer);

// One entry of a priority-queue report. What the figures mean is the service's business.
typedef void (*SdfPriorityQueueReportCb)(unsigned int entry_key, uint64_t first_value,
                                         uint64_t second_value);

// A filter that the service made on its own. All of `info` is 0 unless the filter is active.
typedef void (*SdfAutoFilterInfoCb)(unsigned int filter_id, SdfAddFilterInfo info);

// NOLINTEND(modernize-use-using)

// Creates the client and asks the service, in the background, to serve it. When there is a client
// already, replaces its V2 status callback by `cb`, asks again, and connects again if the link was
// lost.
//
// `cb`: told about the service from now on: SDF_V2_SERVICE_UP, SDF_V2_SERVICE_DOWN, other codes
// (all of which mean that requests are refused). Not null. A callback of lum_sdf_enable() stays in
// place and is told the same.
//
// Returns 0 when the client exists, whether or not the service can be reached; -2 when `cb` is
// null; -3 when memory runs out. When the library could not set up its link (no fourth descriptor
// or no thread to be had, or a destroy still under way on another thread), the return value is 0
// too, a callback of lum_sdf_enable() is called with SDF_STATUS_INTERNAL_ERROR before the function
// returns (but not from inside itself), `cb` is not called, and requests return -5: call again
// later.
//
// Ends the process, with exit(-1) and an error in the log, when not even three descriptors can be
// had for the event loop.
//
// Does not wait for the service.
SDF_API long long createSdfClient(SdfStatusV2Cb cb);

// Tells the service that this client is leaving and destroys the client with both its status
// callbacks, however it was created. Replies that are still awaited are dropped.
//
// Returns 0; -5 when there is no client, or another thread is destroying it already. When the
// client has no link (see createSdfClient()), the client stays, its status callbacks are called
// with SDF_STATUS_INTERNAL_ERROR and SDF_V2_INTERNAL_ERROR before the function returns, and it
// returns -5. -3 when memory runs out; the client is as before then.
//
// Waits until the library's thread has dealt with everything queued before: each message takes as
// long as the service takes to accept it, and each call of createSdfClient() or lum_sdf_enable(),
// or request, that was queued while no service was there takes one connection attempt, about 3.15
// seconds. On a platform whose service lookup waits without limit for a service that does not come,
// this function waits with it. It also waits for a callback that is running on the library's
// thread; such a callback must not wait for the thread that destroys. Called from inside a callback
// on the library's thread it does not wait.
SDF_API long long destroySdfClient(void);

// createSdfClient() for the older status codes, on the same client: a client has one callback of
// each kind.
//
// `cb`: told SDF_STATUS_SERVICE_UP, SDF_STATUS_SERVICE_DOWN, other codes. Not null.
//
// Returns 1 when the client exists; 0 when `cb` is null or memory runs out. When the library could
// not set up its link, `cb` is called with SDF_STATUS_INTERNAL_ERROR before the function returns 1
// (but not from inside itself). When not even the client could be made, the same, and it returns 0.
// Ends the process as createSdfClient() does.
//
// Does not wait for the service.
SDF_API long long lum_sdf_enable(SdfLegacyStatusCb cb);

// destroySdfClient() with the older results: it destroys the same client, and waits the same.
//
// Returns 1; 0 where destroySdfClient() returns a negative code.
SDF_API long long lum_sdf_disable(void);

// Asks for latency levels for the traffic of one SIM slot.
//
// `slot`: SDF_SLOT_ID_UNSPECIFIED, _FIRST or _SECOND.
// `first`, `second`: 1 to 6.
// `flag`: passed to the service, which knows its meaning.
// `cb`: called with the levels in force when the service replies; not null. Never called when the
// service does not reply, or the client is destroyed before.
//
// Returns the request's id (1 or more), which `cb` receives; -5, -2, -8 or -3 as said above.
//
// Does not wait.
SDF_API long long sdfSetLatencyLvl(SdfSlotID slot, SdfLatencyLvl first, SdfLatencyLvl second,
                                   bool flag, SdfEffectiveLevelsCb cb);

#ifdef __cplusplus
}
#endif
