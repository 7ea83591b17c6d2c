// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gtest/gtest.h>
#include <sys/types.h>

#include <string>

#include "tests/support/ChildProcess.h"

// A process of the program platform_peer, killed when this ends.
class PeerProcess {
  public:
    // Starts it, and waits until it serves. name: of its service.
    explicit PeerProcess(const std::string& name) : mChild({LUM_PEER_PROGRAM, name}) {
        EXPECT_TRUE(mChild.waitForLine("ready"));
    }

    pid_t pid() const { return mChild.pid(); }
    // Kills it, unless it is dead, and waits until it is.
    void kill() { mChild.kill(); }
    // Ends its input, upon which it exits, and waits. Returns its exit status.
    int finish() {
        mChild.closeInput();
        return mChild.wait();
    }

  private:
    ChildProcess mChild;
};
