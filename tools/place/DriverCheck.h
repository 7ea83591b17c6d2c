// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "tools/place/Place.h"

// What is wrong with a device of the kernel's driver, or with its service manager.
Obstacle driverObstacle(const std::string& device);

// Why its service manager does not let this process look a name up.
Obstacle refusalObstacle(const char* name);
