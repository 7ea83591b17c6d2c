// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <android/binder_ibinder.h>

#include <utility>
#include <vector>

#include "platform/linux/src/Binder.h"
#include "platform/linux/src/Work.h"
#include "utils/Mutex.h"

class RemoteBinder;

// Guards every link between a proxy and a recipient, on both sides: two locks, one on each, could
// not be taken in one order by an object that dies and a recipient that is deleted. Taken before a
// link's lock, never held when a recipient is called.
extern lum::utils::Mutex gDeathLock;

struct AIBinder_DeathRecipient {
    AIBinder_DeathRecipient_onBinderDied onDied = nullptr;
    AIBinder_DeathRecipient_onBinderUnlinked onUnlinked = nullptr;
    // The objects it is linked to, one entry for each link.
    std::vector<RemoteBinder*> binders LUM_GUARDED_BY(gDeathLock);
};

// One AIBinder_linkToDeath. It has the functions itself, since the recipient may be deleted while
// one of them runs.
struct DeathLink {
    AIBinder_DeathRecipient* recipient;
    void* cookie;
    AIBinder_DeathRecipient_onBinderDied onDied;
    AIBinder_DeathRecipient_onBinderUnlinked onUnlinked;
};

// Takes back all links to a proxy that is ending; what ends its registration is left to this
// thread. reportUnlinked() is then due for each, with nothing locked.
std::vector<DeathLink> endDeathLinks(RemoteBinder& binder) noexcept;
void reportUnlinked(const DeathLink& link) noexcept;

// The work that calls the recipients of a dead proxy, each once, and takes their links back. Made
// while the proxy lives, so that its death needs no memory.
class DeathNotification final : public Work {
  public:
    // To be called once, before it runs.
    void setProxy(BinderRef proxy) noexcept { mProxy = std::move(proxy); }

    void run() override;

  private:
    BinderRef mProxy;
};
