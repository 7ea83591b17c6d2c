// SPDX-License-Identifier: Apache-2.0
#include "tools/emulator/FeatureState.h"

#include <utility>

namespace {

using SdfProto::ClientMsg;

const char* onOff(bool on) {
    return on ? "on" : "off";
}

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

std::string describeLink(const LinkSettings& link) {
    std::string text = std::string(" prioritize_dds=") + onOff(link.prioritizeDds);
    if (link.ddsOod) text += " dds_ood=" + SdfProto::SdfOod_Name(*link.ddsOod);
    if (link.ddsPdcpTimer) text += " dds_pdcp_timer=" + std::to_string(*link.ddsPdcpTimer);
    for (const SdfProto::SlotId slot : link.prioritizedSlots) {
        text += " prioritized=" + SdfProto::SlotId_Name(slot);
    }
    for (const auto& [slot, levels] : link.levels) {
        text += " levels=" + SdfProto::SlotId_Name(slot) + ":" +
                SdfProto::Level_Name(levels.first_level()) + "," +
                SdfProto::Level_Name(levels.second_level());
    }
    return text;
}

std::string describeFilter(const Filter& filter) {
    const SdfProto::AddFilter& what = filter.description;
    return "  filter " + std::to_string(filter.id) + " " +
           SdfProto::FilterStatus_Name(filter.status) + " " + what.src_ip() + "#" +
           std::to_string(what.src_port()) + " > " + what.dest_ip() + "#" +
           std::to_string(what.dest_port()) + " " + SdfProto::Protocol_Name(what.protocol()) + " " +
           SdfProto::Level_Name(what.first_level()) + " " +
           SdfProto::Level_Name(what.second_level()) + " " + SdfProto::SdfOod_Name(what.ood()) +
           " " + SdfProto::AppType_Name(what.app_type()) +
           " pdcp_timer=" + std::to_string(what.pdcp_timer()) +
           " target_dscp=" + std::to_string(filter.targetDscp);
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

std::vector<ClientMsg> FeatureState::autoFilters() const {
    if (!mAutoFilter) return {};
    return {autoFilterInfo(*mAutoFilter, SdfProto::FILTER_ACTIVE)};
}

std::vector<std::string> FeatureState::describe() const {
    std::vector<std::string> lines{"filters=" + std::to_string(mFilters.all().size()) +
                                   " filter_status=" + onOff(mWantsFilterStatus) +
                                   " reports=" + std::to_string(mReports.interval().count()) +
                                   "ms" + " gaming=" + onOff(mAutoFilter.has_value()) +
                                   describeLink(mLink)};
    for (const Filter& filter : mFilters.all()) lines.push_back(describeFilter(filter));
    return lines;
}
