// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <filesystem>
#include <fstream>
#include <string>

#include "tests/support/Driver.h"

// How many threads a process has. Over the driver those of its pool do not count: they stay, up to
// 16, as on a device. They are known by their names.
inline size_t threadsOf(pid_t pid) {
    const std::string id = std::to_string(pid);
    size_t count = 0;
    for (const auto& task : std::filesystem::directory_iterator("/proc/" + id + "/task")) {
        std::ifstream comm(task.path() / "comm");
        std::string name;
        std::getline(comm, name);
        // The first has such a name when it has started the pool.
        const bool ofPool = name.rfind("binder:", 0) == 0 && task.path().filename() != id;
        if (!ofPool || !overDriver()) ++count;
    }
    return count;
}
