// SPDX-License-Identifier: Apache-2.0
#include "tools/sdfctl/SocketFolderCheck.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace {

std::string folderPath() {
    const char* const own = getenv("LUM_BINDER_DIR");
    if (own != nullptr && *own != '\0') return own;
    const char* const run = getenv("XDG_RUNTIME_DIR");
    if (run != nullptr && *run != '\0') return std::string(run) + "/lum-binder";
    return "/tmp/lum-binder-" + std::to_string(geteuid());
}

std::string troubleWith(const std::string& path) {
    struct stat about {};
    if (lstat(path.c_str(), &about) != 0) return errno == ENOENT ? "" : strerror(errno);
    if (!S_ISDIR(about.st_mode)) return "it is not a folder";
    if (about.st_uid != geteuid()) return "it belongs to user " + std::to_string(about.st_uid);
    if ((about.st_mode & (S_IRWXG | S_IRWXO)) != 0) return "it is open to others";
    return "";
}

}  // namespace

SocketFolderCheck checkSocketFolder() {
    const std::string path = folderPath();
    return {path, troubleWith(path)};
}
