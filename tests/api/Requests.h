// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <lum_sdf_sdk.h>

#include <string>
#include <vector>

#include "tests/api/ClientFixture.h"

// The filter that the requests below name; on the wire 300 is AC 02.
constexpr unsigned int kFilterId = 300;

// A flow: `source` and `destination` are numeric addresses, with their ports; everything else at
// its lowest valid value, which is left out on the wire except for the application type.
SdfAddFilterInfo makeFlow(const std::string& source = "1.2.3.4", int sourcePort = 0,
                          const std::string& destination = "5.6.7.8", int destinationPort = 0);

// A request with the lowest valid values.
long long setLatency(SdfEffectiveLevelsCb cb = app::onLevels);

// One call of each request function, with arguments that it accepts when kFilterId is a confirmed
// filter, and with the callbacks of namespace app.
struct Request {
    const char* name;
    long long (*call)();
    // The event it posts, as FakeTransport::takeText() shows it, when the id it draws, if it draws
    // one, is 7. Empty: it posts none.
    const char* event;
    bool drawsId;
    // The slots that its callback replaces, as ClientState names them. Empty: none.
    const char* slot;
};

const std::vector<Request>& everyRequest();
