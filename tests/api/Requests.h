// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include "tests/api/ClientFixture.h"
#include "tests/api/RequestTable.h"

// A flow: `source` and `destination` are numeric addresses, with their ports; everything else at
// its lowest valid value, which is left out on the wire except for the application type.
SdfAddFilterInfo makeFlow(const std::string& source = "1.2.3.4", int sourcePort = 0,
                          const std::string& destination = "5.6.7.8", int destinationPort = 0);

// A request with the lowest valid values.
long long setLatency(SdfEffectiveLevelsCb cb = app::onLevels);

// kRequests.
const std::vector<Request>& everyRequest();
