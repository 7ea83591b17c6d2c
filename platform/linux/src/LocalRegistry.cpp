// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/src/LocalRegistry.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "platform/linux/src/IoThread.h"
#include "platform/linux/src/LocalBinder.h"
#include "platform/linux/src/ServiceListener.h"
#include "platform/linux/src/UniqueFd.h"
#include "utils/Log.h"
#include "utils/NoDestroy.h"

namespace {

NoDestroy<LocalRegistry> gRegistry;

std::string folderPath() {
    if (const char* const own = getenv("LUM_BINDER_DIR"); own != nullptr && *own != '\0') {
        return own;
    }
    if (const char* const run = getenv("XDG_RUNTIME_DIR"); run != nullptr && *run != '\0') {
        return std::string(run) + "/lum-binder";
    }
    return "/tmp/lum-binder-" + std::to_string(geteuid());
}

// Whether what happens in the folder can be of this user's making only.
bool isSafeFolder(const std::string& folder) {
    struct stat about {};
    if (lstat(folder.c_str(), &about) != 0) {
        LUM_LOGE("binder: cannot look at the socket folder %s (%s)", folder.c_str(),
                 strerror(errno));
        return false;
    }
    if (!S_ISDIR(about.st_mode)) {
        LUM_LOGE("binder: the socket folder %s is not a folder", folder.c_str());
        return false;
    }
    if (about.st_uid != geteuid()) {
        LUM_LOGE("binder: the socket folder %s belongs to user %u, not to %u", folder.c_str(),
                 about.st_uid, geteuid());
        return false;
    }
    if ((about.st_mode & (S_IRWXG | S_IRWXO)) != 0) {
        LUM_LOGE("binder: the socket folder %s is open to others (mode %o)", folder.c_str(),
                 about.st_mode & 07777U);
        return false;
    }
    return true;
}

bool makeFolder(const std::string& folder) {
    if (mkdir(folder.c_str(), S_IRWXU) == 0 || errno == EEXIST) return true;
    LUM_LOGE("binder: cannot make the socket folder %s (%s)", folder.c_str(), strerror(errno));
    return false;
}

// A service name as a file name: a slash, of all that a name may hold, cannot stand in one.
std::string fileName(const std::string& service) {
    std::string file = service;
    std::replace(file.begin(), file.end(), '/', '%');
    return file;
}

// Makes the address of a service's socket; false if the path is longer than one may be.
bool makeAddress(const std::string& path, sockaddr_un* address) {
    *address = {};
    address->sun_family = AF_UNIX;
    if (path.size() >= sizeof address->sun_path) {
        LUM_LOGE("binder: a socket's path may have %zu bytes at most, not %zu: %s",
                 sizeof address->sun_path - 1, path.size(), path.c_str());
        return false;
    }
    memcpy(address->sun_path, path.c_str(), path.size());
    return true;
}

// Takes the name for this process. Returns nothing if it is taken, or cannot be had.
UniqueFd lockName(const std::string& path, const std::string& name) {
    UniqueFd file(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, S_IRUSR | S_IWUSR));
    if (!file.valid()) {
        LUM_LOGE("binder: cannot open %s (%s)", path.c_str(), strerror(errno));
        return {};
    }
    if (flock(file.get(), LOCK_EX | LOCK_NB) == 0) return file;
    if (errno == EWOULDBLOCK) {
        LUM_LOGE("binder: another process serves %s", name.c_str());
    } else {
        LUM_LOGE("binder: cannot lock %s (%s)", path.c_str(), strerror(errno));
    }
    return {};
}

// Makes the socket of a name that this process has locked; any that is there is a dead process's.
UniqueFd listenAt(const sockaddr_un& address) {
    UniqueFd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    if (fd.valid()) {
        unlink(address.sun_path);
        if (bind(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
            listen(fd.get(), SOMAXCONN) == 0) {
            return fd;
        }
    }
    LUM_LOGE("binder: cannot listen at %s (%s)", address.sun_path, strerror(errno));
    unlink(address.sun_path);
    return {};
}

// Returns nothing if nobody listens there; logs whatever else goes wrong.
UniqueFd connectTo(const sockaddr_un& address) {
    UniqueFd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    if (fd.valid() &&
        connect(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) {
        return fd;
    }
    if (errno != ENOENT && errno != ECONNREFUSED) {
        LUM_LOGE("binder: cannot connect to %s (%s)", address.sun_path, strerror(errno));
    }
    return {};
}

}  // namespace

ServiceRegistry& ServiceRegistry::instance() {
    return gRegistry.value;
}

binder_exception_t LocalRegistry::add(LocalBinder& object, const std::string& name) {
    BinderRef replaced;  // ends after the lock is let go
    const std::lock_guard<std::mutex> guard(mLock);
    if (const auto served = mServed.find(name); served != mServed.end()) {
        replaced = served->second->exchangeObject(refTo(&object));
        return EX_NONE;
    }
    const std::string folder = folderPath();
    const std::string base = folder + "/" + fileName(name);
    sockaddr_un address;
    if (!makeAddress(base + ".socket", &address)) return EX_ILLEGAL_ARGUMENT;
    if (!makeFolder(folder)) return EX_ILLEGAL_STATE;
    if (!isSafeFolder(folder)) return EX_SECURITY;

    UniqueFd lock = lockName(base + ".lock", name);
    if (!lock.valid()) return EX_ILLEGAL_STATE;
    UniqueFd socket = listenAt(address);
    if (!socket.valid()) return EX_ILLEGAL_STATE;
    const int fd = socket.get();
    UniqueFd spare(fcntl(fd, F_DUPFD_CLOEXEC, 0));
    if (!spare.valid()) {
        LUM_LOGE("binder: no descriptor to spare for %s (%s)", name.c_str(), strerror(errno));
        unlink(address.sun_path);
        return EX_ILLEGAL_STATE;
    }
    const auto listener = std::make_shared<ServiceListener>(
        name, std::move(lock), std::move(socket), std::move(spare), refTo(&object));
    mServed.emplace(name, listener);
    if (IoThread::instance().add(fd, listener)) return EX_NONE;
    mServed.erase(name);
    unlink(address.sun_path);
    return EX_ILLEGAL_STATE;
}

BinderRef LocalRegistry::find(const std::string& name) {
    const std::lock_guard<std::mutex> guard(mLock);
    if (const auto served = mServed.find(name); served != mServed.end()) {
        return served->second->object();
    }
    std::weak_ptr<LocalLink>& known = mConnections[name];
    std::shared_ptr<LocalLink> link = known.lock();
    if (link == nullptr || !link->isAlive()) {
        link = connect(name);
        known = link;
    }
    return link == nullptr ? nullptr : link->root();
}

std::shared_ptr<LocalLink> LocalRegistry::connect(const std::string& name) {
    const std::string folder = folderPath();
    sockaddr_un address;
    if (!makeAddress(folder + "/" + fileName(name) + ".socket", &address)) return nullptr;
    // No folder, no service: nothing to complain about.
    if (access(folder.c_str(), F_OK) != 0 || !isSafeFolder(folder)) return nullptr;
    UniqueFd socket = connectTo(address);
    if (!socket.valid()) return nullptr;
    return LocalLink::open(std::move(socket), nullptr);
}
