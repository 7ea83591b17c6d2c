// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/un.h>

#include <cstdint>
#include <memory>
#include <string>

#include "platform/linux/src/Binder.h"
#include "platform/linux/src/IoLoop.h"
#include "platform/linux/src/UniqueFd.h"
#include "utils/Mutex.h"

// The socket of a service: accepts its clients. Its file goes with it.
class ServiceListener final : public IoSource {
  public:
    // Listens at an address where no file may be yet, and serves it from then on.
    // name: the service's, for the log; object: what clients reach.
    // Returns null if that cannot be arranged, which is logged. May throw std::bad_alloc.
    static std::shared_ptr<ServiceListener> open(const std::string& name,
                                                 const sockaddr_un& address, BinderRef object);

    // socket: bound to `path` and listening, non-blocking; spare: any descriptor (see refuseOne).
    ServiceListener(std::string name, std::string path, UniqueFd socket, UniqueFd spare,
                    BinderRef object);
    ~ServiceListener() override;

    BinderRef object();

    // Accepts who is connected already, for they hold what they asked for, and nobody from then on.
    // The object is let go. To be called when no client finds the socket any more.
    void retire() noexcept;

    void onReady(uint32_t events) override;

  private:
    // Serves the first client in the queue. Returns false, with errno set, if there is none.
    bool acceptOne() noexcept;
    bool refuseOne();

    const std::string mName;
    const std::string mPath;
    const UniqueFd mSocket;
    UniqueFd mSpare;  // used by onReady() alone

    lum::utils::Mutex mLock;
    BinderRef mObject LUM_GUARDED_BY(mLock);  // null once retired
};
