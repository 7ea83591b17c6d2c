// SPDX-License-Identifier: Apache-2.0
#include "api/SdfRequest.h"

#include <cstdint>
#include <vector>

namespace {

google::protobuf::ArenaOptions startingWith(char* space, size_t size) {
    google::protobuf::ArenaOptions options;
    options.initial_block = space;
    options.initial_block_size = size;
    return options;
}

}  // namespace

sdf::Message::Message(SdfProto::ServiceEventId event)
    : mArena(startingWith(mSpace.data(), mSpace.size())),
      mMessage(*google::protobuf::Arena::CreateMessage<SdfProto::ServiceMsg>(&mArena)) {
    mMessage.set_event_id(event);
}

std::shared_ptr<SdkClientEvent> sdf::Message::event(bool release) const {
    std::vector<uint8_t> bytes(mMessage.ByteSizeLong());
    mMessage.SerializeToArray(bytes.data(), static_cast<int>(bytes.size()));
    return std::make_shared<SdkClientEvent>(LUM_SDK_CLIENT_SDF, bytes, release);
}
