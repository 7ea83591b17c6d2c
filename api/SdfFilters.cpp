// SPDX-License-Identifier: Apache-2.0
#include <cstdint>
#include <string>

#include "api/ClientSdfUtils.h"
#include "api/SdfRequest.h"

// Requests that add, list and delete filters. A filter's id is the id of the request that adds it.

using sdf::Message;
using sdf::request;

namespace {

bool isRangeValid(uint16_t port, uint16_t range) {
    return port + range <= UINT16_MAX;
}

bool isValid(const SdfAddFilterInfo& info) {
    return ClientSdfUtils::isLatencyLvlValid(info.first_level) &&
           ClientSdfUtils::isLatencyLvlValid(info.second_level) &&
           ClientSdfUtils::isProtocolValid(info.protocol) &&
           ClientSdfUtils::isFilterAppTypeValid(info.app_type) &&
           ClientSdfUtils::isOodValid(info.ood) &&
           isRangeValid(ClientSdfUtils::sdfGetPort(info.src_addr), info.src_port_range) &&
           isRangeValid(ClientSdfUtils::sdfGetPort(info.dest_addr), info.dest_port_range);
}

// Both ways to add a filter. `extra` is sent only if hasExtra, then also when it is 0.
long long sdfAddFilterInternal(const SdfAddFilterInfo& info, bool hasExtra, unsigned char extra,
                               SdfFilterStatusCb cb) {
    return request([&](Sdf& client, SdkClientBase& transport) -> long long {
        if (!client.mServiceUp) return SDF_V2_SERVICE_DOWN;
        const std::string source = ClientSdfUtils::sdfGetIp(info.src_addr);
        const std::string destination = ClientSdfUtils::sdfGetIp(info.dest_addr);
        if (source.empty() || cb == nullptr || destination.empty() || !isValid(info)) {
            return SDF_V2_INVALID_ARG;
        }
        Message message(SdfProto::ADD_FILTER);
        SdfProto::AddFilter& body = *message.data().mutable_add_filter();
        body.set_src_ip(source);
        body.set_dest_ip(destination);
        body.set_src_port(ClientSdfUtils::sdfGetPort(info.src_addr));
        body.set_dest_port(ClientSdfUtils::sdfGetPort(info.dest_addr));
        body.set_protocol(ClientSdfUtils::clientProtocolToProto(info.protocol));
        body.set_filter_arg6(info.filter_arg6);
        body.set_first_level(ClientSdfUtils::clientLevelToProto(info.first_level));
        body.set_second_level(ClientSdfUtils::clientLevelToProto(info.second_level));
        body.set_pdcp_timer(info.pdcp_timer);
        body.set_ood(ClientSdfUtils::clientOodToProto(info.ood));
        body.set_filter_arg11(info.filter_arg11);
        body.set_app_type(ClientSdfUtils::clientAppTypeToProto(info.app_type));
        body.set_filter_arg13(info.filter_arg13);
        body.set_src_port_range(info.src_port_range);
        body.set_dest_port_range(info.dest_port_range);
        body.set_filter_arg16(info.filter_arg16);
        body.set_filter_arg17(info.filter_arg17);
        if (hasExtra) body.set_filter_arg18(extra);
        body.set_filter_arg19(info.filter_arg19);
        body.set_filter_arg20(info.filter_arg20);
        sdf::Recorded recorded(client, &Sdf::mFilterCbs, cb);
        message.setId(recorded.id());
        transport.postEvent(message.event());
        return recorded.keep();
    });
}

}  // namespace

long long sdfAddFilter(SdfAddFilterInfo info, SdfFilterStatusCb cb) {
    return sdfAddFilterInternal(info, false, 0, cb);
}

long long sdfAddFilterV2(SdfAddFilterInfo info, unsigned char extra, SdfFilterStatusCb cb) {
    return sdfAddFilterInternal(info, true, extra, cb);
}

long long sdfGetFilters(SdfGetFiltersCb cb) {
    return request([=](Sdf& client, SdkClientBase& transport) -> long long {
        if (cb == nullptr) return SDF_V2_INVALID_ARG;
        if (!client.mServiceUp) return SDF_V2_SERVICE_DOWN;
        client.replaceSlot(&Sdf::mGetFiltersCb, cb);
        transport.postEvent(Message(SdfProto::GET_FILTERS).event());
        return SDF_V2_SUCCESS;
    });
}

long long sdfDeleteFilter(unsigned int filter_id) {
    return request([=](Sdf& client, SdkClientBase& transport) -> long long {
        if (!client.isFilterIdValid(filter_id)) return SDF_V2_INVALID_ARG;
        if (!client.mServiceUp) return SDF_V2_SERVICE_DOWN;
        Message message(SdfProto::DELETE_FILTER);
        message.data().mutable_delete_filter()->set_filter_id(filter_id);
        client.removeFilterId(filter_id, [&] { transport.postEvent(message.event()); });
        return SDF_V2_SUCCESS;
    });
}

long long sdfDeleteAllFilter() {
    return request([](Sdf& client, SdkClientBase& transport) -> long long {
        if (!client.hasFilters()) return SDF_V2_INVALID_OPERATION;
        if (!client.mServiceUp) return SDF_V2_SERVICE_DOWN;
        const Message message(SdfProto::DELETE_ALL_FILTER);
        client.removeAllFilterIds([&] { transport.postEvent(message.event()); });
        return SDF_V2_SUCCESS;
    });
}
