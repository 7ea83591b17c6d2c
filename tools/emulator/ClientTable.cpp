// SPDX-License-Identifier: Apache-2.0
#include "tools/emulator/ClientTable.h"

#include <algorithm>

namespace {

// The cookie carries a number instead of an address: a notification may be under way while its
// client goes, and by then another could live at the same address.
void* cookieOf(uint64_t number) {
    // NOLINTNEXTLINE(performance-no-int-to-ptr): nobody follows the pointer
    return reinterpret_cast<void*>(static_cast<uintptr_t>(number));
}

uint64_t numberOf(const void* cookie) {
    return reinterpret_cast<uintptr_t>(cookie);
}

AIBinder* binderOf(const Client& client) {
    return client.callback->asBinder().get();
}

}  // namespace

ClientTable& ClientTable::instance() {
    static auto* const table = new ClientTable;
    return *table;
}

ClientTable::ClientTable() : mRecipient(AIBinder_DeathRecipient_new(onBinderDied)) {}

ClientTable::ClientPtr ClientTable::add(Client client) {
    auto added = std::make_shared<const Client>(std::move(client));
    AIBinder* const binder = binderOf(*added);
    uint64_t number = 0;
    {
        const lum::utils::MutexLock guard(mLock);
        const auto present =
            std::find_if(mEntries.begin(), mEntries.end(),
                         [&](const Entry& entry) { return binderOf(*entry.client) == binder; });
        if (present != mEntries.end()) {
            std::rotate(present, present + 1, mEntries.end());
            return mEntries.back().client;
        }
        number = ++mLastNumber;
        mEntries.push_back({number, added, {}});
    }
    // After it has its place, so that a death right after the link finds it there.
    if (AIBinder_linkToDeath(binder, mRecipient.get(), cookieOf(number)) == STATUS_OK) return added;
    take(number);
    return nullptr;
}

ClientTable::ClientPtr ClientTable::speaker(pid_t pid, int32_t type) {
    const lum::utils::MutexLock guard(mLock);
    const auto found = latestOf(pid);
    if (found == mEntries.end()) return nullptr;
    found->types.insert(type);
    return found->client;
}

ClientTable::Leaver ClientTable::leave(pid_t pid, int32_t type) {
    uint64_t number = 0;
    {
        const lum::utils::MutexLock guard(mLock);
        auto found = firstOf(pid, type);
        if (found == mEntries.end()) found = latestOf(pid);
        if (found == mEntries.end()) return {nullptr, false};
        found->types.erase(type);
        if (!found->types.empty()) return {found->client, false};
        number = found->number;
    }
    ClientPtr client = take(number);
    const bool goes = client != nullptr;
    if (goes) AIBinder_unlinkToDeath(binderOf(*client), mRecipient.get(), cookieOf(number));
    return {std::move(client), goes};
}

std::vector<ClientTable::ClientPtr> ClientTable::all() const {
    const lum::utils::MutexLock guard(mLock);
    std::vector<ClientPtr> clients;
    for (const Entry& entry : mEntries) clients.push_back(entry.client);
    return clients;
}

void ClientTable::onBinderDied(void* cookie) {
    ClientTable& table = instance();
    const ClientPtr client = table.take(numberOf(cookie));
    if (client != nullptr && table.mOnDied) table.mOnDied(client);
}

ClientTable::ClientPtr ClientTable::take(uint64_t number) {
    const lum::utils::MutexLock guard(mLock);
    const auto found = std::find_if(mEntries.begin(), mEntries.end(),
                                    [&](const Entry& entry) { return entry.number == number; });
    if (found == mEntries.end()) return nullptr;
    ClientPtr client = std::move(found->client);
    mEntries.erase(found);
    return client;
}

ClientTable::Entries::iterator ClientTable::latestOf(pid_t pid) {
    const auto found = std::find_if(mEntries.rbegin(), mEntries.rend(),
                                    [&](const Entry& entry) { return entry.client->pid == pid; });
    return found == mEntries.rend() ? mEntries.end() : std::prev(found.base());
}

ClientTable::Entries::iterator ClientTable::firstOf(pid_t pid, int32_t type) {
    return std::find_if(mEntries.begin(), mEntries.end(), [&](const Entry& entry) {
        return entry.client->pid == pid && entry.types.count(type) != 0;
    });
}
