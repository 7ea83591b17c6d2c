// SPDX-License-Identifier: Apache-2.0
#include "fuzz/Wire.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cstring>

namespace wire {

namespace {

// Where the socket addresses of both families have their port, and where each has its address.
constexpr size_t kPort = 2;
constexpr size_t kV4 = 4;
constexpr size_t kV6 = 8;
constexpr size_t kEnd = 24;

Bytes bytesOf(const sockaddr_storage& address) {
    Bytes bytes(kEnd);
    memcpy(bytes.data(), &address, kEnd);
    return bytes;
}

void appendVarint(Bytes& bytes, uint64_t value) {
    for (; value > 127; value >>= 7) bytes.push_back(static_cast<uint8_t>(value | 128));
    bytes.push_back(static_cast<uint8_t>(value));
}

// Field `number` and those that follow it; one that is 0 is left out.
void appendNumbers(Bytes& bytes, unsigned int number, std::initializer_list<uint64_t> values) {
    for (const uint64_t value : values) {
        if (value != 0) {
            appendVarint(bytes, uint64_t{number} * 8);
            appendVarint(bytes, value);
        }
        ++number;
    }
}

template <typename Contents>
void appendContents(Bytes& bytes, unsigned int number, const Contents& contents) {
    appendVarint(bytes, number * 8 + 2);
    appendVarint(bytes, contents.size());
    bytes.insert(bytes.end(), contents.begin(), contents.end());
}

}  // namespace

int64_t decodeFilterStatus(int64_t number) {
    if (number == 23) return SDF_FILTER_INACTIVITY_TIMEOUT;
    return number == 1 || (number >= 3 && number <= 8) ? number : SDF_FILTER_PENDING;
}

int64_t v2Code(int64_t status) {
    constexpr int kCodes[] = {-1, 0, -2, -3, -4, -5, -7, -8, -1};
    return kCodes[status - kStatuses.first];
}

std::string addressText(const sockaddr_storage& address) {
    const Bytes bytes = bytesOf(address);
    const auto isSet = [&bytes](size_t first, size_t end) {
        return std::any_of(bytes.data() + first, bytes.data() + end,
                           [](uint8_t byte) { return byte != 0; });
    };
    int family = address.ss_family;
    if (family == AF_UNSPEC && isSet(kV4, kV6)) family = AF_INET;
    if (family == AF_UNSPEC && isSet(kV6, kEnd)) family = AF_INET6;
    char text[INET6_ADDRSTRLEN] = "";
    // Writes nothing for any other family.
    inet_ntop(family, &bytes[family == AF_INET ? kV4 : kV6], text, sizeof text);
    return text;
}

unsigned int portOf(const sockaddr_storage& address) {
    if (address.ss_family != AF_INET && address.ss_family != AF_INET6) return 0;
    const Bytes bytes = bytesOf(address);
    return bytes[kPort] * 256U + bytes[kPort + 1];
}

bool isV4(const std::string& text) {
    in_addr ignored;
    return inet_pton(AF_INET, text.c_str(), &ignored) == 1;
}

sockaddr_storage makeAddress(sa_family_t family, const std::string& text, int32_t port) {
    Bytes bytes(kEnd);
    memcpy(bytes.data(), &family, sizeof family);
    bytes[kPort] = static_cast<uint8_t>(port >> 8);
    bytes[kPort + 1] = static_cast<uint8_t>(port);
    inet_pton(family, text.c_str(), &bytes[family == AF_INET ? kV4 : kV6]);
    sockaddr_storage address{};
    memcpy(&address, bytes.data(), kEnd);
    return address;
}

Bytes bodyOf(std::initializer_list<uint64_t> numbers) {
    Bytes body;
    appendNumbers(body, 1, numbers);
    return body;
}

Request addFilterRequest(const SdfAddFilterInfo& info, std::optional<uint8_t> extra) {
    Bytes body;
    appendContents(body, 1, addressText(info.src_addr));
    appendContents(body, 2, addressText(info.dest_addr));
    appendNumbers(
        body, 3,
        {portOf(info.src_addr), portOf(info.dest_addr), kProtocols.encode(info.protocol),
         info.filter_arg6, kLevels.encode(info.first_level), kLevels.encode(info.second_level),
         info.pdcp_timer, kOods.encode(info.ood), info.filter_arg11,
         kAppTypes.encode(info.app_type), info.filter_arg13, info.src_port_range,
         info.dest_port_range, info.filter_arg16, info.filter_arg17});
    if (extra) {
        appendVarint(body, uint64_t{18} * 8);
        appendVarint(body, *extra);
    }
    appendNumbers(body, 19, {info.filter_arg19, info.filter_arg20});
    return {SdfProto::ADD_FILTER, SdfProto::ServiceData::kAddFilter, body};
}

Bytes encode(const Request& request, unsigned int id) {
    Bytes message;
    appendNumbers(message, 1, {static_cast<uint64_t>(request.event), id});
    if (request.member != SdfProto::ServiceData::MSG_TYPE_NOT_SET) {
        Bytes data;
        appendContents(data, request.member, request.body);
        appendContents(message, 3, data);
    }
    return message;
}

}  // namespace wire
