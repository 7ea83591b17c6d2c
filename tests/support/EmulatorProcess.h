// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/ChildProcess.h"

// The service emulator as a process of its own, ready to serve as long as this object lives or
// kill() or terminate() is called. It serves in the socket directory of this process's environment:
// make a TestDirectory before.
class EmulatorProcess {
  public:
    // As its SIGUSR1 line has it.
    struct Stats {
        size_t clients;
        size_t descriptors;
        size_t threads;
        size_t heapBlocks;
        size_t filters;
    };

    // The program.
    static const char* program();

    // Starts it and waits until it is ready. options: of its command line; it ends with this
    // process in any case. Throws std::runtime_error if it does not get ready.
    explicit EmulatorProcess(std::vector<std::string> options = {});
    // Kills it if it still runs.
    ~EmulatorProcess() = default;
    EmulatorProcess(const EmulatorProcess&) = delete;
    EmulatorProcess& operator=(const EmulatorProcess&) = delete;

    // Kills it, unless it is dead, and waits until it is. Returns its status, as ChildProcess does.
    int kill() { return mProcess->kill(); }
    // Kills it, unless it is dead, and starts it again with the same options, as the constructor.
    void restart();
    // Asks it to end, and waits. Returns its exit status: 0 unless something is wrong.
    int terminate();

    pid_t pid() const { return mProcess->pid(); }
    // What it has written since it was last started, and ways to wait for it.
    const ChildProcess& process() const { return *mProcess; }

    // Asks it for its figures. Throws std::runtime_error if it does not answer.
    Stats stats();
    // Asks again and again until the figures are as wanted; false when ChildProcess::kLimit passed
    // first.
    bool waitForStats(const std::function<bool(const Stats&)>& wanted);
    // The same for the number of clients.
    bool waitForClients(size_t count);

  private:
    void start();

    const std::vector<std::string> mOptions;
    std::unique_ptr<ChildProcess> mProcess;
    size_t mAsked = 0;  // times that it has been asked for its figures
};

// The requests that an emulator has recorded in this file, in order, as hexadecimal digits.
std::vector<std::string> recordedRequests(const std::string& path);
