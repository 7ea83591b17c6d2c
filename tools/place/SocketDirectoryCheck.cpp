// SPDX-License-Identifier: Apache-2.0
#include "tools/place/SocketDirectoryCheck.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>

std::string socketDirectory() {
    const char* const own = getenv("LUM_BINDER_DIR");
    if (own != nullptr && *own != '\0') return own;
    const char* const run = getenv("XDG_RUNTIME_DIR");
    if (run != nullptr && *run != '\0') return std::string(run) + "/lum-binder";
    return "/tmp/lum-binder-" + std::to_string(geteuid());
}

namespace {

constexpr char kElsewhere[] = "Set LUM_BINDER_DIR to another directory, here and for the service.";
constexpr char kShorter[] = "Set LUM_BINDER_DIR to a shorter path, here and for the service.";
constexpr char kMake[] =
    "Make it (mkdir -p), or set LUM_BINDER_DIR to another directory, here and for the service.";
constexpr char kClose[] =
    "Make it this user's alone (chmod 700), or set LUM_BINDER_DIR to another directory, here and "
    "for the service.";

// What the binder runtime accepts, so that the paths of its sockets fit an address.
Obstacle lengthObstacle(const std::string& path) {
    constexpr size_t kMost = 64;
    if (path.size() <= kMost) return {};
    return {"its path has " + std::to_string(path.size()) + " bytes, and may have " +
                std::to_string(kMost) + " at most",
            kShorter};
}

// A service makes the last directory of the path, no other.
Obstacle parentObstacle(std::string path) {
    while (path.size() > 1 && path.back() == '/') path.pop_back();
    std::string parent = std::filesystem::path(path).parent_path();
    if (parent.empty()) parent = ".";
    if (access(parent.c_str(), F_OK) != 0) {
        return {"neither it nor its parent " + parent + " is there (" + strerror(errno) + ")",
                kMake};
    }
    if (faccessat(AT_FDCWD, parent.c_str(), W_OK | X_OK, AT_EACCESS) != 0) {
        return {"it does not exist, and this user cannot make it (" + std::string(strerror(errno)) +
                    ")",
                kElsewhere};
    }
    return {};
}

Obstacle obstacleAt(const std::string& path) {
    struct stat about {};
    if (lstat(path.c_str(), &about) != 0) {
        return errno == ENOENT ? parentObstacle(path) : Obstacle{strerror(errno), kElsewhere};
    }
    if (!S_ISDIR(about.st_mode)) return {"it is not a directory", kElsewhere};
    if (about.st_uid != geteuid()) {
        return {"it belongs to user " + std::to_string(about.st_uid), kElsewhere};
    }
    if ((about.st_mode & (S_IRWXG | S_IRWXO)) != 0) return {"it is open to others", kClose};
    if (faccessat(AT_FDCWD, path.c_str(), W_OK | X_OK, AT_EACCESS) != 0) {
        return {"no socket can be made in it (" + std::string(strerror(errno)) + ")", kClose};
    }
    return {};
}

}  // namespace

Obstacle socketDirectoryObstacle(const std::string& path) {
    Obstacle length = lengthObstacle(path);
    return length.trouble.empty() ? obstacleAt(path) : length;
}
