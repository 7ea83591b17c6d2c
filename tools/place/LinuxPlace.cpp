// SPDX-License-Identifier: Apache-2.0
#include <lum/service_manager.h>

#include "tools/place/DriverCheck.h"
#include "tools/place/DriverReason.h"
#include "tools/place/Place.h"
#include "tools/place/SocketDirectoryCheck.h"

namespace {

bool overDriver() {
    return *LumServiceManager_device() != '\0';
}

const char* directoryReasonOf(binder_exception_t refused) {
    if (refused == EX_SECURITY) return "the socket directory is not safe to use";
    if (refused == EX_ILLEGAL_ARGUMENT) return "the socket directory's path is too long";
    return "the socket directory cannot be used";
}

}  // namespace

std::optional<Place> currentPlace() {
    if (overDriver()) return Place{"driver", LumServiceManager_device(), true, driverObstacle};
    return Place{"directory", socketDirectory(), false, socketDirectoryObstacle};
}

Obstacle lookUpObstacle(const char* name) {
    return overDriver() ? refusalObstacle(name) : Obstacle{};
}

const char* reasonOf(binder_exception_t refused) {
    return overDriver() ? driverReasonOf(refused) : directoryReasonOf(refused);
}
