// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "utils/Mutex.h"

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
    // whenever the reader has no space; after that was in vain, not at all until it has.
    // Returns false if not all of it could be written; errno says why, EAGAIN for want of space.
    // What comes after a part of a line begins on a line of its own.
    bool write(std::string line);

  private:
    bool waitForSpace() LUM_REQUIRES(mLock);

    const int mFd;
    const bool mOwned;
    lum::utils::Mutex mLock;                    // a long line may take several writes
    bool mStuck LUM_GUARDED_BY(mLock) = false;  // there was no space the last time
    bool mTorn LUM_GUARDED_BY(mLock) = false;   // only a part of the last line has been written
};
