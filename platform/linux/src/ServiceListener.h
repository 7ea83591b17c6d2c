// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <mutex>
#include <string>

#include "platform/linux/src/Binder.h"
#include "platform/linux/src/IoThread.h"
#include "platform/linux/src/UniqueFd.h"

// The socket of a service: accepts its clients.
class ServiceListener final : public IoSource {
  public:
    // name: the service's, for the log; lock: the name's lock, held while this lives; socket: bound
    // and listening, non-blocking; spare: any descriptor (see refuseOne); object: what clients
    // reach.
    ServiceListener(std::string name, UniqueFd lock, UniqueFd socket, UniqueFd spare,
                    BinderRef object);

    BinderRef object();
    // Returns the object that clients reached so far.
    BinderRef exchangeObject(BinderRef object);

    void onReady(uint32_t events) override;

  private:
    bool refuseOne();

    const std::string mName;
    const UniqueFd mNameLock;
    const UniqueFd mSocket;
    UniqueFd mSpare;  // used by the I/O thread alone

    std::mutex mLock;
    BinderRef mObject;  // guarded by mLock
};
