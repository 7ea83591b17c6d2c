// SPDX-License-Identifier: Apache-2.0
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "api/ClientSdfUtils.h"
#include "tests/support/LogCapture.h"

namespace {

bool gNtopFails = false;

}  // namespace

// Takes the place of the C library's, to fail on demand.
extern "C" const char* inet_ntop(int family, const void* address, char* text,
                                 socklen_t length) noexcept {
    if (gNtopFails) {
        errno = ENOSPC;
        return nullptr;
    }
    const auto* bytes = static_cast<const uint8_t*>(address);
    if (family == AF_INET) {
        snprintf(text, length, "v4 %d.%d.%d.%d", bytes[0], bytes[1], bytes[2], bytes[3]);
    } else {
        snprintf(text, length, "v6 %02x..%02x", bytes[0], bytes[15]);
    }
    return text;
}

namespace {

using Utils = ClientSdfUtils;
using Map = std::map<int, int>;

// All values from -3 to 40 and the ends of the type.
std::vector<int> values() {
    std::vector<int> all = {INT32_MIN, INT32_MIN + 1, INT32_MAX - 1, INT32_MAX};
    for (int value = -3; value <= 40; ++value) all.push_back(value);
    return all;
}

template <typename In>
void expectValid(bool (*isValid)(In), const std::set<int>& valid) {
    for (const int value : values()) {
        EXPECT_EQ(isValid(static_cast<In>(value)), valid.count(value) == 1) << value;
    }
}

template <typename Out, typename In>
void expectMapped(Out (*convert)(In), const Map& mapped, int fallback) {
    for (const int value : values()) {
        const auto found = mapped.find(value);
        EXPECT_EQ(static_cast<int>(convert(static_cast<In>(value))),
                  found == mapped.end() ? fallback : found->second)
            << value;
    }
}

TEST(ClientSdfUtils, Validity) {
    expectValid(Utils::isSlotIdValid, {-1, 0, 1});
    expectValid(Utils::isLatencyLvlValid, {1, 2, 3, 4, 5, 6});
    expectValid(Utils::isProtocolValid, {0, 1, 2, 3});
    expectValid(Utils::isOodValid, {1, 2, 3});
    std::set<int> types;
    for (int type = 0; type <= 32; ++type) types.insert(type);
    expectValid(Utils::isFilterAppTypeValid, types);
}

TEST(ClientSdfUtils, SlotIdToProto) {
    expectMapped(Utils::clientSlotIdToProto, {{0, 1}, {1, 2}}, 0);
    EXPECT_EQ(Utils::clientSlotIdToProto(SDF_SLOT_ID_UNSPECIFIED), SdfProto::SLOT_ID_UNSPECIFIED);
}

TEST(ClientSdfUtils, LevelToProto) {
    expectMapped(Utils::clientLevelToProto, {{1, 0}, {2, 1}, {3, 2}, {4, 3}, {5, 4}, {6, 5}}, 0);
}

TEST(ClientSdfUtils, ProtocolToProto) {
    expectMapped(Utils::clientProtocolToProto, {{1, 1}, {2, 2}, {3, 3}}, 0);
}

TEST(ClientSdfUtils, OodToProto) {
    expectMapped(Utils::clientOodToProto, {{2, 1}, {3, 2}}, 0);
    EXPECT_EQ(Utils::clientOodToProto(SDF_OOD_UNSPECIFIED_LVL), SdfProto::SDF_OOD_UNSPECIFIED);
}

TEST(ClientSdfUtils, AppTypeToProto) {
    Map mapped;
    for (int n = 0; n <= 32; ++n) mapped[n] = n + 1;
    expectMapped(Utils::clientAppTypeToProto, mapped, 0);
    EXPECT_EQ(Utils::clientAppTypeToProto(SDF_APP_TYPE_UNSPECIFIED),
              SdfProto::APP_TYPE_UNSPECIFIED);
    EXPECT_EQ(Utils::clientAppTypeToProto(SDF_APP_TYPE_TRAFFIC_PRIO_HIGHEST),
              SdfProto::APP_TYPE_TRAFFIC_PRIO_HIGHEST);
    EXPECT_EQ(Utils::clientAppTypeToProto(SDF_APP_TYPE_TRAFFIC_PRIO_2),
              SdfProto::APP_TYPE_TRAFFIC_PRIO_2);
    EXPECT_EQ(Utils::clientAppTypeToProto(SDF_APP_TYPE_TRAFFIC_PRIO_31),
              SdfProto::APP_TYPE_TRAFFIC_PRIO_31);
    EXPECT_EQ(Utils::clientAppTypeToProto(SDF_APP_TYPE_TRAFFIC_PRIO_BE),
              SdfProto::APP_TYPE_TRAFFIC_PRIO_BE);
    EXPECT_EQ(Utils::clientAppTypeToProto(static_cast<SdfFilterAppType>(33)),
              SdfProto::APP_TYPE_NONE);
}

TEST(ClientSdfUtils, LevelToClient) {
    expectMapped(Utils::protoLevelToClient, {{0, 1}, {1, 2}, {2, 3}, {3, 4}, {4, 5}, {5, 6}}, 1);
}

TEST(ClientSdfUtils, ProtocolToClient) {
    expectMapped(Utils::protoProtocolToClient, {{1, 1}, {2, 2}, {3, 3}}, 0);
}

TEST(ClientSdfUtils, OodToClient) {
    expectMapped(Utils::protoOodToClient, {{1, 2}, {2, 3}}, 1);
}

TEST(ClientSdfUtils, AppTypeToClient) {
    Map mapped;
    for (int k = 2; k <= 33; ++k) mapped[k] = k - 1;
    expectMapped(Utils::protoAppTypeToClient, mapped, 0);
    EXPECT_EQ(Utils::protoAppTypeToClient(SdfProto::APP_TYPE_UNSPECIFIED),
              SDF_APP_TYPE_UNSPECIFIED);
}

TEST(ClientSdfUtils, FilterStatusToClient) {
    const LogCapture log;
    expectMapped<SdfFilterStatus, SdfProto::FilterStatus>(
        Utils::protoStatusToClient,
        {{1, 1}, {3, 3}, {4, 4}, {5, 5}, {6, 6}, {7, 7}, {8, 8}, {23, 2}}, 0);
    EXPECT_TRUE(log.lines().empty());
}

TEST(ClientSdfUtils, StatusToClient) {
    for (const int value : values()) {
        const LogCapture log;
        const bool known = value >= 0 && value <= 8;
        EXPECT_EQ(Utils::protoStatusToClient(static_cast<SdfProto::Status>(value)),
                  known ? value - 1 : -1)
            << value;
        EXPECT_EQ(log.lines(),
                  known ? std::vector<LogLine>{} : std::vector<LogLine>{logE("Unknown Status!")})
            << value;
    }
}

TEST(ClientSdfUtils, StatusToV2) {
    const Map mapped = {{-1, -1}, {0, 0}, {1, -2}, {2, -3}, {3, -4}, {4, -5}, {5, -7}, {6, -8}};
    for (const int value : values()) {
        const LogCapture log;
        const auto found = mapped.find(value);
        const bool known = found != mapped.end();
        EXPECT_EQ(Utils::statusToStatusV2(static_cast<status_e>(value)), known ? found->second : -1)
            << value;
        EXPECT_EQ(log.lines(),
                  known ? std::vector<LogLine>{} : std::vector<LogLine>{logE("Unknown Status!")})
            << value;
    }
}

// A storage of the family with these bytes from its third on.
sockaddr_storage storage(int family, const std::vector<uint8_t>& rest) {
    sockaddr_storage address{};
    address.ss_family = static_cast<sa_family_t>(family);
    std::copy(rest.begin(), rest.end(), reinterpret_cast<uint8_t*>(&address) + 2);
    return address;
}

// Port, IPv4 word (or flow information), and what follows.
const std::vector<uint8_t> kPortAndV4 = {0x01, 0xBB, 1, 2, 3, 4};
const std::vector<uint8_t> kPortAndV6 = {0x01, 0xBB, 0, 0, 0, 0,  0x20, 1,  2,  3,  4,
                                         5,    6,    7, 8, 9, 10, 11,   12, 13, 14, 0xFE};

std::string ipOf(const sockaddr_storage& address) {
    const LogCapture log;
    std::string ip = Utils::sdfGetIp(address);
    EXPECT_EQ(log.lines(), std::vector<LogLine>{logD(format("sdfGetIp with address type: %d\n",
                                                            int{address.ss_family}))});
    return ip;
}

TEST(ClientSdfUtils, GetIpByFamily) {
    EXPECT_EQ(ipOf(storage(AF_INET, kPortAndV4)), "v4 1.2.3.4");
    EXPECT_EQ(ipOf(storage(AF_INET, {})), "v4 0.0.0.0");
    EXPECT_EQ(ipOf(storage(AF_INET6, kPortAndV6)), "v6 20..fe");
    EXPECT_EQ(ipOf(storage(AF_INET6, {})), "v6 00..00");
    for (const int family : {1, 3, 5, 9, 11, 0xFFFF}) {
        EXPECT_EQ(ipOf(storage(family, kPortAndV6)), "") << family;
    }
}

TEST(ClientSdfUtils, GetIpOfNoFamilyGoesByContent) {
    EXPECT_EQ(ipOf(storage(AF_UNSPEC, {})), "");
    EXPECT_EQ(ipOf(storage(AF_UNSPEC, {0x01, 0xBB})), "");  // a port is no address
    EXPECT_EQ(ipOf(storage(AF_UNSPEC, kPortAndV4)), "v4 1.2.3.4");
    EXPECT_EQ(ipOf(storage(AF_UNSPEC, {0, 0, 0, 0, 0, 9})), "v4 0.0.0.9");
    EXPECT_EQ(ipOf(storage(AF_UNSPEC, kPortAndV6)), "v6 20..fe");
    // Any one of the sixteen bytes of the IPv6 address, the IPv4 word being 0.
    for (size_t i = 0; i < 16; ++i) {
        std::vector<uint8_t> rest(22);
        rest[6 + i] = 1;
        EXPECT_EQ(ipOf(storage(AF_UNSPEC, rest)).substr(0, 2), "v6") << i;
    }
    // The byte behind the address counts for nothing.
    EXPECT_EQ(ipOf(storage(AF_UNSPEC, std::vector<uint8_t>(22, 0))), "");
    std::vector<uint8_t> scope(26);
    scope[22] = 1;
    EXPECT_EQ(ipOf(storage(AF_UNSPEC, scope)), "");
    // IPv4 goes first.
    std::vector<uint8_t> both = kPortAndV6;
    both[5] = 7;
    EXPECT_EQ(ipOf(storage(AF_UNSPEC, both)), "v4 0.0.0.7");
}

TEST(ClientSdfUtils, GetIpThatCannotBeRenderedIsEmpty) {
    gNtopFails = true;
    ::testing::internal::CaptureStderr();
    EXPECT_EQ(ipOf(storage(AF_INET, kPortAndV4)), "");
    EXPECT_EQ(ipOf(storage(AF_INET6, kPortAndV6)), "");
    const std::string said = ::testing::internal::GetCapturedStderr();
    EXPECT_EQ(said, "inet_ntop: No space left on device\ninet_ntop: No space left on device\n");
    gNtopFails = false;
}

TEST(ClientSdfUtils, GetPort) {
    EXPECT_EQ(Utils::sdfGetPort(storage(AF_INET, kPortAndV4)), 443);
    EXPECT_EQ(Utils::sdfGetPort(storage(AF_INET6, kPortAndV6)), 443);
    EXPECT_EQ(Utils::sdfGetPort(storage(AF_INET, {0xFF, 0xFF})), 65535);
    EXPECT_EQ(Utils::sdfGetPort(storage(AF_INET, {})), 0);
    for (const int family : {0, 1, 3, 9, 11}) {
        EXPECT_EQ(Utils::sdfGetPort(storage(family, kPortAndV4)), 0) << family;
    }
}

TEST(ClientSdfUtils, IpVersion) {
    for (const char* text : {"0.0.0.0", "1.2.3.4", "255.255.255.255"}) {
        EXPECT_EQ(Utils::ipVersion(text), 4) << text;
    }
    for (const char* text : {"::", "::1", "2001:db8::1", "::ffff:1.2.3.4", "fe80::1:2:3:4"}) {
        EXPECT_EQ(Utils::ipVersion(text), 6) << text;
    }
    for (const char* text : {"", "1.2.3", "1.2.3.256", " 1.2.3.4", "1.2.3.4 ", "localhost",
                             ":::", "fe80::1%eth0", "1:2:3:4:5:6:7"}) {
        EXPECT_EQ(Utils::ipVersion(text), -1) << text;
    }
}

void expectStorage(const sockaddr_storage& address, int family, const std::vector<uint8_t>& rest) {
    const sockaddr_storage expected = storage(family, rest);
    EXPECT_EQ(memcmp(&address, &expected, sizeof expected), 0);
}

TEST(ClientSdfUtils, ConvertV6) {
    expectStorage(Utils::convertToSockAddrStorage(AF_INET6, "::1", 443), 10,
                  {0x01, 0xBB, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1});
}

TEST(ClientSdfUtils, ConvertV4) {
    expectStorage(Utils::convertToSockAddrStorage(AF_INET, "1.2.3.4", 443), 2, kPortAndV4);
}

TEST(ClientSdfUtils, ConvertTakesTheLow16BitsOfThePort) {
    expectStorage(Utils::convertToSockAddrStorage(AF_INET, "1.2.3.4", 0x501BB), 2, kPortAndV4);
    expectStorage(Utils::convertToSockAddrStorage(AF_INET, "0.0.0.0", -1), 2, {0xFF, 0xFF});
    expectStorage(Utils::convertToSockAddrStorage(AF_INET, "0.0.0.0", 65536), 2, {});
    expectStorage(Utils::convertToSockAddrStorage(AF_INET6, "::", INT32_MIN), 10, {});
}

TEST(ClientSdfUtils, ConvertOfTextThatIsNoAddressLeavesItZero) {
    for (const char* text : {"", "::1", "1.2.3", "1.2.3.4.5", "name"}) {
        expectStorage(Utils::convertToSockAddrStorage(AF_INET, text, 443), 2, {0x01, 0xBB});
    }
    for (const char* text : {"", "1.2.3.4", "1:2", "1:2:3:4:5:6:7:8:9"}) {
        expectStorage(Utils::convertToSockAddrStorage(AF_INET6, text, 443), 10, {0x01, 0xBB});
    }
}

TEST(ClientSdfUtils, ConvertOfAnotherFamilyIsAllZero) {
    for (const int family : {-1, 0, 1, 3, 5, 9, 11, INT32_MAX}) {
        expectStorage(Utils::convertToSockAddrStorage(family, "1.2.3.4", 443), 0, {});
    }
}

}  // namespace
