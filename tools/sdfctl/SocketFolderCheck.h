// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

// The folder in which services and clients meet on Linux.
struct SocketFolderCheck {
    std::string path;
    // Why clients refuse it; empty when they do not. A folder that does not exist is fine: nobody
    // has needed it yet.
    std::string trouble;
};

SocketFolderCheck checkSocketFolder();
