// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <android/binder_status.h>

#include <optional>
#include <string>

// What is wrong with the place where services and clients meet, for tools to report. On Linux it is
// a directory of sockets or the kernel's driver; on a device the system sees to it.

// What keeps a process from something.
struct Obstacle {
    std::string trouble;   // empty when nothing does
    std::string advice{};  // what to do about it
};

struct Place {
    const char* kind;  // in a word
    std::string path;
    bool hasManager;  // which may be slow to answer, or hang: obstacle() asks it
    // Why no service can be there, or no client looks for one there.
    Obstacle (*obstacle)(const std::string& path);
};

// That of this process; nothing where there is nothing to look at.
std::optional<Place> currentPlace();

// Why this process may not look up a name that AServiceManager_checkService does not find; nothing
// that is known when nobody serves it. Blocks for as long as a service manager takes to answer.
Obstacle lookUpObstacle(const char* name);

// Why AServiceManager_addService refuses.
const char* reasonOf(binder_exception_t refused);
