// SPDX-License-Identifier: Apache-2.0
#include "tools/emulator/RequestHandlers.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace {

using SdfProto::ClientMsg;
using SdfProto::ServiceData;
using SdfProto::ServiceMsg;

void handleEnable(const ServiceMsg& request, Outcome* outcome) {
    if (!request.data().enable_msg().enable()) {
        outcome->leaves = true;
        return;
    }
    ClientMsg answer;
    answer.set_event_id(SdfProto::STATUS_IND);
    answer.mutable_data()->mutable_status_msg()->set_status(SdfProto::SERVICE_UP);
    outcome->answers.push_back(std::move(answer));
}

// There is no traffic that could stand in the way: the levels in force are those asked for.
void handleSetLatencyLevel(const ServiceMsg& request, Outcome* outcome) {
    const SdfProto::SetLatencyLevel& wanted = request.data().set_latency_level();
    ClientMsg answer;
    answer.set_event_id(SdfProto::EFFECTIVE_LEVELS_CB);
    answer.set_unique_id(request.unique_id());
    SdfProto::EffectiveLevelsCb* const levels =
        answer.mutable_data()->mutable_effective_levels_cb();
    levels->set_first_level(wanted.first_level());
    levels->set_second_level(wanted.second_level());
    outcome->answers.push_back(std::move(answer));
}

constexpr RequestHandler kHandlers[] = {
    {SdfProto::ENABLE, ServiceData::kEnableMsg, handleEnable},
    {SdfProto::SET_LATENCY_LEVEL, ServiceData::kSetLatencyLevel, handleSetLatencyLevel},
};

}  // namespace

const RequestHandler* findHandler(SdfProto::ServiceEventId event) {
    const auto* const found =
        std::find_if(std::begin(kHandlers), std::end(kHandlers),
                     [&](const RequestHandler& handler) { return handler.event == event; });
    return found == std::end(kHandlers) ? nullptr : found;
}
