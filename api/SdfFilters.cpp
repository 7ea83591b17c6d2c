// SPDX-License-Identifier: Apache-2.0
#include <cstdint>
#include <string>

#include "api/ClientSdfUtils.h"
#include "api/SdfRequest.h"

// Requests that add, list and delete filters. A filter's id is the id of the request that adds it.

namespace {

using SdfProto::ServiceData;

// The two ends of a flow as text.
struct Addresses {
    std::string source;
    std::string destination;
};

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

void fill(SdfProto::AddFilter& body, const SdfAddFilterInfo& info, const Addresses& addresses) {
    body.set_src_ip(addresses.source);
    body.set_dest_ip(addresses.destination);
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
    body.set_filter_arg19(info.filter_arg19);
    body.set_filter_arg20(info.filter_arg20);
}

// Both ways to add a filter. `extra` is sent only if hasExtra, then also when it is 0.
long long sdfAddFilterInternal(const SdfAddFilterInfo& info, bool hasExtra, unsigned char extra,
                               SdfFilterStatusCb cb) {
    return sdf::request([&](Sdf& client, SdkClientBase& transport) -> long long {
        if (!client.mServiceUp) return SDF_V2_SERVICE_DOWN;
        const Addresses addresses{ClientSdfUtils::sdfGetIp(info.src_addr),
                                  ClientSdfUtils::sdfGetIp(info.dest_addr)};
        if (addresses.source.empty() || cb == nullptr || addresses.destination.empty() ||
            !isValid(info)) {
            return SDF_V2_INVALID_ARG;
        }
        return sdf::postRecorded(
            client, transport, &Sdf::mFilterCbs, cb,
            sdf::makeMessage(SdfProto::ADD_FILTER, &ServiceData::set_allocated_add_filter,
                             [&](auto& body) {
                                 fill(body, info, addresses);
                                 if (hasExtra) body.set_filter_arg18(extra);
                             }));
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
    return sdf::registration(&Sdf::mGetFiltersCb, cb, SdfProto::GET_FILTERS);
}

long long sdfDeleteFilter(unsigned int filter_id) {
    return sdf::request([=](Sdf& client, SdkClientBase& transport) -> long long {
        if (!client.isFilterIdValid(filter_id)) return SDF_V2_INVALID_ARG;
        if (!client.mServiceUp) return SDF_V2_SERVICE_DOWN;
        client.removeFilterId(filter_id, [&] {
            transport.postEvent(sdf::makeEvent(
                sdf::makeMessage(SdfProto::DELETE_FILTER, &ServiceData::set_allocated_delete_filter,
                                 [=](auto& body) { body.set_filter_id(filter_id); })));
        });
        return SDF_V2_SUCCESS;
    });
}

long long sdfDeleteAllFilter() {
    return sdf::request([](Sdf& client, SdkClientBase& transport) -> long long {
        if (!client.hasFilters()) return SDF_V2_INVALID_OPERATION;
        if (!client.mServiceUp) return SDF_V2_SERVICE_DOWN;
        client.removeAllFilterIds([&transport] {
            transport.postEvent(sdf::makeEvent(sdf::makeMessage(SdfProto::DELETE_ALL_FILTER)));
        });
        return SDF_V2_SUCCESS;
    });
}
