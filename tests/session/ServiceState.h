// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <nlohmann/json_fwd.hpp>

// What the service keeps for this process: the members of its dump that a client can set, filters
// by their destination port. Null when there is no service, or it has no such client.
nlohmann::json serviceState();
