// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/src/LocalRegistry.h"

#include <sys/random.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <utility>

#include "platform/linux/src/LocalBinder.h"
#include "platform/linux/src/UniqueFd.h"
#include "utils/Log.h"

namespace {

// The name of a socket is three hexadecimal numbers: of the process, of the object in the process,
// and of the socket in the process. No other socket ever has it. The longest directory leaves it 42
// bytes: numbers up to 2^36 and 2^32.
constexpr size_t kProcessDigits = 16;

std::string makeProcessPart() {
    uint64_t number = 0;
    if (getrandom(&number, sizeof number, GRND_NONBLOCK) != sizeof number) {
        number = static_cast<uint64_t>(getpid());
    }
    std::array<char, kProcessDigits + 1> digits;
    snprintf(digits.data(), digits.size(), "%016" PRIx64, number);
    return digits.data();
}

const std::string& processPart() {
    static const auto* const sPart = new std::string(makeProcessPart());
    return *sPart;
}

std::string makeSocketName(const LocalBinder& object) {
    static std::atomic<uint64_t> sLast{0};
    std::array<char, 48> rest;
    snprintf(rest.data(), rest.size(), "-%" PRIx64 "-%" PRIx64 ".socket", object.number(), ++sLast);
    return processPart() + rest.data();
}

bool isSocketName(const std::string& name) {
    return name.size() > kProcessDigits && name[kProcessDigits] == '-' &&
           name.find('/') == std::string::npos;
}

bool isOwn(const std::string& socket) {
    return socket.compare(0, kProcessDigits, processPart()) == 0;
}

// What the sockets of one object have in common.
std::string objectOf(const std::string& socket) {
    return socket.substr(0, socket.rfind('-'));
}

// Makes the address of a socket; false if the path is longer than one may be.
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

// Retires a listener at its end.
struct Retired {
    std::shared_ptr<ServiceListener> listener;
    ~Retired() {
        if (listener != nullptr) listener->retire();
    }
};

}  // namespace

binder_exception_t LocalRegistry::add(LocalBinder& object, const std::string& name) {
    const SocketDirectory directory;
    std::string socket = makeSocketName(object);
    sockaddr_un address;
    if (!directory.fits() || !makeAddress(directory.pathOf(socket), &address)) {
        return EX_ILLEGAL_ARGUMENT;
    }
    if (!directory.make()) return EX_ILLEGAL_STATE;
    if (!directory.isSafe()) return EX_SECURITY;

    // The listener that is not needed in the end: the new one, unless all goes well. After the lock
    // is let go, since objects may end with it.
    Retired unneeded{ServiceListener::open(name, address, refTo(&object))};
    if (unneeded.listener == nullptr) return EX_ILLEGAL_STATE;
    const lum::utils::MutexLock lock(mLock);
    Served& served = mServed[name];
    std::string replaced;
    if (!directory.turn(name, socket, &replaced)) return EX_ILLEGAL_STATE;
    if (isSocketName(replaced)) unlink(directory.pathOf(replaced).c_str());
    served.socket.swap(socket);
    served.listener.swap(unneeded.listener);
    return EX_NONE;
}

BinderRef LocalRegistry::find(const std::string& name) {
    const SocketDirectory directory;
    // No directory, no service: nothing to complain about.
    if (!directory.exists() || !directory.isSafe()) return nullptr;
    const lum::utils::MutexLock lock(mLock);
    std::string socket = directory.socketOf(name);
    while (isSocketName(socket)) {
        if (isOwn(socket)) return findOwn(name, socket);
        const std::shared_ptr<LocalLink> link = reach(directory, socket);
        if (link != nullptr) return link->root();
        // Dead, unless the name was turned elsewhere meanwhile.
        std::string now = directory.socketOf(name);
        if (now == socket) break;
        socket = std::move(now);
    }
    return nullptr;
}

BinderRef LocalRegistry::findOwn(const std::string& name, const std::string& socket) {
    const auto served = mServed.find(name);
    if (served == mServed.end() || served->second.socket != socket) return nullptr;
    return served->second.listener->object();
}

std::shared_ptr<LocalLink> LocalRegistry::reach(const SocketDirectory& directory,
                                                const std::string& socket) {
    // A service that starts again is another object: those of the past would add up.
    for (auto it = mConnections.begin(); it != mConnections.end();) {
        const std::shared_ptr<LocalLink> link = it->second.lock();
        it = link != nullptr && link->isAlive() ? std::next(it) : mConnections.erase(it);
    }
    const std::string object = objectOf(socket);
    if (const auto known = mConnections.find(object); known != mConnections.end()) {
        std::shared_ptr<LocalLink> link = known->second.lock();
        if (link != nullptr) return link;
    }
    sockaddr_un address;
    if (!makeAddress(directory.pathOf(socket), &address)) return nullptr;
    UniqueFd connected = connectTo(address);
    if (!connected.valid()) return nullptr;
    std::shared_ptr<LocalLink> link = LocalLink::open(std::move(connected), nullptr);
    mConnections[object] = link;
    return link;
}
