// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <utility>
#include <vector>

#include "platform/linux/src/UniqueFd.h"

// Frames on their way out, in pieces that are given up as soon as they are written. Not locked.
class OutBuffer {
  public:
    // append: appends one frame to the vector that it is given, or throws and leaves it as it was.
    // descriptors: go out with the frame's first byte.
    template <typename Append>
    void append(Append&& append, std::vector<SharedFd> descriptors = {}) {
        Piece& piece = lastPiece(!descriptors.empty());
        const size_t before = piece.bytes.size();
        append(&piece.bytes);
        mSize += piece.bytes.size() - before;
        if (!descriptors.empty()) piece.descriptors = std::move(descriptors);
    }

    // Writes what the socket takes. Returns 0, or the error number if the connection has failed.
    int writeTo(int socket) noexcept;

    // How much is not written yet.
    size_t size() const { return mSize; }
    bool empty() const { return mSize == 0; }
    void clear() noexcept;

  private:
    struct Piece {
        std::vector<uint8_t> bytes;
        std::vector<SharedFd> descriptors;  // of its first byte, until that is written
    };

    static ssize_t send(int socket, Piece& piece, size_t from) noexcept;
    // fresh: whether it is to be empty.
    Piece& lastPiece(bool fresh);

    std::deque<Piece> mPieces;
    size_t mWritten = 0;  // of the first piece
    size_t mSize = 0;
};
