// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <string>

// A process of the program platform_peer, killed when this ends.
class PeerProcess {
  public:
    // Starts it and waits for what it says. name: of the service it is to serve.
    explicit PeerProcess(std::string name);
    ~PeerProcess();
    PeerProcess(const PeerProcess&) = delete;
    PeerProcess& operator=(const PeerProcess&) = delete;

    // What it said first: "ready", "refused", or nothing if it ended.
    const std::string& said() const { return mSaid; }
    pid_t pid() const { return mPid; }

    // Kills it, unless it is dead, and waits until it is. Returns its status as waitpid() has it.
    int kill();
    // Ends its input, upon which it exits, and waits. Returns its status.
    int finish();

  private:
    int reap();

    pid_t mPid = -1;
    int mInput = -1;
    int mStatus = 0;
    std::string mSaid;
};
