// SPDX-License-Identifier: Apache-2.0
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>
#include <string>

#include "tools/emulator/LineWriter.h"

namespace {

class LineWriterTest : public testing::Test {
  protected:
    // A pipe of four pages; reading does not wait.
    LineWriterTest() {
        if (pipe2(mEnds, O_CLOEXEC) != 0) throw std::runtime_error("pipe2");
        mSize = fcntl(mEnds[1], F_SETPIPE_SZ, 4 * 4096);
        if (mSize < 0) throw std::runtime_error("F_SETPIPE_SZ");
        (void)fcntl(mEnds[0], F_SETFL, O_NONBLOCK);
    }
    ~LineWriterTest() override {
        close(mEnds[0]);
        close(mEnds[1]);
    }

    int output() const { return mEnds[1]; }
    // All that the pipe holds.
    size_t size() const { return static_cast<size_t>(mSize); }

    std::string readAll() const {
        std::string text;
        char some[4096];
        for (ssize_t length = 0; (length = read(mEnds[0], some, sizeof some)) > 0;) {
            text.append(some, static_cast<size_t>(length));
        }
        return text;
    }

  private:
    int mEnds[2] = {-1, -1};
    int mSize = 0;
};

TEST_F(LineWriterTest, EachLineIsWrittenWholeAndEndsWithANewline) {
    LineWriter writer(output(), false);
    EXPECT_TRUE(writer.write("one"));
    EXPECT_TRUE(writer.write(""));
    EXPECT_TRUE(writer.write("three"));
    EXPECT_EQ(readAll(), "one\n\nthree\n");
    const std::string longest(size() - 1, 'x');
    EXPECT_TRUE(writer.write(longest));
    EXPECT_EQ(readAll(), longest + "\n");
}

TEST_F(LineWriterTest, LineForWhichThereIsNoSpaceIsLeftOut) {
    LineWriter writer(output(), false);
    const std::string full(size() - 1, 'x');
    ASSERT_TRUE(writer.write(full));
    for (int i = 0; i < 1000; ++i) {
        errno = 0;
        EXPECT_FALSE(writer.write("left out"));
        EXPECT_EQ(errno, EAGAIN);
    }
    EXPECT_EQ(readAll(), full + "\n");
    EXPECT_TRUE(writer.write("there is space again"));
    EXPECT_EQ(readAll(), "there is space again\n");
}

TEST_F(LineWriterTest, WhatFollowsAPartOfALineBeginsOnALineOfItsOwn) {
    LineWriter writer(output(), false);
    EXPECT_FALSE(writer.write(std::string(2 * size(), 'x')));
    EXPECT_FALSE(writer.write("left out"));
    EXPECT_EQ(readAll(), std::string(size(), 'x'));
    EXPECT_TRUE(writer.write("next"));
    EXPECT_TRUE(writer.write("and next"));
    EXPECT_EQ(readAll(), "\nnext\nand next\n");
}

TEST(LineWriterDescriptorTest, DescriptorThatIsNotOpenIsAnError) {
    LineWriter closed(1000000, false);
    EXPECT_FALSE(closed.write("line"));
    EXPECT_EQ(errno, EBADF);
}

}  // namespace
