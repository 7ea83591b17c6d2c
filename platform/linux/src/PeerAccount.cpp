// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/src/PeerAccount.h"

#include <map>
#include <mutex>
#include <utility>

#include "utils/NoDestroy.h"

namespace {

struct Accounts {
    std::mutex lock;
    std::map<std::pair<uid_t, pid_t>, std::weak_ptr<PeerAccount>> processes;
};
NoDestroy<Accounts> gAccounts;

}  // namespace

std::shared_ptr<PeerAccount> PeerAccount::of(pid_t pid, uid_t uid) {
    Accounts& accounts = gAccounts.value;
    const std::lock_guard<std::mutex> guard(accounts.lock);
    std::weak_ptr<PeerAccount>& known = accounts.processes[{uid, pid}];
    std::shared_ptr<PeerAccount> account = known.lock();
    if (account == nullptr) {
        account.reset(new PeerAccount(pid, uid));
        known = account;
    }
    return account;
}

PeerAccount::~PeerAccount() {
    Accounts& accounts = gAccounts.value;
    const std::lock_guard<std::mutex> guard(accounts.lock);
    const auto own = accounts.processes.find({mUid, mPid});
    // Another one may have taken the place by now.
    if (own != accounts.processes.end() && own->second.expired()) accounts.processes.erase(own);
}
