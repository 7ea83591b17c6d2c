// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <lum_sdf_sdk.h>
#include <sys/socket.h>

#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <vector>

#include "proto/SdfProto.pb.h"

// What the library puts into messages and takes out of them, written down once more as tables and
// bytes. Nothing here calls the library.
namespace wire {

using Bytes = std::vector<uint8_t>;

// The values of an enumeration: first to last. In messages they are higher by so much; a number
// there that stands for none of them is taken for the first.
struct Values {
    int64_t first;
    int64_t last;
    int64_t higher;

    bool contain(int64_t value) const { return first <= value && value <= last; }
    uint64_t encode(int64_t value) const { return static_cast<uint64_t>(value + higher); }
    int64_t decode(int64_t number) const {
        return contain(number - higher) ? number - higher : first;
    }
};
constexpr Values kSlots{-1, 1, 1};
constexpr Values kLevels{1, 6, -1};
constexpr Values kOods{1, 3, -1};
constexpr Values kAppTypes{0, 32, 1};
constexpr Values kProtocols{0, 3, 0};
constexpr Values kStatuses{-1, 7, 1};

// The state of a filter that has this number in messages.
int64_t decodeFilterStatus(int64_t number);
// The V2 code of one of kStatuses.
int64_t v2Code(int64_t status);

// The address as text; empty when there is none.
std::string addressText(const sockaddr_storage& address);
unsigned int portOf(const sockaddr_storage& address);
bool isV4(const std::string& text);
// The address is 0 when the text is none of the family, which is AF_INET or AF_INET6.
sockaddr_storage makeAddress(sa_family_t family, const std::string& text, int32_t port);

// A request but for its id.
struct Request {
    SdfProto::ServiceEventId event;
    SdfProto::ServiceData::MsgTypeCase member = SdfProto::ServiceData::MSG_TYPE_NOT_SET;
    Bytes body{};  // of that member, if there is one
};
// The body that has these numbers in its fields 1, 2, ...
Bytes bodyOf(std::initializer_list<uint64_t> numbers);
Request addFilterRequest(const SdfAddFilterInfo& info, std::optional<uint8_t> extra);
Bytes encode(const Request& request, unsigned int id);

}  // namespace wire
