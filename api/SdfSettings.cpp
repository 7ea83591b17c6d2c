// SPDX-License-Identifier: Apache-2.0
#include "api/ClientSdfUtils.h"
#include "api/SdfRequest.h"

// Requests about latency, links and priorities, and registrations for reports.

using sdf::Message;
using sdf::request;

namespace {

// The low bit of a bool's byte, which may be any number when a binding from another language passes
// it. Read as volatile: of a bool the compiler knows that it is 0 or 1.
bool lowBit(const bool& flag) {
    return (*reinterpret_cast<const volatile unsigned char*>(&flag) & 1U) != 0;
}

}  // namespace

long long sdfSetLatencyLvl(SdfSlotID slot, SdfLatencyLvl first, SdfLatencyLvl second, bool flag,
                           SdfEffectiveLevelsCb cb) {
    const bool levelFlag = lowBit(flag);
    return request([=](Sdf& client, SdkClientBase& transport) -> long long {
        if (cb == nullptr || !ClientSdfUtils::isSlotIdValid(slot) ||
            !ClientSdfUtils::isLatencyLvlValid(first) ||
            !ClientSdfUtils::isLatencyLvlValid(second)) {
            return SDF_V2_INVALID_ARG;
        }
        if (!client.mServiceUp) return SDF_V2_SERVICE_DOWN;
        Message message(SdfProto::SET_LATENCY_LEVEL);
        SdfProto::SetLatencyLevel& body = *message.data().mutable_set_latency_level();
        body.set_slot_id(ClientSdfUtils::clientSlotIdToProto(slot));
        body.set_first_level(ClientSdfUtils::clientLevelToProto(first));
        body.set_second_level(ClientSdfUtils::clientLevelToProto(second));
        body.set_level_flag(levelFlag);
        sdf::Recorded recorded(client, &Sdf::mLatencyCbs, cb);
        message.setId(recorded.id());
        transport.postEvent(message.event());
        return recorded.keep();
    });
}

long long sdfUpdateLatencyLvl(unsigned int filter_id, SdfLatencyLvl first, SdfLatencyLvl second) {
    return request([=](Sdf& client, SdkClientBase& transport) -> long long {
        if (!client.isFilterIdValid(filter_id) || !ClientSdfUtils::isLatencyLvlValid(first) ||
            !ClientSdfUtils::isLatencyLvlValid(second)) {
            return SDF_V2_INVALID_ARG;
        }
        if (!client.mServiceUp) return SDF_V2_SERVICE_DOWN;
        Message message(SdfProto::UPDATE_LATENCY_LEVEL);
        SdfProto::UpdateLatencyLevel& body = *message.data().mutable_update_latency_level();
        body.set_filter_id(filter_id);
        body.set_first_level(ClientSdfUtils::clientLevelToProto(first));
        body.set_second_level(ClientSdfUtils::clientLevelToProto(second));
        transport.postEvent(message.event());
        return SDF_V2_SUCCESS;
    });
}

long long sdfUpdateOod(unsigned int filter_id, SdfOod ood) {
    return request([=](Sdf& client, SdkClientBase& transport) -> long long {
        if (!client.isFilterIdValid(filter_id) || !ClientSdfUtils::isOodValid(ood)) {
            return SDF_V2_INVALID_ARG;
        }
        if (!client.mServiceUp) return SDF_V2_SERVICE_DOWN;
        Message message(SdfProto::UPDATE_OOD);
        SdfProto::UpdateOod& body = *message.data().mutable_update_ood();
        body.set_filter_id(filter_id);
        body.set_ood(ClientSdfUtils::clientOodToProto(ood));
        transport.postEvent(message.event());
        return SDF_V2_SUCCESS;
    });
}

long long sdfUpdatePdcpTimer(unsigned int filter_id, unsigned int pdcp_timer) {
    return request([=](Sdf& client, SdkClientBase& transport) -> long long {
        if (!client.isFilterIdValid(filter_id)) return SDF_V2_INVALID_ARG;
        if (!client.mServiceUp) return SDF_V2_SERVICE_DOWN;
        Message message(SdfProto::UPDATE_PDCP_TIMER);
        SdfProto::UpdatePdcpTimer& body = *message.data().mutable_update_pdcp_timer();
        body.set_filter_id(filter_id);
        body.set_pdcp_timer(pdcp_timer);
        transport.postEvent(message.event());
        return SDF_V2_SUCCESS;
    });
}

long long sdfUpdateTargetDscp(unsigned int filter_id, unsigned int target_dscp) {
    return request([=](Sdf& client, SdkClientBase& transport) -> long long {
        if (!client.isFilterIdValid(filter_id)) return SDF_V2_INVALID_ARG;
        if (!client.mServiceUp) return SDF_V2_SERVICE_DOWN;
        Message message(SdfProto::UPDATE_TARGET_DSCP);
        SdfProto::UpdateTargetDscp& body = *message.data().mutable_update_target_dscp();
        body.set_filter_id(filter_id);
        body.set_target_dscp(target_dscp);
        transport.postEvent(message.event());
        return SDF_V2_SUCCESS;
    });
}

long long sdfUpdateDdsOod(SdfOod ood) {
    return request([=](Sdf& client, SdkClientBase& transport) -> long long {
        if (!ClientSdfUtils::isOodValid(ood)) return SDF_V2_INVALID_ARG;
        if (!client.mServiceUp) return SDF_V2_SERVICE_DOWN;
        Message message(SdfProto::UPDATE_DDS_OOD);
        message.data().mutable_update_dds_ood()->set_ood(ClientSdfUtils::clientOodToProto(ood));
        transport.postEvent(message.event());
        return SDF_V2_SUCCESS;
    });
}

long long sdfUpdateDdsPdcpTimer(unsigned int pdcp_timer) {
    return request([=](Sdf& client, SdkClientBase& transport) -> long long {
        if (!client.mServiceUp) return SDF_V2_SERVICE_DOWN;
        Message message(SdfProto::UPDATE_DDS_PDCP_TIMER);
        message.data().mutable_update_dds_pdcp_timer()->set_pdcp_timer(pdcp_timer);
        transport.postEvent(message.event());
        return SDF_V2_SUCCESS;
    });
}

long long sdfEnHighPerfGaming(bool enable) {
    return request([=](Sdf& client, SdkClientBase& transport) -> long long {
        if (!client.mServiceUp) return SDF_V2_SERVICE_DOWN;
        Message message(SdfProto::EN_HIGH_PERF_GAMING);
        message.data().mutable_en_high_perf_gaming()->set_enable(enable);
        transport.postEvent(message.event());
        return SDF_V2_SUCCESS;
    });
}

long long sdfPrioritizeData(SdfSlotID slot, bool enable) {
    return request([=](Sdf& client, SdkClientBase& transport) -> long long {
        if (!ClientSdfUtils::isSlotIdValid(slot)) return SDF_V2_INVALID_ARG;
        if (!client.mServiceUp) return SDF_V2_SERVICE_DOWN;
        Message message(SdfProto::PRIORITIZE_DATA);
        SdfProto::PrioritizeData& body = *message.data().mutable_prioritize_data();
        body.set_slot_id(ClientSdfUtils::clientSlotIdToProto(slot));
        body.set_enable(enable);
        transport.postEvent(message.event());
        return SDF_V2_SUCCESS;
    });
}

long long sdfPrioritizeDds(bool enable) {
    return request([=](Sdf& client, SdkClientBase& transport) -> long long {
        if (!client.mServiceUp) return SDF_V2_SERVICE_DOWN;
        Message message(SdfProto::PRIORITIZE_DDS);
        message.data().mutable_prioritize_dds()->set_enable(enable);
        transport.postEvent(message.event());
        return SDF_V2_SUCCESS;
    });
}

// The callback of a registration stays in its slot, also when its message cannot be posted.

long long sdfRegPriorityQueueReports(bool enable, unsigned int report_value,
                                     SdfPriorityQueueReportCb cb) {
    return request([=](Sdf& client, SdkClientBase& transport) -> long long {
        if (cb == nullptr) return SDF_V2_INVALID_ARG;
        if (!client.mServiceUp) return SDF_V2_SERVICE_DOWN;
        client.replaceSlot(&Sdf::mPriorityQueueReportsCb, cb);
        Message message(SdfProto::REG_PRIORITY_QUEUE_REPORTS);
        SdfProto::RegPriorityQueueReports& body =
            *message.data().mutable_reg_priority_queue_reports();
        body.set_enable(enable);
        body.set_report_value(report_value);
        transport.postEvent(message.event());
        return SDF_V2_SUCCESS;
    });
}

long long sdfGetPriorityQueueReport(SdfPriorityQueueReportCb cb) {
    return request([=](Sdf& client, SdkClientBase& transport) -> long long {
        if (cb == nullptr) return SDF_V2_INVALID_ARG;
        if (!client.mServiceUp) return SDF_V2_SERVICE_DOWN;
        client.replaceSlot(&Sdf::mGetPriorityQueueReportCb, cb);
        transport.postEvent(Message(SdfProto::GET_PRIORITY_QUEUE_REPORT).event());
        return SDF_V2_SUCCESS;
    });
}

long long sdfRegAutoFilterInfo(SdfAutoFilterInfoCb cb) {
    return request([=](Sdf& client, SdkClientBase& /*transport*/) -> long long {
        if (cb == nullptr) return SDF_V2_INVALID_ARG;
        if (!client.mServiceUp) return SDF_V2_SERVICE_DOWN;
        client.replaceSlot(&Sdf::mAutoFilterInfoCb, cb);
        // Made and dropped: the service reports its automatic filters unasked, and is not sent this
        // request.
        (void)Message(SdfProto::REG_AUTO_FILTER_INFO_IND).event();
        return SDF_V2_SUCCESS;
    });
}

long long sdfRegFilterStatus(SdfFilterStatusCb cb) {
    return request([=](Sdf& client, SdkClientBase& transport) -> long long {
        if (cb == nullptr) return SDF_V2_INVALID_ARG;
        if (!client.mServiceUp) return SDF_V2_SERVICE_DOWN;
        client.replaceSlot(&Sdf::mFilterStatusCb, cb);
        Message message(SdfProto::REG_FILTER_STATUS);
        message.data().mutable_reg_filter_status()->set_enable(1);
        transport.postEvent(message.event());
        return SDF_V2_SUCCESS;
    });
}
