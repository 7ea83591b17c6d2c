// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "platform/linux/src/Frame.h"

// Cuts what a connection brings into frames. Keeps no more than the frame that is not whole yet.
// Not locked.
class FrameReader {
  public:
    // take: called with the kind, the body and the size of the body of each frame that is whole
    // with these bytes; returns null, or what is wrong with it. Returns the first that is wrong,
    // upon which nothing more may be fed; null if there is none. May throw what `take` throws, and
    // std::bad_alloc, with the same effect.
    template <typename Take>
    const char* feed(const uint8_t* bytes, size_t size, Take&& take) {
        while (size != 0) {
            if (mPart.empty() && size >= kFrameHeader) {
                const Header header = headerAt(bytes);
                if (header.size > kMaxBody) return kTooLong;
                const size_t whole = kFrameHeader + header.size;
                if (size >= whole) {
                    const char* const wrong = take(header.kind, bytes + kFrameHeader, header.size);
                    if (wrong != nullptr) return wrong;
                    bytes += whole;
                    size -= whole;
                    continue;
                }
            }
            if (!fillTo(kFrameHeader, &bytes, &size)) break;
            const Header header = headerAt(mPart.data());
            // At once: what is too long is not even waited for.
            if (header.size > kMaxBody) return kTooLong;
            if (!fillTo(kFrameHeader + header.size, &bytes, &size)) break;
            const char* const wrong = take(header.kind, mPart.data() + kFrameHeader, header.size);
            if (wrong != nullptr) return wrong;
            std::vector<uint8_t>().swap(mPart);
        }
        return nullptr;
    }

    // Whether all that was fed has been taken.
    bool empty() const { return mPart.empty(); }
    // How many bytes the unfinished frame takes.
    size_t capacity() const { return mPart.capacity(); }

  private:
    struct Header {
        uint32_t size;
        FrameKind kind;
    };
    static constexpr char kTooLong[] = "a frame too long";

    static Header headerAt(const uint8_t* bytes) {
        Header header;
        memcpy(&header, bytes, sizeof header);
        return header;
    }

    // Moves bytes to mPart until it has at least `whole`; returns whether it has.
    bool fillTo(size_t whole, const uint8_t** bytes, size_t* size) {
        if (mPart.size() >= whole) return true;
        mPart.reserve(whole);
        const size_t moved = std::min(whole - mPart.size(), *size);
        mPart.insert(mPart.end(), *bytes, *bytes + moved);
        *bytes += moved;
        *size -= moved;
        return mPart.size() == whole;
    }

    std::vector<uint8_t> mPart;
};
