// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <android/binder_auto_utils.h>
#include <android/binder_ibinder.h>

#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "tests/support/Eventually.h"

using Log = std::vector<std::string>;

// What the recipients of a test were called for, in order.
class Events {
  public:
    void add(const std::string& event) {
        const std::lock_guard<std::mutex> guard(mLock);
        mEvents.push_back(event);
    }
    Log all() const {
        const std::lock_guard<std::mutex> guard(mLock);
        return mEvents;
    }
    bool waitFor(size_t count) const {
        return eventually([&] { return all().size() >= count; });
    }

  private:
    mutable std::mutex mLock;
    Log mEvents;
};

// A cookie: what to do, and where to note it.
struct Cookie {
    Events* events;
    std::string name;
    std::function<void()> atDeath;
};

inline void onDied(void* cookie) {
    const auto* const called = static_cast<Cookie*>(cookie);
    // Once the event is there, a test may end, and the cookie with it.
    const std::function<void()> atDeath = called->atDeath;
    called->events->add(called->name + " died");
    if (atDeath != nullptr) atDeath();
}

inline void onUnlinked(void* cookie) {
    const auto* const called = static_cast<Cookie*>(cookie);
    called->events->add(called->name + " unlinked");
}

using Recipient = ndk::ScopedAIBinder_DeathRecipient;

// One whose cookies are of the kind above.
inline Recipient makeRecipient() {
    Recipient recipient(AIBinder_DeathRecipient_new(onDied));
    AIBinder_DeathRecipient_setOnUnlinked(recipient.get(), onUnlinked);
    return recipient;
}
