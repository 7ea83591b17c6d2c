// SPDX-License-Identifier: Apache-2.0
// On a device. The binder runtime ends a process that cannot use the driver, and says no more of a
// look-up than that it finds nobody.
#include "tools/place/DriverReason.h"
#include "tools/place/Place.h"

std::optional<Place> currentPlace() {
    return std::nullopt;
}

Obstacle lookUpObstacle(const char*) {
    return {};
}

const char* reasonOf(binder_exception_t refused) {
    return driverReasonOf(refused);
}
