// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "platform/linux/src/Binder.h"
#include "platform/linux/src/DeathRecipient.h"
#include "platform/linux/src/Link.h"

// Stands here for an object of another process.
class RemoteBinder final : public AIBinder {
  public:
    // handle: the object's number on the link.
    RemoteBinder(std::shared_ptr<Link> link, uint32_t handle)
        : AIBinder(nullptr), mLink(std::move(link)), mHandle(handle) {}

    RemoteBinder* asRemote() override { return this; }

    Link& link() const { return *mLink; }
    uint32_t handle() const { return mHandle; }

    // How often the object was received; the link gives that many references back with the proxy.
    // Guarded by the link.
    uint64_t timesReceived = 0;

    // The links to this object's death. Guarded by the lock in DeathRecipient.cpp.
    std::vector<DeathLink> deathLinks;

  private:
    ~RemoteBinder() override = default;
    void onLastStrong() override;
    bool isOfInterface(const std::string& descriptor) override;

    const std::shared_ptr<Link> mLink;
    const uint32_t mHandle;
};
