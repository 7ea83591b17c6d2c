// SPDX-License-Identifier: Apache-2.0
#include <arpa/inet.h>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <netinet/in.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <map>
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
    static const auto real = reinterpret_cast<decltype(&inet_ntop)>(dlsym(RTLD_NEXT, "inet_ntop"));
    return real(family, address, text, length);
}

namespace {

using Utils = ClientSdfUtils;
using Map = std::map<int, int>;
using Lines = std::vector<LogLine>;

const Lines kUnknown = {logE("Unknown Status!")};

// first -> value, first + 1 -> value + 1, and so on, `count` of them.
Map run(int first, int value, int count) {
    Map mapped;
    for (int i = 0; i < count; ++i) mapped[first + i] = value + i;
    return mapped;
}

// All values from -3 to 40 and the ends of the type: those in `mapped` become what it says, without
// a log, the others `fallback`, with these lines.
template <typename Out, typename In>
void expectMapped(Out (*convert)(In), const Map& mapped, int fallback, const Lines& lines = {}) {
    std::vector<int> values = {INT32_MIN, INT32_MIN + 1, INT32_MAX - 1, INT32_MAX};
    for (int value = -3; value <= 40; ++value) values.push_back(value);
    for (const int value : values) {
        const LogCapture log;
        const auto found = mapped.find(value);
        const bool known = found != mapped.end();
        EXPECT_EQ(static_cast<int>(convert(static_cast<In>(value))),
                  known ? found->second : fallback)
            << value;
        EXPECT_EQ(log.lines(), known ? Lines{} : lines) << value;
    }
}

TEST(ClientSdfUtils, Validity) {
    expectMapped(Utils::isSlotIdValid, {{-1, 1}, {0, 1}, {1, 1}}, 0);
    expectMapped(Utils::isLatencyLvlValid, {{1, 1}, {2, 1}, {3, 1}, {4, 1}, {5, 1}, {6, 1}}, 0);
    expectMapped(Utils::isProtocolValid, {{0, 1}, {1, 1}, {2, 1}, {3, 1}}, 0);
    expectMapped(Utils::isOodValid, {{1, 1}, {2, 1}, {3, 1}}, 0);
    Map types;
    for (int type = 0; type <= 32; ++type) types[type] = 1;
    expectMapped(Utils::isFilterAppTypeValid, types, 0);
}

TEST(ClientSdfUtils, ToProto) {
    expectMapped(Utils::clientSlotIdToProto, {{0, 1}, {1, 2}}, 0);
    expectMapped(Utils::clientLevelToProto, run(1, 0, 6), 0);
    expectMapped(Utils::clientProtocolToProto, run(1, 1, 3), 0);
    expectMapped(Utils::clientOodToProto, {{2, 1}, {3, 2}}, 0);
    expectMapped(Utils::clientAppTypeToProto, run(0, 1, 33), 0);
}

TEST(ClientSdfUtils, ToClient) {
    expectMapped(Utils::protoLevelToClient, run(0, 1, 6), 1);
    expectMapped(Utils::protoProtocolToClient, run(1, 1, 3), 0);
    expectMapped(Utils::protoOodToClient, {{1, 2}, {2, 3}}, 1);
    expectMapped(Utils::protoAppTypeToClient, run(2, 1, 32), 0);
}

TEST(ClientSdfUtils, Statuses) {
    Map states = run(3, 3, 6);
    states[1] = 1;
    states[23] = 2;
    expectMapped<SdfFilterStatus, SdfProto::FilterStatus>(Utils::protoStatusToClient, states, 0);
    expectMapped<status_e, SdfProto::Status>(Utils::protoStatusToClient, run(0, -1, 9), -1,
                                             kUnknown);
    expectMapped(Utils::statusToStatusV2,
                 {{-1, -1}, {0, 0}, {1, -2}, {2, -3}, {3, -4}, {4, -5}, {5, -7}, {6, -8}}, -1,
                 kUnknown);
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
const std::vector<uint8_t> kPortAndV6 = {0x01, 0xBB, 0, 0, 0, 0, 0x20, 1, 0x0D, 0xB8, 0,
                                         0,    0,    0, 0, 0, 0, 0,    0, 0,    0,    0xFE};

std::string ipOf(const sockaddr_storage& address) {
    const LogCapture log;
    std::string ip = Utils::sdfGetIp(address);
    EXPECT_EQ(log.lines(),
              Lines{logD(format("sdfGetIp with address type: %d\n", int{address.ss_family}))});
    return ip;
}

TEST(ClientSdfUtils, GetIpByFamily) {
    EXPECT_EQ(ipOf(storage(AF_INET, kPortAndV4)), "1.2.3.4");
    EXPECT_EQ(ipOf(storage(AF_INET, {})), "0.0.0.0");
    EXPECT_EQ(ipOf(storage(AF_INET6, kPortAndV6)), "2001:db8::fe");
    EXPECT_EQ(ipOf(storage(AF_INET6, {})), "::");
    for (const int family : {1, 3, 5, 9, 11, 0xFFFF}) {
        EXPECT_EQ(ipOf(storage(family, kPortAndV6)), "") << family;
    }
}

TEST(ClientSdfUtils, GetIpOfNoFamilyGoesByContent) {
    EXPECT_EQ(ipOf(storage(AF_UNSPEC, {})), "");
    EXPECT_EQ(ipOf(storage(AF_UNSPEC, {0x01, 0xBB})), "");  // a port is no address
    EXPECT_EQ(ipOf(storage(AF_UNSPEC, kPortAndV4)), "1.2.3.4");
    EXPECT_EQ(ipOf(storage(AF_UNSPEC, {0, 0, 0, 0, 0, 9})), "0.0.0.9");
    EXPECT_EQ(ipOf(storage(AF_UNSPEC, kPortAndV6)), "2001:db8::fe");
    // Any one of the sixteen bytes of the IPv6 address, the IPv4 word being 0, and not the one
    // behind.
    for (size_t i = 0; i < 17; ++i) {
        std::vector<uint8_t> rest(23);
        rest[6 + i] = 1;
        EXPECT_EQ(ipOf(storage(AF_UNSPEC, rest)).empty(), i == 16) << i;
    }
    // IPv4 goes first.
    std::vector<uint8_t> both = kPortAndV6;
    both[5] = 7;
    EXPECT_EQ(ipOf(storage(AF_UNSPEC, both)), "0.0.0.7");
}

TEST(ClientSdfUtils, GetIpThatCannotBeRenderedIsEmpty) {
    gNtopFails = true;
    ::testing::internal::CaptureStderr();
    EXPECT_EQ(ipOf(storage(AF_INET, kPortAndV4)), "");
    EXPECT_EQ(ipOf(storage(AF_INET6, kPortAndV6)), "");
    EXPECT_EQ(::testing::internal::GetCapturedStderr(),
              "inet_ntop: No space left on device\ninet_ntop: No space left on device\n");
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

TEST(ClientSdfUtils, Convert) {
    std::vector<uint8_t> loopback(22);
    loopback[0] = 0x01;
    loopback[1] = 0xBB;
    loopback[21] = 1;
    struct Row {
        int family;
        const char* text;
        int port;
        sockaddr_storage expected;
    };
    std::vector<Row> rows = {
        {AF_INET, "1.2.3.4", 443, storage(2, kPortAndV4)},
        {AF_INET6, "::1", 443, storage(10, loopback)},
        {AF_INET6, "2001:db8::fe", 443, storage(10, kPortAndV6)},
        // Of the port the low 16 bits.
        {AF_INET, "1.2.3.4", 0x501BB, storage(2, kPortAndV4)},
        {AF_INET, "0.0.0.0", -1, storage(2, {0xFF, 0xFF})},
        {AF_INET, "0.0.0.0", 65536, storage(2, {})},
        {AF_INET6, "::", INT32_MIN, storage(10, {})},
    };
    // Text that is no address of the family leaves it zero; another family makes all zero.
    for (const char* text : {"", "::1", "1.2.3", "1.2.3.4.5", "name"}) {
        rows.push_back({AF_INET, text, 443, storage(2, {0x01, 0xBB})});
    }
    for (const char* text : {"", "1.2.3.4", "1:2", "1:2:3:4:5:6:7:8:9"}) {
        rows.push_back({AF_INET6, text, 443, storage(10, {0x01, 0xBB})});
    }
    for (const int family : {-1, 0, 1, 3, 5, 9, 11, INT32_MAX}) {
        rows.push_back({family, "1.2.3.4", 443, storage(0, {})});
    }
    for (const auto& [family, text, port, expected] : rows) {
        const sockaddr_storage address = Utils::convertToSockAddrStorage(family, text, port);
        EXPECT_EQ(memcmp(&address, &expected, sizeof expected), 0)
            << family << " " << text << " " << port;
    }
}

}  // namespace
