// SPDX-License-Identifier: Apache-2.0
#include "tools/emulator/LineWriter.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>

namespace {
// Long enough for any reader that is at work.
constexpr int kPatienceMs = 2000;
}  // namespace

LineWriter::~LineWriter() {
    if (mOwned) close(mFd);
}

bool LineWriter::write(std::string line) {
    line += '\n';
    const lum::utils::MutexLock guard(mLock);
    if (mTorn) line.insert(line.begin(), '\n');
    for (size_t done = 0; done < line.size();) {
        if (!waitForSpace()) return false;
        // A pipe with any space takes so much at once: the write does not wait.
        const size_t length = std::min<size_t>(line.size() - done, PIPE_BUF);
        const ssize_t written = ::write(mFd, line.data() + done, length);
        if (written < 0 && errno != EINTR) return false;
        if (written <= 0) continue;
        done += static_cast<size_t>(written);
        mTorn = done < line.size();
    }
    return true;
}

bool LineWriter::waitForSpace() {
    pollfd waited{mFd, POLLOUT, 0};
    int ready = 0;
    do {
        ready = poll(&waited, 1, mStuck ? 0 : kPatienceMs);
    } while (ready < 0 && errno == EINTR);
    mStuck = ready == 0;
    if (mStuck) errno = EAGAIN;
    return ready > 0;
}
