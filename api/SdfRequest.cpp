// SPDX-License-Identifier: Apache-2.0
#include "api/SdfRequest.h"

#include <cstdint>
#include <vector>

sdf::Message::Message(SdfProto::ServiceEventId event)
    : mMessage(mArena.make<SdfProto::ServiceMsg>()) {
    mMessage.set_event_id(event);
}

std::shared_ptr<SdkClientEvent> sdf::Message::event(bool release) const {
    std::vector<uint8_t> none;
    auto event = std::make_shared<SdkClientEvent>(LUM_SDK_CLIENT_SDF, none, release);
    event->mBlob.resize(mMessage.ByteSizeLong());
    mMessage.SerializeWithCachedSizesToArray(event->mBlob.data());
    return event;
}
