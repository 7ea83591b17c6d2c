// SPDX-License-Identifier: Apache-2.0
#include "api/ClientSdfUtils.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <iterator>

#include "utils/Log.h"

namespace {

// Whether value lies in first to last.
bool inRange(int32_t value, int32_t first, int32_t last) {
    return static_cast<uint32_t>(value) - static_cast<uint32_t>(first) <=
           static_cast<uint32_t>(last) - static_cast<uint32_t>(first);
}

// The storage seen as the address of one family; copied, because it is not one as far as the
// language is concerned.
template <typename Address>
Address viewAs(const sockaddr_storage& storage) {
    Address address;
    memcpy(&address, &storage, sizeof(address));
    return address;
}

std::string toText(int family, const void* address, socklen_t length) {
    std::array<char, INET6_ADDRSTRLEN> text{};
    if (inet_ntop(family, address, text.data(), length) == nullptr) perror("inet_ntop");
    return text.data();
}

std::string toText(const in_addr& address) {
    return toText(AF_INET, &address, INET_ADDRSTRLEN);
}

std::string toText(const in6_addr& address) {
    return toText(AF_INET6, &address, INET6_ADDRSTRLEN);
}

bool isZero(const in6_addr& address) {
    return std::all_of(std::begin(address.s6_addr), std::end(address.s6_addr),
                       [](uint8_t byte) { return byte == 0; });
}

}  // namespace

bool ClientSdfUtils::isSlotIdValid(SdfSlotID slot) {
    return inRange(slot, SDF_SLOT_ID_UNSPECIFIED, SDF_SLOT_ID_SECOND);
}

bool ClientSdfUtils::isLatencyLvlValid(SdfLatencyLvl level) {
    return inRange(level, SDF_LATENCY_LVL_1, SDF_LATENCY_LVL_6);
}

bool ClientSdfUtils::isProtocolValid(SdfProtocol protocol) {
    return inRange(protocol, SDF_PROTOCOL_NONE, SDF_PROTOCOL_TCPUDP);
}

bool ClientSdfUtils::isFilterAppTypeValid(SdfFilterAppType type) {
    return inRange(type, SDF_APP_TYPE_UNSPECIFIED, SDF_APP_TYPE_TRAFFIC_PRIO_BE);
}

bool ClientSdfUtils::isOodValid(SdfOod ood) {
    return inRange(ood, SDF_OOD_UNSPECIFIED_LVL, SDF_OOD_DISABLED_LVL);
}

SdfProto::SlotId ClientSdfUtils::clientSlotIdToProto(SdfSlotID slot) {
    if (slot == SDF_SLOT_ID_FIRST) return SdfProto::SLOT_ID_FIRST;
    if (slot == SDF_SLOT_ID_SECOND) return SdfProto::SLOT_ID_SECOND;
    return SdfProto::SLOT_ID_UNSPECIFIED;
}

SdfProto::Level ClientSdfUtils::clientLevelToProto(SdfLatencyLvl level) {
    return isLatencyLvlValid(level) ? static_cast<SdfProto::Level>(level - 1) : SdfProto::L1;
}

SdfProto::Protocol ClientSdfUtils::clientProtocolToProto(SdfProtocol protocol) {
    return isProtocolValid(protocol) ? static_cast<SdfProto::Protocol>(protocol)
                                     : SdfProto::PROTOCOL_NONE;
}

SdfProto::SdfOod ClientSdfUtils::clientOodToProto(SdfOod ood) {
    return isOodValid(ood) ? static_cast<SdfProto::SdfOod>(ood - 1) : SdfProto::SDF_OOD_UNSPECIFIED;
}

SdfProto::AppType ClientSdfUtils::clientAppTypeToProto(SdfFilterAppType type) {
    return isFilterAppTypeValid(type) ? static_cast<SdfProto::AppType>(type + 1)
                                      : SdfProto::APP_TYPE_NONE;
}

SdfLatencyLvl ClientSdfUtils::protoLevelToClient(SdfProto::Level level) {
    return SdfProto::Level_IsValid(level) ? static_cast<SdfLatencyLvl>(level + 1)
                                          : SDF_LATENCY_LVL_1;
}

SdfProtocol ClientSdfUtils::protoProtocolToClient(SdfProto::Protocol protocol) {
    return SdfProto::Protocol_IsValid(protocol) ? static_cast<SdfProtocol>(protocol)
                                                : SDF_PROTOCOL_NONE;
}

SdfOod ClientSdfUtils::protoOodToClient(SdfProto::SdfOod ood) {
    return SdfProto::SdfOod_IsValid(ood) ? static_cast<SdfOod>(ood + 1) : SDF_OOD_UNSPECIFIED_LVL;
}

SdfFilterAppType ClientSdfUtils::protoAppTypeToClient(SdfProto::AppType type) {
    // Two values of the service mean "no type" here: APP_TYPE_NONE and APP_TYPE_UNSPECIFIED.
    if (type == SdfProto::APP_TYPE_NONE || !SdfProto::AppType_IsValid(type)) {
        return SDF_APP_TYPE_UNSPECIFIED;
    }
    return static_cast<SdfFilterAppType>(type - 1);
}

SdfFilterStatus ClientSdfUtils::protoStatusToClient(SdfProto::FilterStatus status) {
    switch (status) {
        case SdfProto::FILTER_ACTIVE: return SDF_FILTER_ACTIVE;
        case SdfProto::FILTER_INACTIVITY_TIMEOUT: return SDF_FILTER_INACTIVITY_TIMEOUT;
        case SdfProto::FILTER_DELETED: return SDF_FILTER_DELETED;
        case SdfProto::ERROR_DUPLICATE_FILTER: return SDF_FILTER_ERROR_DUPLICATE;
        case SdfProto::ERROR_FILTER_LIMIT_REACHED: return SDF_FILTER_ERROR_LIMIT_REACHED;
        case SdfProto::ERROR_INVALID_ARGS: return SDF_FILTER_ERROR_INVALID_ARGS;
        case SdfProto::ERROR_INTERNAL: return SDF_FILTER_ERROR_INTERNAL;
        case SdfProto::ERROR_NO_PERMISSION: return SDF_FILTER_ERROR_NO_PERMISSION;
        default: return SDF_FILTER_PENDING;
    }
}

status_e ClientSdfUtils::protoStatusToClient(SdfProto::Status status) {
    if (!SdfProto::Status_IsValid(status)) {
        LUM_LOGE("Unknown Status!");
        return SDF_STATUS_INVALID;
    }
    return static_cast<status_e>(status - 1);
}

int ClientSdfUtils::statusToStatusV2(status_e status) {
    switch (status) {
        case SDF_STATUS_INVALID: return SDF_V2_INVALID;
        case SDF_STATUS_SUCCESS: return SDF_V2_SUCCESS;
        case SDF_STATUS_INVALID_ARG: return SDF_V2_INVALID_ARG;
        case SDF_STATUS_INTERNAL_ERROR: return SDF_V2_INTERNAL_ERROR;
        case SDF_STATUS_NOT_SUPPORTED: return SDF_V2_NOT_SUPPORTED;
        case SDF_STATUS_INVALID_OPERATION: return SDF_V2_INVALID_OPERATION;
        case SDF_STATUS_SERVICE_UP: return SDF_V2_SERVICE_UP;
        case SDF_STATUS_SERVICE_DOWN: return SDF_V2_SERVICE_DOWN;
        default: LUM_LOGE("Unknown Status!"); return SDF_V2_INVALID;
    }
}

std::string ClientSdfUtils::sdfGetIp(const sockaddr_storage& address) {
    LUM_LOGD("sdfGetIp with address type: %d\n", static_cast<int>(address.ss_family));
    const in_addr v4 = viewAs<sockaddr_in>(address).sin_addr;
    const in6_addr v6 = viewAs<sockaddr_in6>(address).sin6_addr;
    switch (address.ss_family) {
        case AF_INET: return toText(v4);
        case AF_INET6: return toText(v6);
        case AF_UNSPEC:
            if (v4.s_addr != 0) return toText(v4);
            return isZero(v6) ? std::string() : toText(v6);
        default: return {};
    }
}

uint16_t ClientSdfUtils::sdfGetPort(const sockaddr_storage& address) {
    if (address.ss_family != AF_INET && address.ss_family != AF_INET6) return 0;
    // The port lies at the same place in both.
    return ntohs(viewAs<sockaddr_in>(address).sin_port);
}

int ClientSdfUtils::ipVersion(const std::string& text) {
    in6_addr ignored;
    if (inet_pton(AF_INET, text.c_str(), &ignored) == 1) return 4;
    if (inet_pton(AF_INET6, text.c_str(), &ignored) == 1) return 6;
    return -1;
}

sockaddr_storage ClientSdfUtils::convertToSockAddrStorage(int family, const std::string& text,
                                                          int port) {
    sockaddr_storage storage{};
    const uint16_t networkPort = htons(static_cast<uint16_t>(port));
    if (family == AF_INET) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = networkPort;
        inet_pton(AF_INET, text.c_str(), &address.sin_addr);
        memcpy(&storage, &address, sizeof(address));
    } else if (family == AF_INET6) {
        sockaddr_in6 address{};
        address.sin6_family = AF_INET6;
        address.sin6_port = networkPort;
        inet_pton(AF_INET6, text.c_str(), &address.sin6_addr);
        memcpy(&storage, &address, sizeof(address));
    }
    return storage;
}
