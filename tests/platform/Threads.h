// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <thread>
#include <vector>

// Threads that do the same. The destructor waits for them.
class Threads {
  public:
    // body: called with 0, 1, 2...
    Threads(int count, const std::function<void(int)>& body) {
        for (int i = 0; i < count; ++i) mThreads.emplace_back(body, i);
    }
    ~Threads() { join(); }
    Threads(const Threads&) = delete;
    Threads& operator=(const Threads&) = delete;

    void join() {
        for (std::thread& thread : mThreads) thread.join();
        mThreads.clear();
    }

  private:
    std::vector<std::thread> mThreads;
};
