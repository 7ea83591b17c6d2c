// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <future>
#include <stdexcept>
#include <string>
#include <thread>

#include "tools/emulator/ServiceThread.h"

namespace {

constexpr std::chrono::seconds kLimit{30};

TEST(ServiceThreadTest, TasksRunInTheirOrderOnTheThreadAndRunWaitsForThem) {
    ServiceThread thread;
    std::string order;
    std::thread::id where;
    thread.post([&] { order += 'a'; });
    thread.post([&] { order += 'b'; });
    EXPECT_TRUE(thread.run([&] {
        order += 'c';
        where = std::this_thread::get_id();
    }));
    EXPECT_EQ(order, "abc");
    EXPECT_NE(where, std::this_thread::get_id());
}

TEST(ServiceThreadTest, WhatATaskThrowsIsThrownToWhoWaits) {
    ServiceThread thread;
    EXPECT_THROW(thread.run([] { throw std::runtime_error("no"); }), std::runtime_error);
    EXPECT_TRUE(thread.run([] {}));
}

TEST(ServiceThreadTest, WhatIsDueLaterRunsOnTheThread) {
    std::promise<std::thread::id> ran;
    std::thread::id own;
    ServiceThread thread;  // goes first
    thread.run([&] {
        own = std::this_thread::get_id();
        thread.timeline().after(std::chrono::milliseconds(1),
                                [&] { ran.set_value(std::this_thread::get_id()); });
    });
    auto where = ran.get_future();
    ASSERT_EQ(where.wait_for(kLimit), std::future_status::ready);
    EXPECT_EQ(where.get(), own);
}

// Each task posts the next until the action has run, so that there never is a pause.
TEST(ServiceThreadTest, WhatIsDueDoesNotWaitForAPauseBetweenTasks) {
    bool due = false;
    std::promise<void> ended;
    std::function<void()> task;
    ServiceThread thread;  // goes first
    task = [&] {
        if (due) {
            ended.set_value();
        } else {
            thread.post(task);
        }
    };
    thread.run([&] {
        thread.timeline().after(std::chrono::milliseconds(1), [&] { due = true; });
        thread.post(task);
    });
    ASSERT_EQ(ended.get_future().wait_for(kLimit), std::future_status::ready);
}

TEST(ServiceThreadTest, StopRunsWhatWaitsAndNothingMore) {
    ServiceThread thread;
    bool posted = false;
    bool late = false;
    thread.run([&] {
        thread.timeline().after(std::chrono::hours(1), [&] { late = true; });
        thread.post([&] { posted = true; });
    });
    thread.stop();
    EXPECT_TRUE(posted);
    EXPECT_FALSE(thread.run([&] { late = true; }));
    thread.post([&] { late = true; });
    thread.stop();
    EXPECT_FALSE(late);
}

}  // namespace
