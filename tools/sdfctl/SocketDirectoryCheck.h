// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

// The directory in which services and clients meet on Linux.
struct SocketDirectoryCheck {
    std::string path;
    // Why no service can be there, or no client looks for one there; empty when both can. A
    // directory that does not exist is fine where a service can make it.
    std::string trouble;
    std::string advice;  // what to do about the trouble
};

SocketDirectoryCheck checkSocketDirectory();
