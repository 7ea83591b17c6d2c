// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <android/binder_auto_utils.h>

#include <atomic>
#include <cstdint>
#include <map>
#include <string>

#include "utils/Mutex.h"

// What the platform's service manager does: says which object a name stands for. A name goes with
// the process that holds its object, and nobody but the user who has it may give it to another.
// Links to deaths, and their ends, carry out what is left to the thread (LateCommand.h): both come
// with nothing locked. Never ended.
class ServiceManager {
  public:
    ServiceManager();
    ~ServiceManager() = delete;
    ServiceManager(const ServiceManager&) = delete;
    ServiceManager& operator=(const ServiceManager&) = delete;

    // The object that is to be called.
    const ndk::SpAIBinder& object() const { return mObject; }

  private:
    // An object of a service, or one to be notified, linked to its death as long as this lives.
    class Entry {
      public:
        // Of the caller.
        Entry(std::string theName, ndk::SpAIBinder theObject, AIBinder_DeathRecipient* recipient,
              void* theCookie);
        ~Entry();
        Entry(const Entry&) = delete;
        Entry& operator=(const Entry&) = delete;

        // Whether the manager will hear of its death. That may come before the entry is kept.
        bool willBeHeard() const { return mIsLinked && AIBinder_isAlive(object.get()); }

        const std::string name;
        const ndk::SpAIBinder object;
        const uid_t uid;
        void* const cookie;  // of its death; differs from that of every other entry

      private:
        AIBinder_DeathRecipient* const mRecipient;
        const bool mIsLinked;
    };
    using Entries = std::map<void*, Entry>;  // by cookie

    static binder_status_t onTransact(AIBinder* self, transaction_code_t code, const AParcel* in,
                                      AParcel* out);
    static void onDied(void* cookie);

    binder_status_t look(const AParcel* in, AParcel* out);
    binder_status_t add(const AParcel* in, AParcel* out);
    binder_status_t list(AParcel* out);
    binder_status_t startNotifying(const AParcel* in, AParcel* out);
    binder_status_t stopNotifying(const AParcel* in, AParcel* out);

    Entry& addEntry(const std::string& name, const ndk::SpAIBinder& object, Entries* entries);
    bool hasAll(uid_t uid) const LUM_REQUIRES(mLock);
    void died(void* cookie);

    const ndk::ScopedAIBinder_DeathRecipient mRecipient;
    ndk::SpAIBinder mObject;
    lum::utils::Mutex mLock;
    Entries mEntries LUM_GUARDED_BY(mLock);
    std::map<std::string, const Entry*> mServices LUM_GUARDED_BY(mLock);  // by name; of mEntries
    std::atomic<uintptr_t> mLastCookie{0};
};
