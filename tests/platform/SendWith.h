// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/socket.h>

#include <cstdint>
#include <cstring>
#include <vector>

// Sends bytes, with descriptors beside their first one if there are any. Returns whether all went.
inline bool sendWith(int socket, const uint8_t* bytes, size_t size, const std::vector<int>& fds) {
    iovec part{const_cast<uint8_t*>(bytes), size};
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    std::vector<size_t> control(CMSG_SPACE(fds.size() * sizeof(int)) / sizeof(size_t));
    if (!fds.empty()) {
        message.msg_control = control.data();
        message.msg_controllen = control.size() * sizeof(size_t);
        cmsghdr* const header = CMSG_FIRSTHDR(&message);
        header->cmsg_level = SOL_SOCKET;
        header->cmsg_type = SCM_RIGHTS;
        header->cmsg_len = CMSG_LEN(fds.size() * sizeof(int));
        memcpy(CMSG_DATA(header), fds.data(), fds.size() * sizeof(int));
    }
    return sendmsg(socket, &message, MSG_NOSIGNAL) == static_cast<ssize_t>(size);
}
