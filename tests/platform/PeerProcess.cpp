// SPDX-License-Identifier: Apache-2.0
#include "tests/platform/PeerProcess.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <stdexcept>

PeerProcess::PeerProcess(std::string name) {
    std::array<int, 2> input;
    std::array<int, 2> output;
    if (pipe2(input.data(), O_CLOEXEC) != 0 || pipe2(output.data(), O_CLOEXEC) != 0) {
        throw std::runtime_error("no pipe");
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, input[0], STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, output[1], STDOUT_FILENO);
    std::string program = LUM_PEER_PROGRAM;
    const std::array<char*, 3> arguments = {program.data(), name.data(), nullptr};
    const int error =
        posix_spawn(&mPid, program.c_str(), &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(input[0]);
    close(output[1]);
    mInput = input[1];
    if (error != 0) throw std::runtime_error("cannot start " + program);

    char c = 0;
    while (read(output[0], &c, 1) == 1 && c != '\n') mSaid += c;
    close(output[0]);
}

PeerProcess::~PeerProcess() {
    kill();
    close(mInput);
}

int PeerProcess::kill() {
    if (mPid > 0) ::kill(mPid, SIGKILL);
    return reap();
}

int PeerProcess::finish() {
    close(mInput);
    mInput = -1;
    return reap();
}

int PeerProcess::reap() {
    if (mPid > 0) waitpid(mPid, &mStatus, 0);
    mPid = -1;
    return mStatus;
}
