// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/src/ServiceListener.h"

#include <fcntl.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "platform/linux/src/CallOut.h"
#include "platform/linux/src/LocalLink.h"
#include "utils/Log.h"

ServiceListener::ServiceListener(std::string name, UniqueFd lock, UniqueFd socket, UniqueFd spare,
                                 BinderRef object)
    : mName(std::move(name)),
      mNameLock(std::move(lock)),
      mSocket(std::move(socket)),
      mSpare(std::move(spare)),
      mObject(std::move(object)) {}

BinderRef ServiceListener::object() {
    const std::lock_guard<std::mutex> guard(mLock);
    return refTo(mObject.get());
}

BinderRef ServiceListener::exchangeObject(BinderRef object) {
    const std::lock_guard<std::mutex> guard(mLock);
    return std::exchange(mObject, std::move(object));
}

void ServiceListener::onReady(uint32_t) {
    UniqueFd client(accept4(mSocket.get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
    if (client.valid()) {
        withoutThrowing([&] { return LocalLink::open(std::move(client), object()) != nullptr; },
                        false);
        return;
    }
    if (errno == EAGAIN || errno == EINTR || errno == ECONNABORTED) return;
    LUM_LOGE("binder: cannot accept a client of %s (%s)", mName.c_str(), strerror(errno));
    // Left in the queue, the client would wait, and keep this socket ready forever.
    if (!refuseOne()) IoThread::instance().pause(mSocket.get(), this);
}

// Turns the first client away, for want of a descriptor to serve it with: the spare one is given up
// to accept it, which is the only way to tell it. Returns whether there was one to give up.
bool ServiceListener::refuseOne() {
    const bool had = mSpare.valid();
    mSpare.reset();
    if (had) {
        UniqueFd(accept4(mSocket.get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC)).reset();
    }
    mSpare.reset(fcntl(mSocket.get(), F_DUPFD_CLOEXEC, 0));
    return had;
}
