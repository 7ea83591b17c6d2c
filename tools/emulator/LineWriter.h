// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <mutex>
#include <string>

// Writes whole lines to a descriptor, one after the other. Any thread.
class LineWriter {
  public:
    // fd: where to; belongs to this object if `owned`, to the caller otherwise.
    LineWriter(int fd, bool owned) : mFd(fd), mOwned(owned) {}
    ~LineWriter();
    LineWriter(const LineWriter&) = delete;
    LineWriter& operator=(const LineWriter&) = delete;

    // Writes the line, with a newline after it, at once. line: taken over.
    // Returns false if not all of it could be written; errno says why.
    bool write(std::string line);

  private:
    const int mFd;
    const bool mOwned;
    std::mutex mLock;  // a long line may take several writes
};
