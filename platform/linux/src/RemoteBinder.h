// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/linux/src/Binder.h"
#include "platform/linux/src/DeathRecipient.h"
#include "platform/linux/src/LateCommand.h"
#include "platform/linux/src/Link.h"
#include "platform/linux/src/Stability.h"

// Stands here for an object of another process.
class RemoteBinder final : public AIBinder {
  public:
    // handle: the object's number on the link.
    RemoteBinder(std::shared_ptr<Link> link, uint32_t handle)
        : AIBinder(nullptr), mLink(std::move(link)), mHandle(handle) {}

    RemoteBinder* asRemote() override { return this; }

    Link& link() const { return *mLink; }
    uint32_t handle() const { return mHandle; }

    // Calls the object; arguments and result as those of AIBinder_transact, except that `out` is
    // set only when STATUS_OK is returned. May throw std::bad_alloc, with nothing sent.
    binder_status_t transact(transaction_code_t code, const AParcel& in, binder_flags_t flags,
                             std::unique_ptr<AParcel>* out);

    // Whether calls may still get through. Once one was answered with STATUS_DEAD_OBJECT, or the
    // death was announced, none is made any more.
    bool isAlive() const { return mAlive && mLink->isAlive(); }
    void setDead() { mAlive = false; }

    // The word for its stability with which it was received, kUndeclared before that; see
    // takeStability() in Binder.h.
    int32_t stability() const { return mStability; }
    // Keeps the first. Returns whether this one is the same.
    bool takeStability(int32_t word) {
        int32_t known = kUndeclared;
        return mStability.compare_exchange_strong(known, word) || known == word;
    }

    // The links to this object's death, and what ends the registration for it late; null while the
    // proxy has not registered.
    std::vector<DeathLink> deathLinks LUM_GUARDED_BY(gDeathLock);
    std::unique_ptr<LateCommand> lateUnwatch LUM_GUARDED_BY(gDeathLock);
    // Its death has been announced: nobody would hear of it any more.
    bool deathAnnounced LUM_GUARDED_BY(gDeathLock) = false;

  private:
    ~RemoteBinder() override = default;
    void onLastStrong() override;
    bool isOfInterface(const std::string& descriptor) override;

    const std::shared_ptr<Link> mLink;
    const uint32_t mHandle;
    std::atomic<bool> mAlive{true};
    std::atomic<int32_t> mStability{kUndeclared};
};
