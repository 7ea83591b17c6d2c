// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <google/protobuf/arena.h>

#include <array>
#include <cstddef>

namespace sdf {

// An arena for one message, which takes memory only for what is beyond `Size` bytes. On an arena
// nothing is destroyed one by one: what memory ran out for while it was made could not be.
template <size_t Size>
class StackArena {
  public:
    StackArena() : mArena(startingWith(mSpace)) {}
    StackArena(const StackArena&) = delete;
    StackArena& operator=(const StackArena&) = delete;

    // Lives as long as the arena. May throw std::bad_alloc.
    template <typename Message>
    Message& make() {
        return *google::protobuf::Arena::CreateMessage<Message>(&mArena);
    }

  private:
    using Space = std::array<char, Size>;

    static google::protobuf::ArenaOptions startingWith(Space& space) {
        google::protobuf::ArenaOptions options;
        options.initial_block = space.data();
        options.initial_block_size = space.size();
        return options;
    }

    alignas(8) Space mSpace;
    google::protobuf::Arena mArena;
};

}  // namespace sdf
