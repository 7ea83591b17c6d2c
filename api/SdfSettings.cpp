// SPDX-License-Identifier: Apache-2.0
#include "api/ClientSdfUtils.h"
#include "api/SdfRequest.h"

// Requests about latency, links and priorities, and registrations for reports.

namespace {

using SdfProto::ServiceData;

bool areLevelsValid(SdfLatencyLvl first, SdfLatencyLvl second) {
    return ClientSdfUtils::isLatencyLvlValid(first) && ClientSdfUtils::isLatencyLvlValid(second);
}

// The low bit of a bool's byte, which may be any number when a binding from another language passes
// it. Read as volatile: of a bool the compiler knows that it is 0 or 1.
bool lowBit(const bool& flag) {
    return (*reinterpret_cast<const volatile unsigned char*>(&flag) & 1U) != 0;
}

// A request that brings no reply. `valid(client)`: whether its arguments are; the others are
// makeMessage()'s.
template <typename Valid, typename... Message>
long long checkedRequest(const Valid& valid, const Message&... message) noexcept {
    return sdf::request([&](Sdf& client, SdkClientBase& transport) -> long long {
        if (!valid(client)) return SDF_V2_INVALID_ARG;
        if (!client.mServiceUp) return SDF_V2_SERVICE_DOWN;
        transport.postEvent(sdf::makeEvent(sdf::makeMessage(message...)));
        return SDF_V2_SUCCESS;
    });
}

// The same for one that changes a filter, which must be a confirmed one. `valid`: whether the other
// arguments are.
template <typename Body, typename Fill>
long long updateRequest(unsigned int filterId, bool valid, SdfProto::ServiceEventId event,
                        void (ServiceData::*setAllocated)(Body*), const Fill& fill) noexcept {
    return checkedRequest(
        [&](const Sdf& client) { return client.isFilterIdValid(filterId) && valid; }, event,
        setAllocated,
        [&](Body& body) {
            body.set_filter_id(filterId);
            fill(body);
        });
}

// The same for one that changes something else.
template <typename Body, typename Fill>
long long settingRequest(bool valid, SdfProto::ServiceEventId event,
                         void (ServiceData::*setAllocated)(Body*), const Fill& fill) noexcept {
    return checkedRequest([=](const Sdf&) { return valid; }, event, setAllocated, fill);
}

}  // namespace

long long sdfSetLatencyLvl(SdfSlotID slot, SdfLatencyLvl first, SdfLatencyLvl second, bool flag,
                           SdfEffectiveLevelsCb cb) {
    const bool levelFlag = lowBit(flag);
    return sdf::request([=](Sdf& client, SdkClientBase& transport) -> long long {
        if (cb == nullptr || !ClientSdfUtils::isSlotIdValid(slot) ||
            !areLevelsValid(first, second)) {
            return SDF_V2_INVALID_ARG;
        }
        if (!client.mServiceUp) return SDF_V2_SERVICE_DOWN;
        return sdf::postRecorded(
            client, transport, &Sdf::mLatencyCbs, cb,
            sdf::makeMessage(SdfProto::SET_LATENCY_LEVEL,
                             &ServiceData::set_allocated_set_latency_level, [=](auto& body) {
                                 body.set_slot_id(ClientSdfUtils::clientSlotIdToProto(slot));
                                 body.set_first_level(ClientSdfUtils::clientLevelToProto(first));
                                 body.set_second_level(ClientSdfUtils::clientLevelToProto(second));
                                 body.set_level_flag(levelFlag);
                             }));
    });
}

long long sdfUpdateLatencyLvl(unsigned int filter_id, SdfLatencyLvl first, SdfLatencyLvl second) {
    return updateRequest(filter_id, areLevelsValid(first, second), SdfProto::UPDATE_LATENCY_LEVEL,
                         &ServiceData::set_allocated_update_latency_level, [=](auto& body) {
                             body.set_first_level(ClientSdfUtils::clientLevelToProto(first));
                             body.set_second_level(ClientSdfUtils::clientLevelToProto(second));
                         });
}

long long sdfUpdateOod(unsigned int filter_id, SdfOod ood) {
    return updateRequest(filter_id, ClientSdfUtils::isOodValid(ood), SdfProto::UPDATE_OOD,
                         &ServiceData::set_allocated_update_ood,
                         [=](auto& body) { body.set_ood(ClientSdfUtils::clientOodToProto(ood)); });
}

long long sdfUpdatePdcpTimer(unsigned int filter_id, unsigned int pdcp_timer) {
    return updateRequest(filter_id, true, SdfProto::UPDATE_PDCP_TIMER,
                         &ServiceData::set_allocated_update_pdcp_timer,
                         [=](auto& body) { body.set_pdcp_timer(pdcp_timer); });
}

long long sdfUpdateTargetDscp(unsigned int filter_id, unsigned int target_dscp) {
    return updateRequest(filter_id, true, SdfProto::UPDATE_TARGET_DSCP,
                         &ServiceData::set_allocated_update_target_dscp,
                         [=](auto& body) { body.set_target_dscp(target_dscp); });
}

long long sdfUpdateDdsOod(SdfOod ood) {
    return settingRequest(ClientSdfUtils::isOodValid(ood), SdfProto::UPDATE_DDS_OOD,
                          &ServiceData::set_allocated_update_dds_ood,
                          [=](auto& body) { body.set_ood(ClientSdfUtils::clientOodToProto(ood)); });
}

long long sdfUpdateDdsPdcpTimer(unsigned int pdcp_timer) {
    return settingRequest(true, SdfProto::UPDATE_DDS_PDCP_TIMER,
                          &ServiceData::set_allocated_update_dds_pdcp_timer,
                          [=](auto& body) { body.set_pdcp_timer(pdcp_timer); });
}

long long sdfEnHighPerfGaming(bool enable) {
    return settingRequest(true, SdfProto::EN_HIGH_PERF_GAMING,
                          &ServiceData::set_allocated_en_high_perf_gaming,
                          [=](auto& body) { body.set_enable(enable); });
}

long long sdfPrioritizeData(SdfSlotID slot, bool enable) {
    return settingRequest(ClientSdfUtils::isSlotIdValid(slot), SdfProto::PRIORITIZE_DATA,
                          &ServiceData::set_allocated_prioritize_data, [=](auto& body) {
                              body.set_slot_id(ClientSdfUtils::clientSlotIdToProto(slot));
                              body.set_enable(enable);
                          });
}

long long sdfPrioritizeDds(bool enable) {
    return settingRequest(true, SdfProto::PRIORITIZE_DDS,
                          &ServiceData::set_allocated_prioritize_dds,
                          [=](auto& body) { body.set_enable(enable); });
}

long long sdfRegPriorityQueueReports(bool enable, unsigned int report_value,
                                     SdfPriorityQueueReportCb cb) {
    return sdf::registration(
        &Sdf::mPriorityQueueReportsCb, cb, SdfProto::REG_PRIORITY_QUEUE_REPORTS,
        &ServiceData::set_allocated_reg_priority_queue_reports, [=](auto& body) {
            body.set_enable(enable);
            body.set_report_value(report_value);
        });
}

long long sdfGetPriorityQueueReport(SdfPriorityQueueReportCb cb) {
    return sdf::registration(&Sdf::mGetPriorityQueueReportCb, cb,
                             SdfProto::GET_PRIORITY_QUEUE_REPORT);
}

long long sdfRegAutoFilterInfo(SdfAutoFilterInfoCb cb) {
    return sdf::keepCallback(&Sdf::mAutoFilterInfoCb, cb, [](SdkClientBase&) {
        // Made and dropped: the service tells of its automatic filters unasked, and is not sent
        // this request.
        (void)sdf::makeEvent(sdf::makeMessage(SdfProto::REG_AUTO_FILTER_INFO_IND));
    });
}

long long sdfRegFilterStatus(SdfFilterStatusCb cb) {
    return sdf::registration(&Sdf::mFilterStatusCb, cb, SdfProto::REG_FILTER_STATUS,
                             &ServiceData::set_allocated_reg_filter_status,
                             [](auto& body) { body.set_enable(1); });
}
