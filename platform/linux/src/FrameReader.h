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
    // with these bytes. May throw MalformedFrame, std::bad_alloc, and what `take` throws, upon
    // which nothing more may be fed.
    template <typename Take>
    void feed(const uint8_t* bytes, size_t size, Take&& take) {
        while (size != 0) {
            // A frame that came whole is taken from where it lies.
            if (mPart.empty() && size >= kFrameHeader && size >= wholeSize(bytes)) {
                const size_t whole = wholeSize(bytes);
                takeFrame(bytes, whole, take);
                bytes += whole;
                size -= whole;
                continue;
            }
            if (!fillTo(kFrameHeader, &bytes, &size)) break;
            const size_t whole = wholeSize(mPart.data());
            if (!fillTo(whole, &bytes, &size)) break;
            takeFrame(mPart.data(), whole, take);
            std::vector<uint8_t>().swap(mPart);
        }
    }

    // Whether all that was fed has been taken.
    bool empty() const { return mPart.empty(); }
    // How many bytes the unfinished frame takes.
    size_t capacity() const { return mPart.capacity(); }

  private:
    static uint32_t wordAt(const uint8_t* bytes) {
        uint32_t word = 0;
        memcpy(&word, bytes, sizeof word);
        return word;
    }

    // The size of a frame with its header. What is too long is not even waited for.
    static size_t wholeSize(const uint8_t* header) {
        const uint32_t size = wordAt(header);
        require(size <= kMaxBody, "a frame too long");
        return kFrameHeader + size;
    }

    template <typename Take>
    static void takeFrame(const uint8_t* frame, size_t whole, Take&& take) {
        take(FrameKind{wordAt(frame + sizeof(uint32_t))}, frame + kFrameHeader,
             whole - kFrameHeader);
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
