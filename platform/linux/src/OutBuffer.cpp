// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/src/OutBuffer.h"

#include <sys/socket.h>

#include <cerrno>
#include <cstring>

#include "platform/linux/src/Frame.h"

namespace {

constexpr size_t kPiece = size_t{64} * 1024;
// What a connection keeps while it has nothing to write, so that a small frame needs no memory.
constexpr size_t kKept = 4096;

}  // namespace

OutBuffer::Piece& OutBuffer::lastPiece(bool fresh) {
    const size_t most = fresh ? 1 : kPiece;
    if (mPieces.empty() || mPieces.back().bytes.size() >= most) mPieces.emplace_back();
    return mPieces.back();
}

ssize_t OutBuffer::send(int socket, Piece& piece, size_t from) noexcept {
    iovec bytes{piece.bytes.data() + from, piece.bytes.size() - from};
    msghdr message{};
    message.msg_iov = &bytes;
    message.msg_iovlen = 1;
    alignas(cmsghdr) char control[CMSG_SPACE(kMaxDescriptors * sizeof(int))] = {};
    const size_t count = piece.descriptors.size();
    if (count != 0) {
        message.msg_control = control;
        message.msg_controllen = CMSG_SPACE(count * sizeof(int));
        cmsghdr* const header = CMSG_FIRSTHDR(&message);
        header->cmsg_level = SOL_SOCKET;
        header->cmsg_type = SCM_RIGHTS;
        header->cmsg_len = CMSG_LEN(count * sizeof(int));
        for (size_t i = 0; i < count; ++i) {
            const int fd = piece.descriptors[i]->get();
            memcpy(CMSG_DATA(header) + i * sizeof fd, &fd, sizeof fd);
        }
    }
    return sendmsg(socket, &message, MSG_NOSIGNAL | MSG_DONTWAIT);
}

int OutBuffer::writeTo(int socket) noexcept {
    while (mSize != 0) {
        Piece& piece = mPieces.front();
        const ssize_t sent = send(socket, piece, mWritten);
        if (sent < 0 && errno == EINTR) continue;
        if (sent < 0) return errno == EAGAIN ? 0 : errno;
        mWritten += static_cast<size_t>(sent);
        mSize -= static_cast<size_t>(sent);
        piece.descriptors.clear();
        if (mWritten != piece.bytes.size()) continue;
        mWritten = 0;
        if (mSize == 0 && piece.bytes.capacity() <= kKept) {
            piece.bytes.clear();
        } else {
            mPieces.pop_front();
        }
    }
    return 0;
}

void OutBuffer::clear() noexcept {
    mPieces.clear();
    mWritten = 0;
    mSize = 0;
}
