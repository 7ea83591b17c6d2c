// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <mutex>
#include <string>

// Writes whole lines to a descriptor, one after the other. Waits for a reader that is slow, but not
// for ever: who reads a pipe may have stopped. Any thread.
class LineWriter {
  public:
    // fd: where to; belongs to this object if `owned`, to the caller otherwise.
    LineWriter(int fd, bool owned) : mFd(fd), mOwned(owned) {}
    ~LineWriter();
    LineWriter(const LineWriter&) = delete;
    LineWriter& operator=(const LineWriter&) = delete;

    // Writes the line, with a newline after it, at once. line: taken over. Waits up to two seconds
    // whenever there is no room; after that was in vain, not at all until there is room again.
    // Returns false if not all of it could be written; errno says why, EAGAIN if there was no room.
    // What comes after a part of a line begins on a line of its own.
    bool write(std::string line);

  private:
    bool waitForRoom();

    const int mFd;
    const bool mOwned;
    std::mutex mLock;     // a long line may take several writes
    bool mStuck = false;  // there was no room the last time
    bool mTorn = false;   // only a part of the last line has been written
};
