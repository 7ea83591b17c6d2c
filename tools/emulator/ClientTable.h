// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <aidl/vendor/orn/data/lumservice/ILumServiceCallback.h>
#include <android/binder_auto_utils.h>
#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <set>
#include <utility>
#include <vector>

#include "utils/Mutex.h"

// One client: a callback object that a process has registered. It is the identity of the callback's
// binder that tells clients apart.
struct Client {
    using Callback = aidl::vendor::orn::data::lumservice::ILumServiceCallback;

    pid_t pid;
    uid_t uid;
    std::shared_ptr<Callback> callback;  // never null
};

// The clients of the service. A client is kept from its registration until it leaves or its process
// dies.
//
// Requests do not say which callback object they belong to, only which process they come from. A
// process has one client as a rule, and two for a moment when it replaces one by another: the new
// client may register and speak before the old one has left. So a request belongs to the
// client of its process that registered last, and a leave to the one that registered first among
// those which have spoken for the same feature.
//
// Several features of a process may share one callback object: it is kept until each that has
// spoken since has left.
//
// Any thread. Callback objects are called and let go with nothing locked.
class ClientTable {
  public:
    using ClientPtr = std::shared_ptr<const Client>;

    // The one of this process: a death notification can bring no more than a number to find its
    // client by. Never destroyed.
    static ClientTable& instance();

    // Sets what is called, on a binder thread, for a client that died. To be called once, first.
    void onDied(std::function<void(const ClientPtr&)> onDied) { mOnDied = std::move(onDied); }

    // Adds a client, or makes it its process's latest if its callback object is here already.
    // Returns the client; null, and keeps nothing, if its process is dead already.
    ClientPtr add(Client client);

    // The client that a request belongs to, noting that it has spoken for the feature `type`; null
    // if the process has registered none.
    ClientPtr speaker(pid_t pid, int32_t type);

    struct Leaver {
        ClientPtr client;  // null if there is none
        bool goes;         // false: it stays for other features
    };
    // A process leaves for the feature `type`. Returns the client that has spoken for it, and
    // whether that goes with it.
    Leaver leave(pid_t pid, int32_t type);

    // In order of registration.
    std::vector<ClientPtr> all() const;

  private:
    struct Entry {
        uint64_t number;  // the death notification's cookie, never used twice
        ClientPtr client;
        std::set<int32_t> types;  // the features that have spoken and not left
    };
    using Entries = std::vector<Entry>;

    ClientTable();

    static void onBinderDied(void* cookie);
    // Takes an entry out and returns its client; null if there is none of that number.
    ClientPtr take(uint64_t number);
    Entries::iterator latestOf(pid_t pid) LUM_REQUIRES(mLock);
    Entries::iterator firstOf(pid_t pid, int32_t type) LUM_REQUIRES(mLock);

    std::function<void(const ClientPtr&)> mOnDied;
    ndk::ScopedAIBinder_DeathRecipient mRecipient;
    mutable lum::utils::Mutex mLock;
    Entries mEntries LUM_GUARDED_BY(mLock);  // in order of registration
    uint64_t mLastNumber LUM_GUARDED_BY(mLock) = 0;
};
