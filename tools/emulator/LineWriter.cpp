// SPDX-License-Identifier: Apache-2.0
#include "tools/emulator/LineWriter.h"

#include <unistd.h>

#include <cerrno>

LineWriter::~LineWriter() {
    if (mOwned) close(mFd);
}

bool LineWriter::write(std::string line) {
    line += '\n';
    const std::lock_guard<std::mutex> guard(mLock);
    for (size_t done = 0; done < line.size();) {
        const ssize_t written = ::write(mFd, line.data() + done, line.size() - done);
        if (written < 0 && errno != EINTR) return false;
        if (written > 0) done += static_cast<size_t>(written);
    }
    return true;
}
