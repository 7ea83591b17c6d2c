// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <memory>
#include <utility>

#include "platform/linux/src/WorkLanes.h"
#include "utils/Mutex.h"

// What this process does and keeps for another one, over all connections to it. The memory that it
// keeps (unfinished frames, calls under way, what is unread, objects) is limited for each process,
// and for all processes of a user together, of which each may have a fair share (FairShare.h).
// Every function may be called on any thread.
class PeerAccount {
  public:
    // A process that has as much under way as Frame.h and AIBinder_transact allow is far from this.
    static constexpr size_t kMostOfProcess = size_t{64} << 20U;
    static constexpr size_t kMostOfUser = size_t{256} << 20U;
    // What a process may take however much others have: enough for the largest call and its reply.
    static constexpr size_t kLeast = size_t{2} << 20U;
    // When a process goes for which more than this was kept at one time, the memory is given back
    // to the system. Of many small blocks that were freed, malloc() would keep nearly all.
    static constexpr size_t kWorthReturning = size_t{8} << 20U;

    // The account of a process, the same for as long as somebody holds it.
    // May throw std::bad_alloc.
    static std::shared_ptr<PeerAccount> of(pid_t pid, uid_t uid);

    ~PeerAccount();
    PeerAccount(const PeerAccount&) = delete;
    PeerAccount& operator=(const PeerAccount&) = delete;

    // How its blocking calls get to the thread pool.
    WorkLane& lane() { return mLane; }

    // How much is kept for it.
    size_t kept() const;

  private:
    friend class Charge;
    PeerAccount(pid_t pid, uid_t uid, size_t& keptForUser);
    // Changes what one charge comes to.
    bool change(size_t from, size_t to) noexcept;

    static lum::utils::Mutex sLock;

    const pid_t mPid;
    const uid_t mUid;
    size_t& mKeptForUser LUM_GUARDED_BY(sLock);
    size_t mKept LUM_GUARDED_BY(sLock) = 0;
    size_t mMostKept LUM_GUARDED_BY(sLock) = 0;

    WorkLane mLane;
};

// What one connection has put on an account. Taken back at its end. Not locked.
class Charge {
  public:
    explicit Charge(std::shared_ptr<PeerAccount> account) : mAccount(std::move(account)) {}
    ~Charge() { set(0); }
    Charge(const Charge&) = delete;
    Charge& operator=(const Charge&) = delete;

    // Makes it `bytes`. Returns false, with nothing changed, if that is more than allowed; less
    // always is.
    bool set(size_t bytes) noexcept {
        if (!mAccount->change(mBytes, bytes)) return false;
        mBytes = bytes;
        return true;
    }

    const std::shared_ptr<PeerAccount>& account() const { return mAccount; }

  private:
    const std::shared_ptr<PeerAccount> mAccount;
    size_t mBytes = 0;
};
