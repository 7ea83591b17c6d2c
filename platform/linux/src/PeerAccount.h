// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <memory>

#include "platform/linux/src/WorkLanes.h"

// What this process does for another one, over all connections to it. Every function may be called
// on any thread.
class PeerAccount {
  public:
    // The account of a process, the same for as long as somebody holds it. May throw
    // std::bad_alloc.
    static std::shared_ptr<PeerAccount> of(pid_t pid, uid_t uid);

    ~PeerAccount();
    PeerAccount(const PeerAccount&) = delete;
    PeerAccount& operator=(const PeerAccount&) = delete;

    // How its blocking calls get to the thread pool.
    WorkLane& lane() { return mLane; }

  private:
    PeerAccount(pid_t pid, uid_t uid) : mPid(pid), mUid(uid) {}

    const pid_t mPid;
    const uid_t mUid;
    WorkLane mLane;
};
