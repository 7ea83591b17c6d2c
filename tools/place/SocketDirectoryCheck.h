// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "tools/place/Place.h"

// The directory in which services and clients meet on Linux.
std::string socketDirectory();

// What is wrong with it. A directory that does not exist is fine where a service can make it.
Obstacle socketDirectoryObstacle(const std::string& path);
