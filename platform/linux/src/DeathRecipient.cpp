// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/src/DeathRecipient.h"

#include <pthread.h>

#include <algorithm>
#include <memory>
#include <type_traits>
#include <utility>

#include "platform/linux/src/CallOut.h"
#include "platform/linux/src/LateCommand.h"
#include "platform/linux/src/RemoteBinder.h"

using lum::utils::MutexLock;

// Ends with the process without code of its own: threads may use it until then.
lum::utils::Mutex gDeathLock;
static_assert(std::is_trivially_destructible_v<lum::utils::Mutex>, "");

namespace {

void lockDeaths() LUM_ACQUIRE(gDeathLock) {
    gDeathLock.lock();
}
void unlockDeaths() LUM_RELEASE(gDeathLock) {
    gDeathLock.unlock();
}
// A child made by fork() must be able to end proxies, which takes the lock. It fails only without
// memory, when the program does not get to start.
[[maybe_unused]] const int gForkError = pthread_atfork(lockDeaths, unlockDeaths, unlockDeaths);

// Removes the recipient's entry for one link to `binder`.
void forgetBinder(AIBinder_DeathRecipient& recipient, RemoteBinder* binder)
    LUM_REQUIRES(gDeathLock) {
    std::vector<RemoteBinder*>& binders = recipient.binders;
    binders.erase(std::find(binders.begin(), binders.end(), binder));
}

binder_status_t linkToDeath(RemoteBinder& binder, AIBinder_DeathRecipient& recipient,
                            void* cookie) {
    const MutexLock lock(gDeathLock);
    if (binder.deathAnnounced) return STATUS_DEAD_OBJECT;
    // First whatever may find no memory, so that nothing is left half linked.
    binder.deathLinks.reserve(binder.deathLinks.size() + 1);
    recipient.binders.reserve(recipient.binders.size() + 1);
    if (binder.lateUnwatch == nullptr) {
        const binder_status_t status =
            binder.link().watchDeath(binder.handle(), &binder.lateUnwatch);
        if (status != STATUS_OK) return status;
    } else if (!binder.link().isAlive()) {
        return STATUS_DEAD_OBJECT;
    }
    binder.deathLinks.push_back({&recipient, cookie, recipient.onDied, recipient.onUnlinked});
    recipient.binders.push_back(&binder);
    return STATUS_OK;
}

binder_status_t unlinkToDeath(RemoteBinder& binder, AIBinder_DeathRecipient& recipient,
                              void* cookie) {
    DeathLink ended;
    bool last = false;
    {
        const MutexLock lock(gDeathLock);
        std::vector<DeathLink>& links = binder.deathLinks;
        const auto found = std::find_if(links.begin(), links.end(), [&](const DeathLink& link) {
            return link.recipient == &recipient && link.cookie == cookie;
        });
        if (found == links.end()) return STATUS_NAME_NOT_FOUND;
        ended = *found;
        links.erase(found);
        forgetBinder(recipient, &binder);
        last = links.empty();
        if (last) {
            binder.lateUnwatch.reset();
            binder.link().unwatchDeath(binder.handle());
        }
    }
    if (last) LateCommand::runQueued();
    reportUnlinked(ended);
    return STATUS_OK;
}

// Takes the next link of a dead object; false when there is none left.
bool takeFirstLink(RemoteBinder& binder, DeathLink* link) {
    const MutexLock lock(gDeathLock);
    if (binder.deathLinks.empty()) return false;
    *link = binder.deathLinks.front();
    binder.deathLinks.erase(binder.deathLinks.begin());
    forgetBinder(*link->recipient, &binder);
    return true;
}

// Takes back one link of a recipient; false when there is none left. The object stays registered
// for, as on a device, where a recipient that is deleted is only never called.
bool takeLinkOf(AIBinder_DeathRecipient& recipient, DeathLink* link) {
    const MutexLock lock(gDeathLock);
    if (recipient.binders.empty()) return false;
    RemoteBinder& binder = *recipient.binders.back();
    recipient.binders.pop_back();
    std::vector<DeathLink>& links = binder.deathLinks;
    const auto found = std::find_if(links.begin(), links.end(), [&](const DeathLink& candidate) {
        return candidate.recipient == &recipient;
    });
    *link = *found;
    links.erase(found);
    return true;
}

}  // namespace

std::vector<DeathLink> endDeathLinks(RemoteBinder& binder) noexcept {
    std::unique_ptr<LateCommand> lateUnwatch;
    std::vector<DeathLink> ended;
    {
        const MutexLock lock(gDeathLock);
        for (const DeathLink& link : binder.deathLinks) forgetBinder(*link.recipient, &binder);
        ended.swap(binder.deathLinks);
        lateUnwatch.swap(binder.lateUnwatch);
    }
    if (lateUnwatch != nullptr) LateCommand::queue(std::move(lateUnwatch));
    return ended;
}

void reportUnlinked(const DeathLink& link) noexcept {
    if (link.onUnlinked == nullptr) return;
    callOut("onBinderUnlinked", [&] { link.onUnlinked(link.cookie); });
}

// One link at a time, so that a recipient can still take back those that have not been called.
void DeathNotification::run() {
    RemoteBinder& proxy = *mProxy->asRemote();
    proxy.setDead();
    {
        const MutexLock lock(gDeathLock);
        proxy.deathAnnounced = true;
        // The link has ended the registration. A thread that lets go of many such proxies, and then
        // sleeps, would keep a command for each.
        proxy.lateUnwatch.reset();
    }
    DeathLink link;
    while (takeFirstLink(proxy, &link)) {
        callOut("onBinderDied", [&] { link.onDied(link.cookie); });
        reportUnlinked(link);
    }
}

AIBinder_DeathRecipient* AIBinder_DeathRecipient_new(
    AIBinder_DeathRecipient_onBinderDied onBinderDied) {
    if (onBinderDied == nullptr) return nullptr;
    return withoutThrowing(
        [&] {
            auto recipient = std::make_unique<AIBinder_DeathRecipient>();
            recipient->onDied = onBinderDied;
            return recipient.release();
        },
        nullptr);
}

void AIBinder_DeathRecipient_setOnUnlinked(AIBinder_DeathRecipient* recipient,
                                           AIBinder_DeathRecipient_onBinderUnlinked onUnlinked) {
    if (recipient != nullptr) recipient->onUnlinked = onUnlinked;
}

void AIBinder_DeathRecipient_delete(AIBinder_DeathRecipient* recipient) {
    if (recipient == nullptr) return;
    const std::unique_ptr<AIBinder_DeathRecipient> owned(recipient);
    DeathLink link;
    while (takeLinkOf(*owned, &link)) reportUnlinked(link);
}

binder_status_t AIBinder_linkToDeath(AIBinder* binder, AIBinder_DeathRecipient* recipient,
                                     void* cookie) {
    if (binder == nullptr || recipient == nullptr) return STATUS_UNEXPECTED_NULL;
    RemoteBinder* const remote = binder->asRemote();
    if (remote == nullptr) return STATUS_INVALID_OPERATION;
    LateCommand::runQueued();
    return withoutThrowing([&] { return linkToDeath(*remote, *recipient, cookie); },
                           STATUS_NO_MEMORY);
}

binder_status_t AIBinder_unlinkToDeath(AIBinder* binder, AIBinder_DeathRecipient* recipient,
                                       void* cookie) {
    if (binder == nullptr || recipient == nullptr) return STATUS_UNEXPECTED_NULL;
    RemoteBinder* const remote = binder->asRemote();
    if (remote == nullptr) return STATUS_NAME_NOT_FOUND;
    return unlinkToDeath(*remote, *recipient, cookie);
}
