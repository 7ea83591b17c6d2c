// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/src/ServiceListener.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "platform/linux/src/CallOut.h"
#include "platform/linux/src/LocalLink.h"
#include "utils/Log.h"

namespace {

UniqueFd listenAt(const sockaddr_un& address) {
    UniqueFd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    if (fd.valid() &&
        bind(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) {
        if (listen(fd.get(), SOMAXCONN) == 0) return fd;
        unlink(address.sun_path);
    }
    LUM_LOGE("binder: cannot listen at %s (%s)", address.sun_path, strerror(errno));
    return {};
}

}  // namespace

std::shared_ptr<ServiceListener> ServiceListener::open(const std::string& name,
                                                       const sockaddr_un& address,
                                                       BinderRef object) {
    UniqueFd socket = listenAt(address);
    if (!socket.valid()) return nullptr;
    const int fd = socket.get();
    const auto listener = std::make_shared<ServiceListener>(
        name, address.sun_path, std::move(socket), UniqueFd(fcntl(fd, F_DUPFD_CLOEXEC, 0)),
        std::move(object));
    if (!listener->mSpare.valid()) {
        LUM_LOGE("binder: no descriptor to spare for %s (%s)", name.c_str(), strerror(errno));
        return nullptr;
    }
    return IoLoop::instance().add(fd, listener) ? listener : nullptr;
}

ServiceListener::ServiceListener(std::string name, std::string path, UniqueFd socket,
                                 UniqueFd spare, BinderRef object)
    : mName(std::move(name)),
      mPath(std::move(path)),
      mSocket(std::move(socket)),
      mSpare(std::move(spare)),
      mObject(std::move(object)) {}

ServiceListener::~ServiceListener() {
    unlink(mPath.c_str());
}

BinderRef ServiceListener::object() {
    const lum::utils::MutexLock lock(mLock);
    return mObject == nullptr ? nullptr : refTo(mObject.get());
}

void ServiceListener::retire() noexcept {
    IoLoop::instance().remove(this);
    shutdown(mSocket.get(), SHUT_RD);  // from here on a connect is refused
    while (acceptOne()) {
    }
    BinderRef last;  // ends after the lock is let go
    const lum::utils::MutexLock lock(mLock);
    last = std::move(mObject);
}

bool ServiceListener::acceptOne() noexcept {
    UniqueFd client;
    BinderRef root;
    {
        // In one step: retire() on another thread takes the object from no client that it lets in.
        const lum::utils::MutexLock lock(mLock);
        client.reset(accept4(mSocket.get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
        if (!client.valid()) return false;
        if (mObject != nullptr) root = refTo(mObject.get());
    }
    if (root != nullptr) {
        withoutThrowing([&] { LocalLink::open(std::move(client), std::move(root)); });
    }
    return true;
}

void ServiceListener::onReady(uint32_t) {
    if (acceptOne()) return;
    // EINVAL: retired meanwhile.
    if (errno == EAGAIN || errno == EINTR || errno == ECONNABORTED || errno == EINVAL) return;
    LUM_LOGE("binder: cannot accept a client of %s (%s)", mName.c_str(), strerror(errno));
    // Left in the queue, the client would wait, and keep this socket ready forever.
    if (!refuseOne()) IoLoop::instance().pause(this);
}

// Turns the first client away, for want of a descriptor to serve it with: the spare one is given up
// to accept it, which is the only way to end its wait. Returns whether there was one to give up.
bool ServiceListener::refuseOne() {
    const bool had = mSpare.valid();
    mSpare.reset();
    if (had) {
        UniqueFd(accept4(mSocket.get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC)).reset();
    }
    mSpare.reset(fcntl(mSocket.get(), F_DUPFD_CLOEXEC, 0));
    return had;
}
