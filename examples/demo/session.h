// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <lum_sdf_sdk.h>

// The demo's last steps: a session, through the loss of the service. Starts when there is no client
// and a service.
void showSession(const SdfAddFilterInfo* flow);
