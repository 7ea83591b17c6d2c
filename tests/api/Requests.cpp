// SPDX-License-Identifier: Apache-2.0
#include "tests/api/Requests.h"

#include <sys/socket.h>

#include "api/ClientSdfUtils.h"

namespace {

sockaddr_storage makeAddress(const std::string& text, int port) {
    const int family = ClientSdfUtils::ipVersion(text) == 4 ? AF_INET : AF_INET6;
    return ClientSdfUtils::convertToSockAddrStorage(family, text, port);
}

}  // namespace

SdfAddFilterInfo makeFlow(const std::string& source, int sourcePort, const std::string& destination,
                          int destinationPort) {
    SdfAddFilterInfo info{};
    info.src_addr = makeAddress(source, sourcePort);
    info.dest_addr = makeAddress(destination, destinationPort);
    info.first_level = SDF_LATENCY_LVL_1;
    info.second_level = SDF_LATENCY_LVL_1;
    info.ood = SDF_OOD_UNSPECIFIED_LVL;
    return info;
}

long long setLatency(SdfEffectiveLevelsCb cb) {
    return sdfSetLatencyLvl(SDF_SLOT_ID_FIRST, SDF_LATENCY_LVL_1, SDF_LATENCY_LVL_1, false, cb);
}

const std::vector<Request>& everyRequest() {
    static const std::vector<Request> requests(kRequests, kRequests + kRequestCount);
    return requests;
}

SdfAddFilterInfo makePlainFlow() {
    return makeFlow();
}
