// SPDX-License-Identifier: Apache-2.0
#include <memory>
#include <utility>

#include "api/ClientSdfUtils.h"
#include "api/SdfRequest.h"

// Requests about latency.

namespace {

SdfProto::ServiceMsg setLatencyMessage(unsigned int id, SdfSlotID slot, SdfLatencyLvl first,
                                       SdfLatencyLvl second, bool flag) {
    SdfProto::ServiceMsg message;
    message.set_event_id(SdfProto::SET_LATENCY_LEVEL);
    message.set_unique_id(id);
    auto body = std::make_unique<SdfProto::SetLatencyLevel>();
    body->set_slot_id(ClientSdfUtils::clientSlotIdToProto(slot));
    body->set_first_level(ClientSdfUtils::clientLevelToProto(first));
    body->set_second_level(ClientSdfUtils::clientLevelToProto(second));
    body->set_level_flag(flag);
    sdf::setBody(message, &SdfProto::ServiceData::set_allocated_set_latency_level, std::move(body));
    return message;
}

}  // namespace

long long sdfSetLatencyLvl(SdfSlotID slot, SdfLatencyLvl first, SdfLatencyLvl second, bool flag,
                           SdfEffectiveLevelsCb cb) {
    return sdf::request([=](Sdf& client, SdkClientBase& transport) -> long long {
        if (cb == nullptr || !ClientSdfUtils::isSlotIdValid(slot) ||
            !ClientSdfUtils::isLatencyLvlValid(first) ||
            !ClientSdfUtils::isLatencyLvlValid(second)) {
            return SDF_V2_INVALID_ARG;
        }
        if (!client.mServiceUp) return SDF_V2_SERVICE_DOWN;
        const unsigned int id = client.recordRequest(&Sdf::mLatencyCbs, cb);
        try {
            transport.postEvent(sdf::makeEvent(setLatencyMessage(id, slot, first, second, flag)));
        } catch (...) {
            client.forgetRequest(&Sdf::mLatencyCbs, id);
            throw;
        }
        return id;
    });
}
