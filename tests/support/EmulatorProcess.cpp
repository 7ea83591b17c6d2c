// SPDX-License-Identifier: Apache-2.0
#include "tests/support/EmulatorProcess.h"

#include <cstdio>
#include <fstream>
#include <stdexcept>
#include <thread>
#include <utility>

namespace {

bool isStats(const std::string& line) {
    return line.rfind("stats: ", 0) == 0;
}

EmulatorProcess::Stats parse(const std::string& line) {
    EmulatorProcess::Stats stats{};
    if (sscanf(line.c_str(),
               "stats: clients=%zu descriptors=%zu threads=%zu heap_blocks=%zu filters=%zu",
               &stats.clients, &stats.descriptors, &stats.threads, &stats.heapBlocks,
               &stats.filters) != 5) {
        throw std::runtime_error("not the emulator's figures: " + line);
    }
    return stats;
}

}  // namespace

const char* EmulatorProcess::program() {
    return LUM_EMULATOR_PROGRAM;
}

EmulatorProcess::EmulatorProcess(std::vector<std::string> options) : mOptions(std::move(options)) {
    start();
}

void EmulatorProcess::restart() {
    mProcess->kill();
    start();
}

int EmulatorProcess::terminate() {
    mProcess->signal(SIGTERM);
    return mProcess->wait();
}

EmulatorProcess::Stats EmulatorProcess::stats() {
    mProcess->signal(SIGUSR1);
    ++mAsked;
    if (!mProcess->waitFor(isStats, mAsked)) throw std::runtime_error("no figures");
    const std::vector<std::string> lines = mProcess->lines();
    std::string last;
    for (const std::string& line : lines) {
        if (isStats(line)) last = line;
    }
    return parse(last);
}

bool EmulatorProcess::waitForStats(const std::function<bool(const Stats&)>& wanted) {
    const auto end = std::chrono::steady_clock::now() + ChildProcess::kLimit;
    while (!wanted(stats())) {
        if (std::chrono::steady_clock::now() > end) return false;
        std::this_thread::yield();
    }
    return true;
}

bool EmulatorProcess::waitForClients(size_t count) {
    return waitForStats([&](const Stats& stats) { return stats.clients == count; });
}

void EmulatorProcess::start() {
    std::vector<std::string> command = {program(), "--until-eof"};
    command.insert(command.end(), mOptions.begin(), mOptions.end());
    mProcess = std::make_unique<ChildProcess>(command);
    mAsked = 0;
    const std::string ready =
        "ready: vendor.orn.data.lumservice.ILumService pid=" + std::to_string(mProcess->pid());
    if (!mProcess->waitForLine(ready)) throw std::runtime_error("the emulator is not ready");
}

std::vector<std::string> recordedRequests(const std::string& path) {
    const std::string before = "\"hex\":\"";
    std::vector<std::string> requests;
    std::ifstream record(path);
    for (std::string line; std::getline(record, line);) {
        if (line.find("\"direction\":\"received\"") == std::string::npos) continue;
        const size_t begin = line.find(before) + before.size();
        requests.push_back(line.substr(begin, line.find('"', begin) - begin));
    }
    return requests;
}
