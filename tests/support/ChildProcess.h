// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <chrono>
#include <condition_variable>
#include <csignal>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

// A program run as a process of its own. What it writes is read by a thread of this object as it
// comes, so that it never waits for its reader; its errors are also passed on to this process's
// standard error. Its standard input is a pipe that nothing is written to unless the test does.
class ChildProcess {
  public:
    static constexpr std::chrono::seconds kLimit{30};

    // Starts it. command: the program's path and its arguments; environment: more variables, as
    // "NAME=value", which take the place of inherited ones. Throws std::runtime_error if the
    // program cannot be run.
    explicit ChildProcess(const std::vector<std::string>& command,
                          const std::vector<std::string>& environment = {});
    // Kills it if it still runs.
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    pid_t pid() const { return mPid; }

    // Sends a signal, unless the process has been waited for.
    void signal(int number) const;
    // Waits for its end and for all of its output. Returns its exit status, or 128 and the number
    // of the signal that ended it. May be called again.
    int wait();
    // SIGKILL, and wait().
    int kill();

    void writeLine(const std::string& line) const;
    void closeInput();

    // Whole lines written so far to standard output, and to standard error. With the address
    // sanitizer the latter leave out "epoll_wait error", which its leak check may cause.
    std::vector<std::string> lines() const;
    std::vector<std::string> errorLines() const;

    // Waits until standard output has had at least `times` lines that `wanted` accepts, or that
    // equal `line`; false when kLimit passed first, or the output ended.
    bool waitFor(const std::function<bool(const std::string&)>& wanted, size_t times = 1) const;
    bool waitForLine(const std::string& line, size_t times = 1) const;
    // The same for standard error.
    bool waitForError(const std::string& line, size_t times = 1) const;
    // Whether its output has ended, as it does when the process does.
    bool hasEnded() const;
    // Waits until standard output has been closed on the other side; false when kLimit passed
    // first.
    bool waitForOutputEnd() const;

  private:
    struct Stream {
        int fd = -1;
        std::string rest;  // of a line that is not whole yet
        std::vector<std::string> lines;
        bool ended = false;
    };

    bool waitFor(const Stream& stream, const std::function<bool(const std::string&)>& wanted,
                 size_t times) const;
    void readOutput();
    void readSome(Stream& stream, bool passOn);

    pid_t mPid = -1;
    int mInput = -1;
    int mStatus = -1;  // what wait() returned
    mutable std::mutex mLock;
    mutable std::condition_variable mGrown;
    Stream mOutput;
    Stream mErrors;
    std::thread mReader;
};
