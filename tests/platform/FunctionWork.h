// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <memory>
#include <utility>

#include "platform/linux/src/ThreadPool.h"

// Work that is a function.
class FunctionWork final : public Work {
  public:
    explicit FunctionWork(std::function<void()> body, std::shared_ptr<WorkLane> lane = nullptr)
        : Work(std::move(lane)), mBody(std::move(body)) {}
    void run() override { mBody(); }

  private:
    const std::function<void()> mBody;
};

inline void post(std::function<void()> body, std::shared_ptr<WorkLane> lane = nullptr) {
    ThreadPool::instance().post(std::make_unique<FunctionWork>(std::move(body), std::move(lane)));
}
