// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tests/support/ChildProcess.h"
#include "tests/support/ProcessFigures.h"

// One client of a soak.
class Member {
  public:
    struct Rest {
        ProcessFigures figures;
        int64_t blocks;  // of memory that operator new has handed out
        int64_t bytes;   // of these
    };

    // command: the program with its arguments. mortal: may be killed, and starts again; others live
    // as long as the soak, and are judged by what they hold.
    Member(std::string name, std::vector<std::string> command, bool mortal);

    const std::string& name() const { return mName; }
    bool isMortal() const { return mMortal; }
    pid_t pid() const { return mProcess->pid(); }

    // Whether it has begun: before, a lack of descriptors keeps any program from that.
    bool isReady() const { return !mProcess->lines().empty(); }
    void signal(int number) const { mProcess->signal(number); }
    // Sends a command of soak_client.
    void tell(const std::string& command);
    // Kills it and starts it anew, with the last command that it was sent.
    void restart();
    // Whether it has ended, though it should not have.
    bool hasEnded() const { return mProcess->hasEnded(); }
    // Whether it has reported that it is at rest, since it was last sent there.
    bool isAtRest() const;
    // To be called when it is. Returns what it is that it holds.
    const Rest& noteRest();
    const std::vector<Rest>& rests() const { return mRests; }
    // A number of its last report: "requests=" is how many it has made so far, "unanswered="
    // how many of them had no answer. 0 if it does not say.
    int64_t reported(const char* label) const;
    // Ends its input, and waits. Returns its status.
    int end();
    std::vector<std::string> output() const { return mProcess->lines(); }

  private:
    std::vector<std::string> reports() const;

    const std::string mName;
    const std::vector<std::string> mCommand;
    const bool mMortal;
    std::unique_ptr<ChildProcess> mProcess;
    std::string mLast;
    size_t mReports = 0;  // before it was last sent to rest
    std::vector<Rest> mRests;
};
