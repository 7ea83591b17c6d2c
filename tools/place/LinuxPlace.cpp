// SPDX-License-Identifier: Apache-2.0
#include "tools/place/DriverCheck.h"
#include "tools/place/DriverReason.h"
#include "tools/place/Place.h"
#include "tools/place/SocketDirectoryCheck.h"

namespace {

const char* directoryReasonOf(binder_exception_t refused) {
    if (refused == EX_SECURITY) return "the socket directory is not safe to use";
    if (refused == EX_ILLEGAL_ARGUMENT) return "the socket directory's path is too long";
    return "the socket directory cannot be used";
}

}  // namespace

std::optional<Place> currentPlace() {
    const std::string device = driverDevice();
    if (!device.empty()) return Place{"driver", device, true, driverObstacle};
    return Place{"directory", socketDirectory(), false, socketDirectoryObstacle};
}

Obstacle lookUpObstacle(const char* name) {
    return driverDevice().empty() ? Obstacle{} : refusalObstacle(name);
}

const char* reasonOf(binder_exception_t refused) {
    return driverDevice().empty() ? directoryReasonOf(refused) : driverReasonOf(refused);
}
