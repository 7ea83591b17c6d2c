// SPDX-License-Identifier: Apache-2.0
// What the tests that look for leaks count.
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <future>
#include <string>
#include <system_error>
#include <thread>

#include "tests/support/DriverCounts.h"
#include "tests/support/ProcessThreads.h"

namespace {

// A thread with that name.
class NamedThread {
  public:
    explicit NamedThread(const char* name) {
        std::promise<void> named;
        mThread = std::thread([&, this] {
            prctl(PR_SET_NAME, name);
            named.set_value();
            mEnd.get_future().wait();
        });
        named.get_future().wait();
    }
    ~NamedThread() {
        mEnd.set_value();
        mThread.join();
    }
    NamedThread(const NamedThread&) = delete;
    NamedThread& operator=(const NamedThread&) = delete;

  private:
    std::promise<void> mEnd;
    std::thread mThread;
};

class FiguresTest : public testing::Test {
  protected:
    ~FiguresTest() override {
        mDevice.empty() ? unsetenv("LUM_BINDER") : setenv("LUM_BINDER", mDevice.c_str(), 1);
    }

  private:
    const std::string mDevice = overDriver() ? getenv("LUM_BINDER") : "";
};

TEST_F(FiguresTest, PoolThreadsCountOverSocketsAlone) {
    setenv("LUM_BINDER", "", 1);
    const NamedThread first("first");  // from which on the thread sanitizer has one of its own
    const size_t before = threadsOf(getpid());
    const NamedThread ofPool("binder:1_2");
    EXPECT_EQ(threadsOf(getpid()), before + 1);
    setenv("LUM_BINDER", "/dev/none", 1);
    EXPECT_EQ(threadsOf(getpid()), before);
    const NamedThread other("other");
    EXPECT_EQ(threadsOf(getpid()), before + 1);
}

TEST_F(FiguresTest, CountsThatTheDriverDoesNotShowAreAnError) {
    if (std::ifstream(kDriverStats)) GTEST_SKIP() << "the driver shows them here";
    setenv("LUM_BINDER", "", 1);
    EXPECT_EQ(driverCountsOf(getpid()).refs, 0);
    setenv("LUM_BINDER", "/dev/none", 1);
    EXPECT_THROW(driverCountsOf(getpid()), std::system_error);
}

}  // namespace
