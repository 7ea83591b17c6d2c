// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

// A program run at a terminal of its own, as its user would.
class TerminalProcess {
  public:
    // Whether a terminal can be made; if not, a reason has been written to standard error.
    static bool canBe();

    // Starts it. command and environment: as ChildProcess takes them. Throws std::system_error.
    explicit TerminalProcess(const std::vector<std::string>& command,
                             const std::vector<std::string>& environment);
    // Kills it if it still runs.
    ~TerminalProcess();
    TerminalProcess(const TerminalProcess&) = delete;
    TerminalProcess& operator=(const TerminalProcess&) = delete;

    // Types these keys.
    void type(const std::string& keys) const;
    // Has the terminal another size, as a user who drags the corner of a window.
    void resize(unsigned short rows, unsigned short columns) const;
    // Waits until it has written this text since what was waited for last; false when 30 s passed
    // or it ended first.
    bool waitFor(const std::string& text);
    // Whether the terminal is as shells leave it to programs: it shows what is typed, and hands it
    // on line by line.
    bool isOrdinary() const;
    // What it has written since what was waited for last.
    const std::string& rest() const { return mWritten; }
    // Waits for its end, and kills it when 30 s have passed. Returns its exit status, or 128 and
    // the number of the signal that ended it.
    int wait();

  private:
    bool readSome(int milliseconds);

    pid_t mPid = -1;
    int mTerminal = -1;
    std::string mWritten;
};
