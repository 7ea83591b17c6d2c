// SPDX-License-Identifier: Apache-2.0
#include "tools/emulator/FeatureState.h"

#include <nlohmann/json.hpp>
#include <utility>

namespace {

using Json = nlohmann::ordered_json;
using SdfProto::ClientMsg;

// The flow of a game, between addresses that are set aside for examples. No field is 0.
SdfProto::AddFilter gamingFlow() {
    SdfProto::AddFilter flow;
    flow.set_src_ip("192.0.2.10");
    flow.set_dest_ip("198.51.100.20");
    flow.set_src_port(50000);
    flow.set_dest_port(27015);
    flow.set_protocol(SdfProto::PROTOCOL_UDP);
    flow.set_filter_arg6(6);
    flow.set_first_level(SdfProto::L2);
    flow.set_second_level(SdfProto::L3);
    flow.set_pdcp_timer(50);
    flow.set_ood(SdfProto::SDF_OOD_ENABLED);
    flow.set_filter_arg11(11);
    flow.set_app_type(SdfProto::APP_TYPE_TRAFFIC_PRIO_HIGHEST);
    flow.set_filter_arg13(13);
    flow.set_src_port_range(100);
    flow.set_dest_port_range(20);
    flow.set_filter_arg16(16);
    flow.set_filter_arg17(17);
    flow.set_filter_arg18(18);
    flow.set_filter_arg19(19);
    flow.set_filter_arg20(20);
    return flow;
}

ClientMsg autoFilterInfo(uint32_t id, SdfProto::FilterStatus status) {
    ClientMsg message;
    message.set_event_id(SdfProto::AUTO_FILTER_INFO_IND);
    auto* const info = message.mutable_data()->mutable_auto_filter_info_ind();
    info->set_filter_id(id);
    *info->mutable_filter() = gamingFlow();
    info->set_status(status);
    return message;
}

// The name in the protocol, or the number in its place.
std::string levelName(SdfProto::Level level) {
    return SdfProto::Level_IsValid(level) ? SdfProto::Level_Name(level) : std::to_string(level);
}

Json orNull(const std::optional<uint32_t>& value) {
    return value ? Json(*value) : Json();
}

Json describeLevels(const LinkSettings& link) {
    Json all = Json::array();
    for (const auto& [slot, levels] : link.levels) {
        all.push_back({
            {"slot_id", SdfProto::SlotId_Name(slot)},
            {"first_level", levelName(levels.first_level())},
            {"second_level", levelName(levels.second_level())},
            {"level_flag", levels.level_flag()},
        });
    }
    return all;
}

Json describeSlots(const std::set<SdfProto::SlotId>& slots) {
    Json all = Json::array();
    for (const SdfProto::SlotId slot : slots) all.push_back(SdfProto::SlotId_Name(slot));
    return all;
}

Json describeFlow(const SdfProto::AddFilter& flow) {
    return {
        {"src_ip", flow.src_ip()},
        {"dest_ip", flow.dest_ip()},
        {"src_port", flow.src_port()},
        {"dest_port", flow.dest_port()},
        {"protocol", SdfProto::Protocol_Name(flow.protocol())},
        {"filter_arg6", flow.filter_arg6()},
        {"first_level", levelName(flow.first_level())},
        {"second_level", levelName(flow.second_level())},
        {"pdcp_timer", flow.pdcp_timer()},
        {"ood", SdfProto::SdfOod_Name(flow.ood())},
        {"filter_arg11", flow.filter_arg11()},
        {"app_type", SdfProto::AppType_Name(flow.app_type())},
        {"filter_arg13", flow.filter_arg13()},
        {"src_port_range", flow.src_port_range()},
        {"dest_port_range", flow.dest_port_range()},
        {"filter_arg16", flow.filter_arg16()},
        {"filter_arg17", flow.filter_arg17()},
        {"filter_arg18", flow.has_filter_arg18() ? Json(flow.filter_arg18()) : Json()},
        {"filter_arg19", flow.filter_arg19()},
        {"filter_arg20", flow.filter_arg20()},
    };
}

Json describeFilter(const Filter& filter) {
    Json described{
        {"filter_id", filter.id},
        {"status", SdfProto::FilterStatus_Name(filter.status)},
    };
    described.update(describeFlow(filter.description));
    described["target_dscp"] = orNull(filter.targetDscp);
    return described;
}

}  // namespace

FeatureState::FeatureState(uid_t uid, Surroundings surroundings)
    : mSurroundings(std::move(surroundings)),
      mFilters(uid, mSurroundings.policy, mSurroundings.timeline,
               [this](const SdfProto::FilterData& data) {
                   const auto message = filterStatus({data});
                   if (message) mSurroundings.send(*message);
               }),
      mReports(mFilters, mSurroundings.timeline, mSurroundings.send) {}

std::optional<ClientMsg> FeatureState::filterStatus(
    const std::vector<SdfProto::FilterData>& filters) const {
    if (!mWantsFilterStatus || filters.empty()) return std::nullopt;
    ClientMsg message;
    message.set_event_id(SdfProto::FILTER_STATUS_INDICATION);
    auto* const indication = message.mutable_data()->mutable_filter_status_indication();
    for (const SdfProto::FilterData& filter : filters) *indication->add_filters() = filter;
    return message;
}

std::vector<ClientMsg> FeatureState::setGaming(bool on) {
    if (on == mAutoFilter.has_value()) return {};
    if (on) {
        mAutoFilter = mNextAutoFilter++;
        return autoFilters();
    }
    const uint32_t ended = *mAutoFilter;
    mAutoFilter.reset();
    return {autoFilterInfo(ended, SdfProto::FILTER_DELETED)};
}

std::vector<ClientMsg> FeatureState::registerAutoFilterInfo() {
    mWantsAutoFilterInfo = true;
    return autoFilters();
}

std::vector<ClientMsg> FeatureState::autoFilters() const {
    if (!mAutoFilter) return {};
    return {autoFilterInfo(*mAutoFilter, SdfProto::FILTER_ACTIVE)};
}

Json FeatureState::describe() const {
    const auto& reports = mReports.registration();
    Json described{
        {"filter_status", mWantsFilterStatus},
        {"auto_filter_info", mWantsAutoFilterInfo},
        {"report_value", reports ? Json(reports->milliseconds) : Json()},
        {"report_interval_ms", reports ? Json(reports->interval.count()) : Json()},
        {"high_perf_gaming", mAutoFilter.has_value()},
        {"auto_filter_id", orNull(mAutoFilter)},
        {"prioritize_dds", mLink.prioritizeDds},
        {"dds_ood", mLink.ddsOod ? Json(SdfProto::SdfOod_Name(*mLink.ddsOod)) : Json()},
        {"dds_pdcp_timer", orNull(mLink.ddsPdcpTimer)},
        {"prioritized_slots", describeSlots(mLink.prioritizedSlots)},
        {"levels", describeLevels(mLink)},
    };
    Json& filters = described["filters"] = Json::array();
    for (const Filter& filter : mFilters.all()) filters.push_back(describeFilter(filter));
    return described;
}
