// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <climits>

#include "api/ClientSdfUtils.h"
#include "api/Sdf.h"
#include "api/StackArena.h"
#include "utils/Log.h"

// What the service sends, and how it reaches the application. An application callback may destroy
// the client or create another: after each, only a client that is still the current one goes on.

namespace {

bool isAlive(SdfFilterStatus status) {
    return status <= SDF_FILTER_ACTIVE;
}

// What applications see of a filter that the service made.
SdfAddFilterInfo describe(const SdfProto::AddFilter& filter) {
    // Both ends of a flow are of one family, so the source's text decides.
    const int family = ClientSdfUtils::ipVersion(filter.src_ip()) == 4 ? AF_INET : AF_INET6;
    SdfAddFilterInfo info{};
    info.src_addr =
        ClientSdfUtils::convertToSockAddrStorage(family, filter.src_ip(), filter.src_port());
    info.dest_addr =
        ClientSdfUtils::convertToSockAddrStorage(family, filter.dest_ip(), filter.dest_port());
    info.protocol = ClientSdfUtils::protoProtocolToClient(filter.protocol());
    info.app_type = ClientSdfUtils::protoAppTypeToClient(filter.app_type());
    return info;
}

}  // namespace

void Sdf::blobListener(SdkClientBase::SdkStatus status, const std::vector<uint8_t>& bytes) {
    // Whatever arrives for an earlier client ends here.
    if (!isCurrent()) return;
    if (status == SdkClientBase::SDK_SEND_FAILED) {
        handleSdfStatusInd(SDF_STATUS_INTERNAL_ERROR);
    } else if (status == SdkClientBase::SDK_SERVICE_DOWN) {
        handleSdfStatusInd(SDF_STATUS_SERVICE_DOWN);
    } else if (status == SdkClientBase::SDK_BLOB_RECEIVED) {
        // Enough for every message but those with more than about twenty entries.
        sdf::StackArena<2048> arena;
        auto& message = arena.make<SdfProto::ClientMsg>();
        // A message that is broken somewhere still counts as far as it could be read.
        (void)message.ParseFromArray(bytes.data(),
                                     static_cast<int>(std::min<size_t>(bytes.size(), INT_MAX)));
        dispatch(message);
    }
}

void Sdf::dispatch(const SdfProto::ClientMsg& message) {
    const SdfProto::ClientData& data = message.data();
    // A body that does not belong to the event is dropped.
    switch (message.event_id()) {
        case SdfProto::STATUS_IND:
            if (data.has_status_msg()) onStatusInd(data.status_msg());
            break;
        case SdfProto::EFFECTIVE_LEVELS_CB:
            if (data.has_effective_levels_cb()) {
                onEffectiveLevels(static_cast<unsigned int>(message.unique_id()),
                                  data.effective_levels_cb());
            }
            break;
        case SdfProto::FILTER_STATUS_INDICATION:
            if (data.has_filter_status_indication()) {
                onFilterStatus(data.filter_status_indication());
            }
            break;
        case SdfProto::ADD_FILTER_CB:
            if (data.has_add_filter_cb()) onAddFilter(data.add_filter_cb());
            break;
        case SdfProto::GET_FILTER_CB:
            if (data.has_get_filter_cb()) onGetFilters(data.get_filter_cb());
            break;
        case SdfProto::PRIORITY_QUEUE_REPORT_CB:
            if (data.has_priority_queue_report_cb()) {
                onPriorityQueueReport(data.priority_queue_report_cb());
            }
            break;
        case SdfProto::AUTO_FILTER_INFO_IND:
            if (data.has_auto_filter_info_ind()) onAutoFilterInfo(data.auto_filter_info_ind());
            break;
        default: break;
    }
}

void Sdf::onStatusInd(const SdfProto::StatusInd& body) {
    handleSdfStatusInd(ClientSdfUtils::protoStatusToClient(body.status()));
}

void Sdf::onEffectiveLevels(unsigned int id, const SdfProto::EffectiveLevelsCb& body) {
    const SdfEffectiveLevelsCb cb = findRequest(&Sdf::mLatencyCbs, id);
    if (cb == nullptr) return;
    cb(id, ClientSdfUtils::protoLevelToClient(body.first_level()),
       ClientSdfUtils::protoLevelToClient(body.second_level()));
    if (isCurrent()) forgetRequest(&Sdf::mLatencyCbs, id);
}

void Sdf::onFilterStatus(const SdfProto::FilterStatusIndication& body) {
    for (const SdfProto::FilterData& filter : body.filters()) {
        const SdfFilterStatus status = ClientSdfUtils::protoStatusToClient(filter.status());
        if (!isAlive(status)) endFilter(filter.filter_id());
        if (const auto cb = readSlot(&Sdf::mFilterStatusCb)) cb(filter.filter_id(), status);
        if (!isCurrent()) return;
    }
}

void Sdf::onAddFilter(const SdfProto::AddFilterCb& body) {
    const unsigned int id = body.filter().filter_id();
    const SdfFilterStatus status = ClientSdfUtils::protoStatusToClient(body.filter().status());
    if (const auto cb = findRequest(&Sdf::mFilterCbs, id)) cb(id, status);
    if (isCurrent()) settleAdd(id, isAlive(status));
}

// The slot is emptied first: what is put there from inside the callback is for the next list.
void Sdf::onGetFilters(const SdfProto::GetFilterCb& body) {
    const auto cb = replaceSlot<SdfGetFiltersCb>(&Sdf::mGetFiltersCb, nullptr);
    if (cb == nullptr) return;
    for (const SdfProto::FilterInfo& filter : body.filters()) {
        cb(filter.filter_id(), ClientSdfUtils::protoStatusToClient(filter.status()),
           ClientSdfUtils::protoLevelToClient(filter.first_level()),
           ClientSdfUtils::protoLevelToClient(filter.second_level()),
           ClientSdfUtils::protoOodToClient(filter.ood()), filter.pdcp_timer());
        LUM_LOGD("GET_FILTER_CB cb sent, filter %u", filter.filter_id());
        if (!isCurrent()) return;
    }
}

// The one-shot slot as in onGetFilters().
void Sdf::onPriorityQueueReport(const SdfProto::PriorityQueueReportCb& body) {
    const auto once =
        replaceSlot<SdfPriorityQueueReportCb>(&Sdf::mGetPriorityQueueReportCb, nullptr);
    for (const SdfProto::Entry& entry : body.entries()) {
        const auto always = readSlot(&Sdf::mPriorityQueueReportsCb);
        for (const auto cb : {always, once}) {
            if (cb == nullptr) continue;
            cb(entry.entry_key(), entry.first_value(), entry.second_value());
            if (!isCurrent()) return;
        }
        if (once == nullptr) LUM_LOGD("PRIORITY_QUEUE_REPORT_CB missing cb");
        if (once == nullptr && always == nullptr) LUM_LOGD("PRIORITY_QUEUE_REPORT_CB no cb made");
    }
}

void Sdf::onAutoFilterInfo(const SdfProto::AutoFilterInfoInd& body) const {
    const auto cb = readSlot(&Sdf::mAutoFilterInfoCb);
    if (cb == nullptr) return;
    SdfAddFilterInfo info{};
    if (ClientSdfUtils::protoStatusToClient(body.status()) == SDF_FILTER_ACTIVE) {
        info = describe(body.filter());
    }
    cb(body.filter_id(), info);
}
