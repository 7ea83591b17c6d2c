// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/src/SocketDirectory.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "utils/Log.h"

namespace {

std::string directoryPath() {
    if (const char* const own = getenv("LUM_BINDER_DIR"); own != nullptr && *own != '\0') {
        return own;
    }
    if (const char* const run = getenv("XDG_RUNTIME_DIR"); run != nullptr && *run != '\0') {
        return std::string(run) + "/lum-binder";
    }
    return "/tmp/lum-binder-" + std::to_string(geteuid());
}

// Returns what a link says; empty if it is none.
std::string readLink(const std::string& path) {
    std::array<char, 256> text;
    const ssize_t length = readlink(path.c_str(), text.data(), text.size());
    return length < 0 ? std::string() : std::string(text.data(), static_cast<size_t>(length));
}

// Moves `fresh` to `path`. What was there so far lies at `fresh` then, so that whoever moves knows
// exactly what it has replaced, however many do so at once.
bool exchange(const std::string& fresh, const std::string& path) {
    for (;;) {
        if (renameat2(AT_FDCWD, fresh.c_str(), AT_FDCWD, path.c_str(), RENAME_EXCHANGE) == 0) {
            return true;
        }
        if (errno != ENOENT) return false;
        if (renameat2(AT_FDCWD, fresh.c_str(), AT_FDCWD, path.c_str(), RENAME_NOREPLACE) == 0) {
            return true;
        }
        if (errno != EEXIST) return false;
    }
}

}  // namespace

SocketDirectory::SocketDirectory() : mPath(directoryPath()) {}

bool SocketDirectory::fits() const {
    if (mPath.size() <= kLongestPath) return true;
    LUM_LOGE("binder: the socket directory's path may have %zu bytes at most, not %zu: %s",
             kLongestPath, mPath.size(), mPath.c_str());
    return false;
}

bool SocketDirectory::make() const {
    if (mkdir(mPath.c_str(), S_IRWXU) == 0 || errno == EEXIST) return true;
    LUM_LOGE("binder: cannot make the socket directory %s (%s)", mPath.c_str(), strerror(errno));
    return false;
}

bool SocketDirectory::exists() const {
    return access(mPath.c_str(), F_OK) == 0;
}

bool SocketDirectory::isSafe() const {
    struct stat about {};
    if (lstat(mPath.c_str(), &about) != 0) {
        LUM_LOGE("binder: cannot look at the socket directory %s (%s)", mPath.c_str(),
                 strerror(errno));
        return false;
    }
    if (!S_ISDIR(about.st_mode)) {
        LUM_LOGE("binder: the socket directory %s is not a directory", mPath.c_str());
        return false;
    }
    if (about.st_uid != geteuid()) {
        LUM_LOGE("binder: the socket directory %s belongs to user %u, not to %u", mPath.c_str(),
                 about.st_uid, geteuid());
        return false;
    }
    if ((about.st_mode & (S_IRWXG | S_IRWXO)) != 0) {
        LUM_LOGE("binder: the socket directory %s is open to others (mode %o)", mPath.c_str(),
                 about.st_mode & 07777U);
        return false;
    }
    return true;
}

// A slash, of all that a name may hold, cannot stand in that of a file.
std::string SocketDirectory::linkOf(const std::string& name) const {
    std::string file = name;
    std::replace(file.begin(), file.end(), '/', '%');
    return mPath + "/" + file + ".service";
}

std::string SocketDirectory::socketOf(const std::string& name) const {
    return readLink(linkOf(name));
}

bool SocketDirectory::turn(const std::string& name, const std::string& socket,
                           std::string* replaced) const {
    const std::string link = linkOf(name);
    const std::string fresh = pathOf(socket) + ".new";
    const bool turned = symlink(socket.c_str(), fresh.c_str()) == 0 && exchange(fresh, link);
    if (!turned) LUM_LOGE("binder: cannot make %s (%s)", link.c_str(), strerror(errno));
    *replaced = turned ? readLink(fresh) : std::string();
    unlink(fresh.c_str());
    return turned;
}
