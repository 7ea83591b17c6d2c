// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <utility>

class WorkLane;

// Something to be done once, on a thread that may call user code.
class Work {
  public:
    // lane: what it waits in for its turn at the pool; null if it need not.
    explicit Work(std::shared_ptr<WorkLane> lane = nullptr) : mLane(std::move(lane)) {}
    virtual ~Work() = default;
    Work(const Work&) = delete;
    Work& operator=(const Work&) = delete;

    // Must not throw.
    virtual void run() = 0;

    const std::shared_ptr<WorkLane>& lane() const { return mLane; }

  private:
    friend class WorkQueue;
    std::unique_ptr<Work> mNext;
    const std::shared_ptr<WorkLane> mLane;
};

// First in, first out. The links lie in the work itself, so that handing it on never fails for want
// of memory. Not locked.
class WorkQueue {
  public:
    WorkQueue() = default;
    // One by one: letting the first end all others would recurse as deep as the queue is long.
    ~WorkQueue() {
        while (pop() != nullptr) {
        }
    }
    WorkQueue(const WorkQueue&) = delete;
    WorkQueue& operator=(const WorkQueue&) = delete;

    bool empty() const { return mFirst == nullptr; }

    void push(std::unique_ptr<Work> work) {
        Work* const last = work.get();
        (mFirst == nullptr ? mFirst : mLast->mNext) = std::move(work);
        mLast = last;
    }

    // Returns null when there is none.
    std::unique_ptr<Work> pop() {
        std::unique_ptr<Work> work = std::move(mFirst);
        if (work != nullptr) mFirst = std::move(work->mNext);
        return work;
    }

  private:
    std::unique_ptr<Work> mFirst;
    Work* mLast = nullptr;
};
