// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include "tests/support/Eventually.h"
#include "transport/SdkClientBase.h"

// A listener that remembers its calls. Copies share one record.
class ListenerRecord {
  public:
    struct Call {
        SdkClientBase::SdkStatus status;
        std::vector<uint8_t> bytes;
        std::thread::id thread;
    };
    using Hook = std::function<void(SdkClientBase::SdkStatus)>;

    // `hook` runs inside each call, after it has been remembered.
    explicit ListenerRecord(Hook hook = nullptr) : mState(std::make_shared<State>()) {
        mState->hook = std::move(hook);
    }

    void operator()(SdkClientBase::SdkStatus status, const std::vector<uint8_t>& bytes) const {
        {
            const std::lock_guard<std::mutex> guard(mState->lock);
            mState->calls.push_back({status, bytes, std::this_thread::get_id()});
            mState->grown.notify_all();
        }
        if (mState->hook) mState->hook(status);
    }

    std::vector<Call> calls() const {
        const std::lock_guard<std::mutex> guard(mState->lock);
        return mState->calls;
    }
    std::vector<SdkClientBase::SdkStatus> statuses() const {
        std::vector<SdkClientBase::SdkStatus> statuses;
        for (const Call& call : calls()) statuses.push_back(call.status);
        return statuses;
    }
    bool waitForCalls(size_t count) const {
        std::unique_lock<std::mutex> guard(mState->lock);
        return mState->grown.wait_for(guard, kLimit, [&] { return mState->calls.size() >= count; });
    }
    // How many copies of this listener are held elsewhere.
    long copies() const { return mState.use_count() - 1; }

  private:
    struct State {
        std::mutex lock;
        std::condition_variable grown;
        std::vector<Call> calls;
        Hook hook;
    };
    std::shared_ptr<State> mState;
};

inline std::shared_ptr<SdkClientEvent> makeEvent(int type, std::vector<uint8_t> blob,
                                                 bool release = false) {
    return std::make_shared<SdkClientEvent>(static_cast<LumSdkClientType>(type), blob, release);
}
