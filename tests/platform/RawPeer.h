// SPDX-License-Identifier: Apache-2.0
#pragma once

// A peer that speaks to a service through the bare socket.

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <chrono>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "platform/linux/src/Frame.h"
#include "platform/linux/src/UniqueFd.h"
#include "tests/support/Eventually.h"

using Bytes = std::vector<uint8_t>;
constexpr int kLimitMs = static_cast<int>(std::chrono::milliseconds(kLimit).count());
constexpr uint32_t kPingCode = 0x5f504e47;

inline OutgoingPayload payloadOf(const Bytes& data, const std::vector<uint32_t>& offsets,
                                 const std::vector<ObjectEntry>& objects) {
    return {data.data(), data.size(), offsets, objects};
}

inline Bytes hello() {
    Bytes frame;
    appendHello(&frame);
    return frame;
}

inline Bytes call(uint32_t handle, uint32_t code, uint64_t id = 1, const Bytes& data = {}) {
    Bytes frame;
    appendCall(&frame, id, handle, code, id == 0 ? FLAG_ONEWAY : 0,
               id == 0 ? std::vector<uint64_t>{} : std::vector<uint64_t>{id},
               payloadOf(data, {}, {}));
    return frame;
}

inline Bytes reply(uint64_t id, int32_t status = STATUS_OK) {
    Bytes frame;
    appendReply(&frame, id, status, payloadOf({}, {}, {}));
    return frame;
}

// What a call of a method of that interface begins with.
inline Bytes tokenOf(const std::string& descriptor) {
    Bytes bytes = {0, 0, 0, 0x80, 0xff, 0xff, 0xff, 0xff, 'R', 'D', 'N', 'V'};
    bytes.resize(16);
    bytes[12] = static_cast<uint8_t>(descriptor.size());
    for (const char c : descriptor) {
        bytes.push_back(static_cast<uint8_t>(c));
        bytes.push_back(0);
    }
    bytes.insert(bytes.end(), {0, 0});
    bytes.resize((bytes.size() + 3) / 4 * 4);
    return bytes;
}

// Returns a socket for which `give`, connect or bind, has been called with that path.
inline UniqueFd socketAt(const std::string& path, int (*give)(int, const sockaddr*, socklen_t)) {
    UniqueFd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    memcpy(address.sun_path, path.c_str(), path.size());
    EXPECT_EQ(give(fd.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    return fd;
}

// Connects to a service. directory: where it is registered.
inline UniqueFd connectTo(const std::string& directory, const std::string& service) {
    return socketAt(directory + "/" + service + ".service", connect);
}

inline bool sendAll(const UniqueFd& fd, const Bytes& bytes) {
    return send(fd.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL) ==
           static_cast<ssize_t>(bytes.size());
}

// Reads that many bytes; fewer if the other end closes first, or a generous limit passes.
inline Bytes receive(const UniqueFd& fd, size_t size) {
    Bytes bytes(size);
    size_t length = 0;
    while (length < size) {
        pollfd ready{fd.get(), POLLIN, 0};
        if (poll(&ready, 1, kLimitMs) != 1) break;
        const ssize_t received = recv(fd.get(), bytes.data() + length, size - length, 0);
        if (received <= 0) break;
        length += static_cast<size_t>(received);
    }
    bytes.resize(length);
    return bytes;
}

// Those bytes come next.
inline void expectBytes(const UniqueFd& fd, const Bytes& expected) {
    EXPECT_EQ(receive(fd, expected.size()), expected);
}

inline bool closedByOther(const UniqueFd& fd) {
    pollfd hungUp{fd.get(), POLLRDHUP, 0};
    return poll(&hungUp, 1, kLimitMs) == 1;
}

// Exchanges greetings over a new connection, and returns it.
inline UniqueFd greet(UniqueFd fd) {
    EXPECT_TRUE(sendAll(fd, hello()));
    expectBytes(fd, hello());
    return fd;
}
