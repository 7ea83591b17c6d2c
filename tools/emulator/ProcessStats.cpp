// SPDX-License-Identifier: Apache-2.0
#include "tools/emulator/ProcessStats.h"

#include <dirent.h>

#include <cerrno>
#include <memory>
#include <system_error>

namespace {

struct CloseDirectory {
    void operator()(DIR* directory) const { closedir(directory); }
};

// Entries of a directory, "." and ".." left out.
size_t entriesOf(const char* path) {
    const std::unique_ptr<DIR, CloseDirectory> directory(opendir(path));
    if (!directory) throw std::system_error(errno, std::generic_category(), path);
    size_t entries = 0;
    while (const dirent* const entry = readdir(directory.get())) {
        if (entry->d_name[0] != '.') ++entries;
    }
    return entries;
}

}  // namespace

size_t openDescriptors() {
    // One of them is the directory being read.
    return entriesOf("/proc/self/fd") - 1;
}

size_t runningThreads() {
    return entriesOf("/proc/self/task");
}
