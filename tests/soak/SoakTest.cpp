// SPDX-License-Identifier: Apache-2.0
// A soak that is short, and that it notices what is wrong with a client, or with what it sees of
// the library.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "tests/support/ChildProcess.h"

namespace {

class SoakTest : public testing::Test {
  protected:
    // Returns its status.
    int soak(const std::string& fault = "", const std::string& option = "--rest=1") {
        std::vector<std::string> command{LUM_SOAK,   "--seconds=0", "--rounds=3", "--storm=3",
                                         "--calm=1", "--rest=1",    "--seed=1",   option};
        if (!fault.empty()) command.push_back("--fault=" + fault);
        ChildProcess process(command);
        const int status = process.wait();
        for (const std::string& line : process.lines()) mOutput += line + "\n";
        return status;
    }
    bool says(const char* text) const { return mOutput.find(text) != std::string::npos; }

    std::string mOutput;
};

TEST_F(SoakTest, PassesWhenNothingIsWrong) {
    EXPECT_EQ(soak(), 0) << mOutput;
    EXPECT_TRUE(says("soak: passed")) << mOutput;
    EXPECT_TRUE(says("3 times at rest")) << mOutput;
    EXPECT_FALSE(says("of memory 0 times")) << mOutput;
}

TEST_F(SoakTest, NoticesAnAnswerThatIsLost) {
    EXPECT_EQ(soak("threads:lost"), 1) << mOutput;
    EXPECT_TRUE(says("neither answered nor lost")) << mOutput;
}

TEST_F(SoakTest, NoticesACallbackThatComesTwice) {
    for (const char* kind : {"plain", "threads", "callbacks"}) {
        EXPECT_EQ(soak(std::string(kind) + ":twice"), 1) << mOutput;
        EXPECT_TRUE(says("not requested, or once too often")) << mOutput;
    }
}

TEST_F(SoakTest, NoticesDescriptorsThatAreNotClosed) {
    EXPECT_EQ(soak("callbacks:descriptors"), 1) << mOutput;
    EXPECT_TRUE(says("soak: grown: callbacks: descriptors from")) << mOutput;
}

TEST_F(SoakTest, NoticesASessionThatTheServiceDoesNotFollow) {
    EXPECT_EQ(soak("session:stale"), 1) << mOutput;
    EXPECT_TRUE(says("the service does not come to what is wanted")) << mOutput;
}

TEST_F(SoakTest, NoticesMemoryThatIsNotFreed) {
    EXPECT_EQ(soak("plain:leak"), 1) << mOutput;
    EXPECT_TRUE(says("soak: grown: plain: blocks of heap from")) << mOutput;
    EXPECT_TRUE(says("soak: grown: plain: bytes of heap from")) << mOutput;
}

TEST_F(SoakTest, NoticesMemoryOfAnotherAllocatorsThatIsNotFreed) {
    EXPECT_EQ(soak("plain:memory"), 1) << mOutput;
    EXPECT_TRUE(says("soak: grown: plain: bytes of memory from")) << mOutput;
}

TEST_F(SoakTest, NoticesAProcessThatWakesUpAtRest) {
    EXPECT_EQ(soak("threads:awake"), 1) << mOutput;
    EXPECT_TRUE(says("soak: FAILED: at rest threads woke up ")) << mOutput;
}

TEST_F(SoakTest, NoticesAProcessThatWakesUpNowAndThen) {
    EXPECT_EQ(soak("threads:drowsy"), 1) << mOutput;
    EXPECT_TRUE(says("soak: FAILED: at rest threads woke up ")) << mOutput;
}

TEST_F(SoakTest, NoticesAClientThatDoesNotComeToRest) {
    EXPECT_EQ(soak("plain:restless", "--rest-limit=1"), 1) << mOutput;
    EXPECT_TRUE(says("soak: FAILED: plain does not come to rest")) << mOutput;
}

TEST_F(SoakTest, NoticesAClientThatNeverComesUp) {
    EXPECT_EQ(soak("plain:deaf", "--rest-limit=1"), 1) << mOutput;
    EXPECT_TRUE(says("soak: FAILED: plain does not come to rest")) << mOutput;
}

TEST_F(SoakTest, NoticesAServiceThatGrows) {
    EXPECT_EQ(soak("service:clients"), 1) << mOutput;
    EXPECT_TRUE(says("soak: FAILED: the service has grown: clients ")) << mOutput;
}

TEST_F(SoakTest, NoticesAServiceThatCrashes) {
    EXPECT_EQ(soak("service:crash"), 1) << mOutput;
    EXPECT_TRUE(says("soak: FAILED: the service ended with status 134")) << mOutput;
}

}  // namespace
