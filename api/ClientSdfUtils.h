// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <lum_sdf_sdk.h>
#include <sys/socket.h>

#include <cstdint>
#include <string>

#include "proto/SdfProto.pb.h"

// Checks and conversions between the public types, the messages, and socket addresses. Any value
// may be passed to any of them, named or not; what has no counterpart becomes the stated fallback.
// Any thread.
class ClientSdfUtils {
  public:
    ClientSdfUtils() = delete;

    static bool isSlotIdValid(SdfSlotID slot);                // -1 to 1
    static bool isLatencyLvlValid(SdfLatencyLvl level);       // 1 to 6
    static bool isProtocolValid(SdfProtocol protocol);        // 0 to 3
    static bool isFilterAppTypeValid(SdfFilterAppType type);  // 0 to 32
    static bool isOodValid(SdfOod ood);                       // 1 to 3

    // To the service. Fallbacks: SLOT_ID_UNSPECIFIED, L1, PROTOCOL_NONE, SDF_OOD_UNSPECIFIED,
    // APP_TYPE_NONE.
    static SdfProto::SlotId clientSlotIdToProto(SdfSlotID slot);
    static SdfProto::Level clientLevelToProto(SdfLatencyLvl level);
    static SdfProto::Protocol clientProtocolToProto(SdfProtocol protocol);
    static SdfProto::SdfOod clientOodToProto(SdfOod ood);
    static SdfProto::AppType clientAppTypeToProto(SdfFilterAppType type);

    // From the service. Fallbacks: the lowest valid level and out-of-order setting, protocol and
    // application type 0, a pending filter.
    static SdfLatencyLvl protoLevelToClient(SdfProto::Level level);
    static SdfProtocol protoProtocolToClient(SdfProto::Protocol protocol);
    static SdfOod protoOodToClient(SdfProto::SdfOod ood);
    static SdfFilterAppType protoAppTypeToClient(SdfProto::AppType type);
    static SdfFilterStatus protoStatusToClient(SdfProto::FilterStatus status);

    // Fallback: SDF_STATUS_INVALID, logged.
    static status_e protoStatusToClient(SdfProto::Status status);

    // The V2 code (enum SdfStatusV2). Fallback: SDF_V2_INVALID, logged; SDF_STATUS_INVALID_SLOT has
    // no V2 code.
    static int statusToStatusV2(status_e status);

    // The address as numeric text. An AF_UNSPEC address counts as the kind of which it has non-zero
    // bytes, IPv4 looked at first. Empty when there is no address or its family is another one.
    static std::string sdfGetIp(const sockaddr_storage& address);

    // The port in host order; 0 when the address is neither AF_INET nor AF_INET6.
    static uint16_t sdfGetPort(const sockaddr_storage& address);

    // 4 or 6 when `text` is a numeric address of that version, otherwise -1.
    static int ipVersion(const std::string& text);

    // The address `text` with the low 16 bits of `port`. All zero when `family` is neither AF_INET
    // nor AF_INET6; the address alone is zero when `text` is none of that family.
    static sockaddr_storage convertToSockAddrStorage(int family, const std::string& text, int port);
};
