// SPDX-License-Identifier: Apache-2.0
#include "bench/requests.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/eventfd.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <map>

namespace {

constexpr char kHelper[] = "--helper";

std::map<std::string, void (*)(const std::string&)>& roles() {
    static std::map<std::string, void (*)(const std::string&)> all;
    return all;
}

// Removed with the process, but not by its helpers, which are killed.
struct Directory {
    std::string path = "/tmp/lum-bench-XXXXXX";
    Directory() {
        if (mkdtemp(path.data()) == nullptr) abort();
    }
    ~Directory() { std::filesystem::remove_all(path); }
    Directory(const Directory&) = delete;
    Directory& operator=(const Directory&) = delete;
};

cpu_set_t allProcessors() {
    static const cpu_set_t all = [] {
        cpu_set_t set{};
        sched_getaffinity(0, sizeof set, &set);
        return set;
    }();
    return all;
}

// The n-th of them alone. Returns false if there is none.
bool processor(int n, cpu_set_t* only) {
    const cpu_set_t all = allProcessors();
    CPU_ZERO(only);
    for (size_t i = 0; i < CPU_SETSIZE; ++i) {
        if (!CPU_ISSET(i, &all) || n-- != 0) continue;
        CPU_SET(i, only);
        return true;
    }
    return false;
}

void moveThreads(pid_t pid, const cpu_set_t& processors) {
    for (const auto& task :
         std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/task")) {
        sched_setaffinity(std::stoi(task.path().filename()), sizeof processors, &processors);
    }
}

}  // namespace

Helper::Helper(const std::string& role, const std::string& argument, int given)
    : Helper(std::vector<std::string>{"/proc/self/exe", kHelper, role, argument}, given) {}

Helper::Helper(const std::vector<std::string>& command, int given) {
    int report[2];
    if (pipe2(report, O_CLOEXEC) != 0) abort();
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, report[1], kReport);
    if (given != -1) posix_spawn_file_actions_adddup2(&actions, given, kGiven);
    std::vector<char*> arguments;
    arguments.reserve(command.size() + 1);
    for (const std::string& word : command) arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);
    const int error =
        posix_spawnp(&mPid, arguments[0], &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(report[1]);
    if (error != 0 || read(report[0], &mReport, sizeof mReport) <= 0) {
        fprintf(stderr, "bench: %s does not start\n", command[0].c_str());
        exit(1);
    }
    close(report[0]);
}

Helper::~Helper() {
    kill(mPid, SIGKILL);
    waitpid(mPid, nullptr, 0);
}

void Helper::report(int64_t value) {
    if (write(kReport, &value, sizeof value) != sizeof value) abort();
}

const std::string& socketDirectory() {
    static const Directory directory;
    return directory.path;
}

bool place(Placement placement, const std::vector<pid_t>& others) {
    cpu_set_t first = allProcessors();
    cpu_set_t second = first;
    if (placement != Placement::kAny) {
        processor(0, &first);
        if (!processor(placement == Placement::kOne ? 0 : 1, &second)) return false;
    }
    moveThreads(getpid(), first);
    for (const pid_t pid : others) moveThreads(pid, second);
    return true;
}

bool Helper::addRole(const std::string& role, void (*run)(const std::string&)) {
    return roles().emplace(role, run).second;
}

Answers::Answers() : mEvent(eventfd(0, EFD_CLOEXEC)) {}

Answers::~Answers() {
    close(mEvent);
}

void Answers::add() const {
    const uint64_t one = 1;
    if (write(mEvent, &one, sizeof one) != sizeof one) abort();
}

void Answers::wait(int count) const {
    pollfd readable{mEvent, POLLIN, 0};
    for (uint64_t got = 0; count > 0; count -= static_cast<int>(got)) {
        poll(&readable, 1, -1);
        if (read(mEvent, &got, sizeof got) != sizeof got) abort();
    }
}

int main(int argc, char** argv) {
    if (argc == 4 && strcmp(argv[1], kHelper) == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        roles().at(argv[2])(argv[3]);
        return 0;
    }
    allProcessors();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
