// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/src/PeerAccount.h"

#include <malloc.h>

#include <algorithm>
#include <map>
#include <utility>

#include "platform/linux/src/FairShare.h"
#include "utils/NoDestroy.h"

using lum::utils::MutexLock;

namespace {

// Guarded by PeerAccount::sLock.
struct Accounts {
    std::map<std::pair<uid_t, pid_t>, std::weak_ptr<PeerAccount>> processes;
    std::map<uid_t, size_t> users;  // how much is kept for each
};
NoDestroy<Accounts> gAccounts;

}  // namespace

// Ends with the process without code of its own: threads may use it until then.
lum::utils::Mutex PeerAccount::sLock;

std::shared_ptr<PeerAccount> PeerAccount::of(pid_t pid, uid_t uid) {
    Accounts& accounts = gAccounts.value;
    // Before the lock, which its end takes: it ends here when there is no memory to share it.
    std::unique_ptr<PeerAccount> made;
    const MutexLock lock(sLock);
    std::weak_ptr<PeerAccount>& known = accounts.processes[{uid, pid}];
    std::shared_ptr<PeerAccount> account = known.lock();
    if (account == nullptr) {
        made.reset(new PeerAccount(pid, uid, accounts.users[uid]));
        account = std::move(made);
        known = account;
    }
    return account;
}

PeerAccount::PeerAccount(pid_t pid, uid_t uid, size_t& keptForUser)
    : mPid(pid), mUid(uid), mKeptForUser(keptForUser) {}

PeerAccount::~PeerAccount() {
    Accounts& accounts = gAccounts.value;
    MutexLock lock(sLock);
    const bool hadMuch = mMostKept > kWorthReturning;
    const auto own = accounts.processes.find({mUid, mPid});
    // Another one may have taken the place by now.
    if (own != accounts.processes.end() && own->second.expired()) accounts.processes.erase(own);
    lock.unlock();
    if (hadMuch) malloc_trim(0);
}

size_t PeerAccount::kept() const {
    const MutexLock lock(sLock);
    return mKept;
}

bool PeerAccount::change(size_t from, size_t to) noexcept {
    const MutexLock lock(sLock);
    const size_t kept = mKept - from + to;
    const size_t ofUser = mKeptForUser - from + to;
    const size_t free = ofUser < kMostOfUser ? kMostOfUser - ofUser : 0;
    if (to > from && (kept > kMostOfProcess || !isFairShare(kept, free, kLeast))) return false;
    mKept = kept;
    mMostKept = std::max(mMostKept, kept);
    mKeptForUser = ofUser;
    return true;
}
