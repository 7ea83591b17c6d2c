// SPDX-License-Identifier: Apache-2.0
#include <google/protobuf/arena.h>

#include <algorithm>
#include <climits>

#include "api/ClientSdfUtils.h"
#include "api/Sdf.h"

// What the service sends, and how it reaches the application. An application callback may destroy
// the client or create another: after each, only a client that is still the current one goes on.

void Sdf::blobListener(SdkClientBase::SdkStatus status, const std::vector<uint8_t>& bytes) {
    // Keeps the object through the callbacks below. Whatever arrives for an earlier client ends
    // here.
    const std::shared_ptr<Sdf> self = current();
    if (self.get() != this) return;
    if (status == SdkClientBase::SDK_SEND_FAILED) {
        handleSdfStatusInd(SDF_STATUS_INTERNAL_ERROR);
    } else if (status == SdkClientBase::SDK_SERVICE_DOWN) {
        handleSdfStatusInd(SDF_STATUS_SERVICE_DOWN);
    } else if (status == SdkClientBase::SDK_BLOB_RECEIVED) {
        // On an arena, where nothing is destroyed one by one: a message that memory ran out for
        // while it was read could not be.
        google::protobuf::Arena arena;
        auto& message = *google::protobuf::Arena::CreateMessage<SdfProto::ClientMsg>(&arena);
        // A message that is broken somewhere still counts as far as it could be read.
        (void)message.ParseFromArray(bytes.data(),
                                     static_cast<int>(std::min<size_t>(bytes.size(), INT_MAX)));
        dispatch(message);
    }
}

void Sdf::dispatch(const SdfProto::ClientMsg& message) {
    switch (message.event_id()) {
        case SdfProto::STATUS_IND:
            onStatusInd(message.data());
            break;
        case SdfProto::EFFECTIVE_LEVELS_CB:
            onEffectiveLevels(message.unique_id(), message.data());
            break;
        default:
            break;
    }
}

void Sdf::onStatusInd(const SdfProto::ClientData& data) {
    if (!data.has_status_msg()) return;
    handleSdfStatusInd(ClientSdfUtils::protoStatusToClient(data.status_msg().status()));
}

void Sdf::onEffectiveLevels(uint64_t uniqueId, const SdfProto::ClientData& data) {
    if (!data.has_effective_levels_cb()) return;
    const auto id = static_cast<unsigned int>(uniqueId);
    const SdfEffectiveLevelsCb cb = findRequest(&Sdf::mLatencyCbs, id);
    if (cb == nullptr) return;
    const SdfProto::EffectiveLevelsCb& levels = data.effective_levels_cb();
    cb(id, ClientSdfUtils::protoLevelToClient(levels.first_level()),
       ClientSdfUtils::protoLevelToClient(levels.second_level()));
    if (isCurrent()) forgetRequest(&Sdf::mLatencyCbs, id);
}
