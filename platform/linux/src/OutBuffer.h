// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <utility>
#include <vector>

// Frames on their way out, in pieces that are given up as soon as they are written. Not locked.
class OutBuffer {
  public:
    // append: appends one frame to the vector that it is given, or throws and leaves it as it was.
    template <typename Append>
    void append(Append&& append) {
        std::vector<uint8_t>& piece = lastPiece();
        const size_t before = piece.size();
        append(&piece);
        mSize += piece.size() - before;
    }

    // Writes what the socket takes. Returns 0, or the error number if the connection has failed.
    int writeTo(int socket) noexcept;

    // How much is not written yet.
    size_t size() const { return mSize; }
    bool empty() const { return mSize == 0; }
    void clear() noexcept;

  private:
    std::vector<uint8_t>& lastPiece();

    std::deque<std::vector<uint8_t>> mPieces;
    size_t mWritten = 0;  // of the first piece
    size_t mSize = 0;
};
