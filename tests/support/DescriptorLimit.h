// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdlib>
#include <vector>

// While it lives, this process can open exactly `free` more descriptors.
class DescriptorLimit {
  public:
    explicit DescriptorLimit(int free) {
        // Fills the gaps, so that the lowest numbers still free are the ones up to the limit.
        int highest = -1;
        if (getrlimit(RLIMIT_NOFILE, &mBefore) != 0) abort();
        for (int fd = 0; fd < 1024; ++fd) {
            if (fcntl(fd, F_GETFD) != -1) highest = fd;
        }
        for (;;) {
            const int fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
            if (fd < 0) abort();
            if (fd > highest) {
                close(fd);
                break;
            }
            mFillers.push_back(fd);
        }
        rlimit limit = mBefore;
        limit.rlim_cur = static_cast<rlim_t>(highest) + 1 + static_cast<rlim_t>(free);
        if (setrlimit(RLIMIT_NOFILE, &limit) != 0) abort();
    }
    ~DescriptorLimit() {
        setrlimit(RLIMIT_NOFILE, &mBefore);
        for (const int fd : mFillers) close(fd);
    }
    DescriptorLimit(const DescriptorLimit&) = delete;
    DescriptorLimit& operator=(const DescriptorLimit&) = delete;

  private:
    rlimit mBefore{};
    std::vector<int> mFillers;
};
