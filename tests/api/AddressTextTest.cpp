// SPDX-License-Identifier: Apache-2.0
// Addresses there and back, with the C library's own rendering.
#include <gtest/gtest.h>
#include <sys/socket.h>

#include "api/ClientSdfUtils.h"

namespace {

void expectThereAndBack(int family, const char* text, int port) {
    const sockaddr_storage address = ClientSdfUtils::convertToSockAddrStorage(family, text, port);
    EXPECT_EQ(address.ss_family, family);
    EXPECT_EQ(ClientSdfUtils::sdfGetIp(address), text);
    EXPECT_EQ(ClientSdfUtils::sdfGetPort(address), port);
}

TEST(AddressText, ThereAndBack) {
    for (const char* text : {"0.0.0.0", "1.2.3.4", "255.255.255.255", "127.0.0.1"}) {
        expectThereAndBack(AF_INET, text, 443);
    }
    for (const char* text : {"::", "::1", "2001:db8::1", "::ffff:1.2.3.4",
                             "1111:2222:3333:4444:5555:6666:7777:8888"}) {
        expectThereAndBack(AF_INET6, text, 65535);
    }
}

TEST(AddressText, OfNoFamily) {
    sockaddr_storage address = ClientSdfUtils::convertToSockAddrStorage(AF_INET, "10.1.2.3", 0);
    address.ss_family = AF_UNSPEC;
    EXPECT_EQ(ClientSdfUtils::sdfGetIp(address), "10.1.2.3");
    address = ClientSdfUtils::convertToSockAddrStorage(AF_INET6, "2001:db8::1", 0);
    address.ss_family = AF_UNSPEC;
    EXPECT_EQ(ClientSdfUtils::sdfGetIp(address), "2001:db8::1");
    EXPECT_EQ(ClientSdfUtils::sdfGetIp(sockaddr_storage{}), "");
}

}  // namespace
