// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <benchmark/benchmark.h>
#include <sched.h>
#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

// What the benchmarks of two processes share: the other process, which is this program again, and
// where the two run.

// A program that runs as long as this object lives. Made when it has written its report to kReport.
class Helper {
  public:
    // Descriptors of the program, of numbers that are free here: for its report of up to 8 bytes,
    // and one that it was given.
    static constexpr int kReport = 100;
    static constexpr int kGiven = 101;

    // This program in a role, with one argument.
    explicit Helper(const std::string& role, const std::string& argument = {}, int given = -1);
    // Another one.
    explicit Helper(const std::vector<std::string>& command, int given = -1);
    ~Helper();
    Helper(const Helper&) = delete;
    Helper& operator=(const Helper&) = delete;

    pid_t pid() const { return mPid; }
    // What it has reported.
    int64_t report() const { return mReport; }

    // For the helper: reports.
    static void report(int64_t value);

    // What this program does in a role. Returns true, to be called before main().
    static bool addRole(const std::string& role, void (*run)(const std::string& argument));

  private:
    pid_t mPid = -1;
    int64_t mReport = 0;
};

// A directory of the benchmarks' own, removed at the end of the process: for sockets.
const std::string& socketDirectory();

// Where the processes run: all on one processor; the client on one and the others on another;
// wherever the kernel puts them.
enum class Placement { kOne, kTwo, kAny };

// Puts this process and these others, with all their threads, there. Returns false when there are
// not enough processors for it.
bool place(Placement placement, const std::vector<pid_t>& others);

// Counts answers on the threads that bring them, for a thread that waits in poll() as an
// application's loop does.
class Answers {
  public:
    Answers();
    ~Answers();
    Answers(const Answers&) = delete;
    Answers& operator=(const Answers&) = delete;

    void add() const;
    void wait(int count) const;

  private:
    const int mEvent;
};

// So many requests sent at once, until the last of them has been answered. A Contender is a client
// with its service: send() issues a request, wait(n) waits for so many answers.
template <typename Contender>
void requests(benchmark::State& state, Placement placement, int underWay) {
    Contender contender;
    if (!place(placement, contender.others())) {
        state.SkipWithError("this machine has one processor");
        return;
    }
    while (state.KeepRunning()) {
        for (int i = 0; i < underWay; ++i) contender.send();
        contender.wait(underWay);
    }
    state.SetItemsProcessed(state.iterations() * underWay);
    place(Placement::kAny, {});
}

// Returns true, to be called before main().
template <typename Contender>
bool registerRequests(const std::string& contender, const std::vector<int>& underWay) {
    for (const int count : underWay) {
        const std::string row = count == 1
                                    ? "request answered, "
                                    : "request answered, " + std::to_string(count) + " under way, ";
        const auto add = [&](const char* where, Placement placement) {
            std::string name = contender;
            name.append(":").append(row).append(where);
            benchmark::RegisterBenchmark(name.c_str(), requests<Contender>, placement, count)
                ->UseRealTime();
        };
        add("one processor", Placement::kOne);
        add("a processor each", Placement::kTwo);
        add("not pinned", Placement::kAny);
    }
    return true;
}
