// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <vector>

#include "platform/linux/src/UniqueFd.h"

// The descriptors that come over a connection, until the frames that they belong to are whole. Not
// locked.
class ReceivedDescriptors {
  public:
    // As recv(), which does not wait; keeps the descriptors that come with the bytes. Throws
    // MalformedFrame for too many; may throw std::bad_alloc.
    ssize_t receive(int socket, uint8_t* bytes, size_t size);

    // Hands out those of the next whole frame that has any.
    // count: how many it says to have; taken: set to them.
    // Returns false, and hands out none, if this process had no descriptor left for all of them.
    // Throws MalformedFrame if others came.
    bool take(size_t count, std::vector<SharedFd>* taken);

    // Everything received has been cut into frames. unfinished: whether the last is not whole.
    // Throws MalformedFrame if there are some that belong to no frame.
    void check(bool unfinished) const;

    size_t size() const;
    void clear() noexcept { mBatches.clear(); }

  private:
    // Those of one frame.
    struct Batch {
        std::vector<SharedFd> descriptors;
        bool complete;
    };

    std::deque<Batch> mBatches;
};
