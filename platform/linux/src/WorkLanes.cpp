// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/src/WorkLanes.h"

#include <utility>

#include "platform/linux/src/FairShare.h"

// Work that waits and its lane hold each other.
WorkLanes::~WorkLanes() {
    while (mFirst != nullptr) {
        const std::shared_ptr<WorkLane> lane = popLane();
        while (lane->mWaiting.pop() != nullptr) {
        }
    }
}

std::unique_ptr<Work> WorkLanes::enter(std::unique_ptr<Work> work) {
    if (const std::shared_ptr<WorkLane>& lane = work->lane(); lane != nullptr) {
        const bool first = lane->mWaiting.empty();
        if (!first || !mayTake(*lane)) {
            if (first) pushLane(lane);
            WorkQueue& waiting = lane->mWaiting;
            waiting.push(std::move(work));
            return nullptr;
        }
        ++lane->mTurns;
    }
    ++mTurns;
    return work;
}

void WorkLanes::leave(const std::shared_ptr<WorkLane>& lane) {
    --mTurns;
    if (lane != nullptr) --lane->mTurns;
}

std::unique_ptr<Work> WorkLanes::next() {
    for (size_t left = free() == 0 ? 0 : mWaiting; left > 0; --left) {
        std::shared_ptr<WorkLane> lane = popLane();
        std::unique_ptr<Work> work;
        if (mayTake(*lane)) {
            work = lane->mWaiting.pop();
            ++lane->mTurns;
            ++mTurns;
        }
        if (!lane->mWaiting.empty()) pushLane(std::move(lane));
        if (work != nullptr) return work;
    }
    return nullptr;
}

bool WorkLanes::mayTake(const WorkLane& lane) const {
    constexpr size_t kLeast = 1;
    return free() != 0 && isFairShare(lane.mTurns + 1, free() - 1, kLeast);
}

void WorkLanes::pushLane(std::shared_ptr<WorkLane> lane) {
    WorkLane* const last = lane.get();
    (mFirst == nullptr ? mFirst : mLast->mNext) = std::move(lane);
    mLast = last;
    ++mWaiting;
}

std::shared_ptr<WorkLane> WorkLanes::popLane() {
    std::shared_ptr<WorkLane> lane = std::move(mFirst);
    mFirst = std::move(lane->mNext);
    --mWaiting;
    return lane;
}
