// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <android/binder_auto_utils.h>

#include <cstdint>
#include <list>
#include <map>
#include <string>

#include "utils/Mutex.h"

// What the platform's service manager does: says which object a name stands for. A name goes with
// the process that holds its object, and nobody but the user who has it may give it to another.
// Never ended.
class ServiceManager {
  public:
    ServiceManager();
    ~ServiceManager() = delete;
    ServiceManager(const ServiceManager&) = delete;
    ServiceManager& operator=(const ServiceManager&) = delete;

    // The object that is to be called.
    const ndk::SpAIBinder& object() const { return mObject; }

  private:
    // An object of a service, or one to be notified.
    struct Entry {
        std::string name;
        ndk::SpAIBinder object;
        uid_t uid;
        void* cookie;  // of its death; differs from that of every other entry
    };

    static binder_status_t onTransact(AIBinder* self, transaction_code_t code, const AParcel* in,
                                      AParcel* out);
    static void onDied(void* cookie);

    binder_status_t look(const AParcel* in, AParcel* out);
    binder_status_t add(const AParcel* in, AParcel* out);
    binder_status_t list(AParcel* out);
    binder_status_t startNotifying(const AParcel* in, AParcel* out);
    binder_status_t stopNotifying(const AParcel* in, AParcel* out);

    // Makes an entry for the caller, and links to the object's death.
    Entry hold(const std::string& name, const ndk::SpAIBinder& object) LUM_REQUIRES(mLock);
    void letGo(const Entry& entry) LUM_REQUIRES(mLock);
    void died(void* cookie);

    const ndk::ScopedAIBinder_DeathRecipient mRecipient;
    ndk::SpAIBinder mObject;
    lum::utils::Mutex mLock;
    std::map<std::string, Entry> mServices LUM_GUARDED_BY(mLock);
    std::list<Entry> mNotified LUM_GUARDED_BY(mLock);
    uintptr_t mEntries LUM_GUARDED_BY(mLock) = 0;
};
