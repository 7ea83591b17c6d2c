// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/src/PeerAccount.h"

#include <malloc.h>

#include <algorithm>
#include <map>
#include <mutex>
#include <utility>

#include "platform/linux/src/FairShare.h"
#include "utils/NoDestroy.h"

namespace {

struct Accounts {
    std::mutex lock;
    std::map<std::pair<uid_t, pid_t>, std::weak_ptr<PeerAccount>> processes;
    std::map<uid_t, size_t> users;  // how much is kept for each
};
NoDestroy<Accounts> gAccounts;

}  // namespace

std::shared_ptr<PeerAccount> PeerAccount::of(pid_t pid, uid_t uid) {
    Accounts& accounts = gAccounts.value;
    // Before the lock, which its end takes: it ends here when there is no memory to share it.
    std::unique_ptr<PeerAccount> made;
    const std::lock_guard<std::mutex> guard(accounts.lock);
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
    if (mMostKept > kWorthReturning) malloc_trim(0);
    Accounts& accounts = gAccounts.value;
    const std::lock_guard<std::mutex> guard(accounts.lock);
    const auto own = accounts.processes.find({mUid, mPid});
    // Another one may have taken the place by now.
    if (own != accounts.processes.end() && own->second.expired()) accounts.processes.erase(own);
}

size_t PeerAccount::kept() const {
    const std::lock_guard<std::mutex> guard(gAccounts.value.lock);
    return mKept;
}

bool PeerAccount::change(size_t from, size_t to) noexcept {
    const std::lock_guard<std::mutex> guard(gAccounts.value.lock);
    const size_t kept = mKept - from + to;
    const size_t ofUser = mKeptForUser - from + to;
    const size_t free = ofUser < kMostOfUser ? kMostOfUser - ofUser : 0;
    if (to > from && (kept > kMostOfProcess || !isFairShare(kept, free, kLeast))) return false;
    mKept = kept;
    mMostKept = std::max(mMostKept, kept);
    mKeptForUser = ofUser;
    return true;
}
