// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <memory>

#include "platform/linux/src/Work.h"

// Where the work that one process causes waits for its turn.
class WorkLane {
  private:
    friend class WorkLanes;
    WorkQueue mWaiting;
    size_t mTurns = 0;  // work whose turn it is, and that is not done yet
    std::shared_ptr<WorkLane> mNext;
};

// Says whose turn it is to take one of a number of threads. A lane has a fair share of them
// (FairShare.h), and at least one while any is left. What exceeds that waits, and holds up only
// what came later in its own lane. Work without a lane never waits here. Takes no memory. Not
// locked.
class WorkLanes {
  public:
    WorkLanes() = default;
    ~WorkLanes();
    WorkLanes(const WorkLanes&) = delete;
    WorkLanes& operator=(const WorkLanes&) = delete;

    // To be followed by next(), as leave() is.
    void setThreads(size_t count) { mThreads = count; }

    // Work has come. Returns it if it is its turn; otherwise keeps it, and returns null.
    std::unique_ptr<Work> enter(std::unique_ptr<Work> work);
    // Work of this lane, or without one, is done that had its turn.
    void leave(const std::shared_ptr<WorkLane>& lane);
    // Returns work that has waited and whose turn it is now, of one lane after the other; null when
    // there is none.
    std::unique_ptr<Work> next();

  private:
    size_t free() const { return mThreads > mTurns ? mThreads - mTurns : 0; }
    bool mayTake(const WorkLane& lane) const;
    void pushLane(std::shared_ptr<WorkLane> lane);
    std::shared_ptr<WorkLane> popLane();

    size_t mThreads = 0;
    size_t mTurns = 0;
    // The lanes in which work waits.
    std::shared_ptr<WorkLane> mFirst;
    WorkLane* mLast = nullptr;
    size_t mWaiting = 0;
};
