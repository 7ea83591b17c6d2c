// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/src/OutBuffer.h"

#include <sys/socket.h>

#include <cerrno>

namespace {

constexpr size_t kPiece = size_t{64} * 1024;
// What a connection keeps while it has nothing to write, so that a small frame needs no memory.
constexpr size_t kKept = 4096;

}  // namespace

std::vector<uint8_t>& OutBuffer::lastPiece() {
    if (mPieces.empty() || mPieces.back().size() >= kPiece) mPieces.emplace_back();
    return mPieces.back();
}

int OutBuffer::writeTo(int socket) noexcept {
    while (mSize != 0) {
        std::vector<uint8_t>& piece = mPieces.front();
        const ssize_t sent = send(socket, piece.data() + mWritten, piece.size() - mWritten,
                                  MSG_NOSIGNAL | MSG_DONTWAIT);
        if (sent < 0 && errno == EINTR) continue;
        if (sent < 0) return errno == EAGAIN ? 0 : errno;
        mWritten += static_cast<size_t>(sent);
        mSize -= static_cast<size_t>(sent);
        if (mWritten != piece.size()) continue;
        mWritten = 0;
        if (mSize == 0 && piece.capacity() <= kKept) {
            piece.clear();
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
