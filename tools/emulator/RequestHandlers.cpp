// SPDX-License-Identifier: Apache-2.0
#include "tools/emulator/RequestHandlers.h"

#include <algorithm>
#include <iterator>
#include <string>
#include <utility>

namespace {

using SdfProto::ClientMsg;
using SdfProto::ServiceData;
using SdfProto::ServiceMsg;

constexpr uint32_t kLastDscp = 63;

ClientMsg reply(SdfProto::ClientEventId event, const ServiceMsg& request) {
    ClientMsg message;
    message.set_event_id(event);
    message.set_unique_id(request.unique_id());
    return message;
}

void nothingChanged(const FeatureState& feature, const ServiceMsg& request,
                    const std::string& why) {
    feature.notice(SdfProto::ServiceEventId_Name(request.event_id()) + ": " + why);
}

// A client that disables leaves; that is not dealt with here.
Answers enable(FeatureState& /*feature*/, const ServiceMsg& /*request*/) {
    ClientMsg answer;
    answer.set_event_id(SdfProto::STATUS_IND);
    answer.mutable_data()->mutable_status_msg()->set_status(SdfProto::SERVICE_UP);
    return {answer};
}

// There is no traffic that could stand in the way: the levels in force are those asked for.
Answers setLatencyLevel(FeatureState& feature, const ServiceMsg& request) {
    const SdfProto::SetLatencyLevel& wanted = request.data().set_latency_level();
    if (SdfProto::SlotId_IsValid(wanted.slot_id()))
        feature.link().levels[wanted.slot_id()] = wanted;
    ClientMsg answer = reply(SdfProto::EFFECTIVE_LEVELS_CB, request);
    auto* const levels = answer.mutable_data()->mutable_effective_levels_cb();
    levels->set_first_level(wanted.first_level());
    levels->set_second_level(wanted.second_level());
    return {answer};
}

Answers prioritizeDds(FeatureState& feature, const ServiceMsg& request) {
    feature.link().prioritizeDds = request.data().prioritize_dds().enable();
    return {};
}

Answers prioritizeData(FeatureState& feature, const ServiceMsg& request) {
    const SdfProto::PrioritizeData& wanted = request.data().prioritize_data();
    if (!SdfProto::SlotId_IsValid(wanted.slot_id())) {
        nothingChanged(feature, request, "slot_id is unknown");
    } else if (wanted.enable()) {
        feature.link().prioritizedSlots.insert(wanted.slot_id());
    } else {
        feature.link().prioritizedSlots.erase(wanted.slot_id());
    }
    return {};
}

Answers updateDdsOod(FeatureState& feature, const ServiceMsg& request) {
    const SdfProto::SdfOod ood = request.data().update_dds_ood().ood();
    if (SdfProto::SdfOod_IsValid(ood)) {
        feature.link().ddsOod = ood;
    } else {
        nothingChanged(feature, request, "ood is unknown");
    }
    return {};
}

Answers updateDdsPdcpTimer(FeatureState& feature, const ServiceMsg& request) {
    feature.link().ddsPdcpTimer = request.data().update_dds_pdcp_timer().pdcp_timer();
    return {};
}

Answers enHighPerfGaming(FeatureState& feature, const ServiceMsg& request) {
    return feature.setGaming(request.data().en_high_perf_gaming().enable());
}

Answers regAutoFilterInfo(FeatureState& feature, const ServiceMsg& /*request*/) {
    return feature.registerAutoFilterInfo();
}

Answers regFilterStatus(FeatureState& feature, const ServiceMsg& request) {
    feature.registerFilterStatus(request.data().reg_filter_status().enable() != 0);
    return {};
}

Answers regPriorityQueueReports(FeatureState& feature, const ServiceMsg& request) {
    const SdfProto::RegPriorityQueueReports& wanted = request.data().reg_priority_queue_reports();
    if (wanted.enable()) {
        feature.reports().start(wanted.report_value());
    } else {
        feature.reports().stop();
    }
    return {};
}

Answers getPriorityQueueReport(FeatureState& feature, const ServiceMsg& request) {
    ClientMsg report = feature.reports().make();
    report.set_unique_id(request.unique_id());
    return {report};
}

Answers addFilter(FeatureState& feature, const ServiceMsg& request) {
    ClientMsg answer = reply(SdfProto::ADD_FILTER_CB, request);
    *answer.mutable_data()->mutable_add_filter_cb()->mutable_filter() =
        feature.filters().add(request.unique_id(), request.data().add_filter());
    return {answer};
}

SdfProto::FilterInfo infoOf(const Filter& filter) {
    const SdfProto::AddFilter& description = filter.description;
    SdfProto::FilterInfo info;
    info.set_filter_id(filter.id);
    info.set_status(filter.status);
    info.set_status_string(filter.status == SdfProto::FILTER_ACTIVE ? "active" : "not yet active");
    info.set_first_level(description.first_level());
    info.set_second_level(description.second_level());
    info.set_pdcp_timer(description.pdcp_timer());
    info.set_ood(description.ood());
    return info;
}

Answers getFilters(FeatureState& feature, const ServiceMsg& request) {
    ClientMsg answer = reply(SdfProto::GET_FILTER_CB, request);
    auto* const list = answer.mutable_data()->mutable_get_filter_cb();
    for (const Filter& filter : feature.filters().all()) *list->add_filters() = infoOf(filter);
    return {answer};
}

// The indication of the state of filters, for those who have registered; nothing if there are none.
Answers indication(const FeatureState& feature, const std::vector<SdfProto::FilterData>& filters) {
    const auto message = feature.filterStatus(filters);
    return message ? Answers{*message} : Answers{};
}

// Updates the filter that the request names.
//   wrong: what is wrong with the values asked for, null if nothing is
//   change: makes them the filter's
//   text: goes with the filter's state
template <typename Change>
Answers update(FeatureState& feature, const ServiceMsg& request, uint32_t id, const char* wrong,
               Change change, const char* text) {
    Filter* const filter = feature.filters().touch(id);
    if (filter == nullptr) {
        nothingChanged(feature, request, "there is no filter " + std::to_string(id));
        return {};
    }
    if (wrong != nullptr) {
        nothingChanged(feature, request, wrong);
        return {};
    }
    change(*filter);
    return indication(feature, {filterData(id, filter->status, text)});
}

Answers updateLatencyLevel(FeatureState& feature, const ServiceMsg& request) {
    const SdfProto::UpdateLatencyLevel& wanted = request.data().update_latency_level();
    const bool known = SdfProto::Level_IsValid(wanted.first_level()) &&
                       SdfProto::Level_IsValid(wanted.second_level());
    const auto change = [&](Filter& filter) {
        filter.description.set_first_level(wanted.first_level());
        filter.description.set_second_level(wanted.second_level());
    };
    return update(feature, request, wanted.filter_id(), known ? nullptr : "a level is unknown",
                  change, "latency levels updated");
}

Answers updateOod(FeatureState& feature, const ServiceMsg& request) {
    const SdfProto::UpdateOod& wanted = request.data().update_ood();
    const bool known = SdfProto::SdfOod_IsValid(wanted.ood());
    const auto change = [&](Filter& filter) { filter.description.set_ood(wanted.ood()); };
    return update(feature, request, wanted.filter_id(), known ? nullptr : "ood is unknown", change,
                  "OOD updated");
}

Answers updatePdcpTimer(FeatureState& feature, const ServiceMsg& request) {
    const SdfProto::UpdatePdcpTimer& wanted = request.data().update_pdcp_timer();
    const auto change = [&](Filter& filter) {
        filter.description.set_pdcp_timer(wanted.pdcp_timer());
    };
    return update(feature, request, wanted.filter_id(), nullptr, change, "PDCP timer updated");
}

Answers updateTargetDscp(FeatureState& feature, const ServiceMsg& request) {
    const SdfProto::UpdateTargetDscp& wanted = request.data().update_target_dscp();
    const bool possible = wanted.target_dscp() <= kLastDscp;
    const auto change = [&](Filter& filter) { filter.targetDscp = wanted.target_dscp(); };
    return update(feature, request, wanted.filter_id(),
                  possible ? nullptr : "target_dscp is not 0 to 63", change, "target DSCP updated");
}

Answers deleteFilter(FeatureState& feature, const ServiceMsg& request) {
    const uint32_t id = request.data().delete_filter().filter_id();
    if (!feature.filters().remove(id)) {
        nothingChanged(feature, request, "there is no filter " + std::to_string(id));
        return {};
    }
    return indication(feature, {filterData(id, SdfProto::FILTER_DELETED, "deleted")});
}

// One indication lists them all.
Answers deleteAllFilter(FeatureState& feature, const ServiceMsg& /*request*/) {
    std::vector<SdfProto::FilterData> deleted;
    while (!feature.filters().all().empty()) {
        const uint32_t id = feature.filters().all().front().id;
        feature.filters().remove(id);
        deleted.push_back(filterData(id, SdfProto::FILTER_DELETED, "deleted"));
    }
    return indication(feature, deleted);
}

constexpr RequestHandler kHandlers[] = {
    {SdfProto::ENABLE, ServiceData::kEnableMsg, enable},
    {SdfProto::SET_LATENCY_LEVEL, ServiceData::kSetLatencyLevel, setLatencyLevel},
    {SdfProto::PRIORITIZE_DDS, ServiceData::kPrioritizeDds, prioritizeDds},
    {SdfProto::REG_FILTER_STATUS, ServiceData::kRegFilterStatus, regFilterStatus},
    {SdfProto::ADD_FILTER, ServiceData::kAddFilter, addFilter},
    {SdfProto::GET_FILTERS, ServiceData::MSG_TYPE_NOT_SET, getFilters},
    {SdfProto::UPDATE_LATENCY_LEVEL, ServiceData::kUpdateLatencyLevel, updateLatencyLevel},
    {SdfProto::UPDATE_OOD, ServiceData::kUpdateOod, updateOod},
    {SdfProto::UPDATE_PDCP_TIMER, ServiceData::kUpdatePdcpTimer, updatePdcpTimer},
    {SdfProto::DELETE_FILTER, ServiceData::kDeleteFilter, deleteFilter},
    {SdfProto::DELETE_ALL_FILTER, ServiceData::MSG_TYPE_NOT_SET, deleteAllFilter},
    {SdfProto::UPDATE_DDS_OOD, ServiceData::kUpdateDdsOod, updateDdsOod},
    {SdfProto::UPDATE_DDS_PDCP_TIMER, ServiceData::kUpdateDdsPdcpTimer, updateDdsPdcpTimer},
    {SdfProto::EN_HIGH_PERF_GAMING, ServiceData::kEnHighPerfGaming, enHighPerfGaming},
    {SdfProto::PRIORITIZE_DATA, ServiceData::kPrioritizeData, prioritizeData},
    {SdfProto::REG_PRIORITY_QUEUE_REPORTS, ServiceData::kRegPriorityQueueReports,
     regPriorityQueueReports},
    {SdfProto::GET_PRIORITY_QUEUE_REPORT, ServiceData::MSG_TYPE_NOT_SET, getPriorityQueueReport},
    {SdfProto::REG_AUTO_FILTER_INFO_IND, ServiceData::MSG_TYPE_NOT_SET, regAutoFilterInfo},
    {SdfProto::UPDATE_TARGET_DSCP, ServiceData::kUpdateTargetDscp, updateTargetDscp},
};

}  // namespace

const RequestHandler* findHandler(SdfProto::ServiceEventId event) {
    const auto* const found =
        std::find_if(std::begin(kHandlers), std::end(kHandlers),
                     [&](const RequestHandler& handler) { return handler.event == event; });
    return found == std::end(kHandlers) ? nullptr : found;
}
