// SPDX-License-Identifier: Apache-2.0
// Everything at once, for as long as it is to last: clients of all kinds, a service that dies and
// misbehaves, processes that are killed, stopped and short of descriptors and memory; then a calm,
// in which nothing of that happens, and rest. Of each kind one client is mortal: killed at random,
// and started again. docs/testing.md says what is checked. The status is 1 when something was not
// as it has to be.

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tests/session/RandomRules.h"
#include "tests/soak/Growth.h"
#include "tests/soak/Member.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/EmulatorProcess.h"
#include "tests/support/ProcessFigures.h"
#include "tests/support/TestDirectory.h"

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;
using std::chrono::seconds;

struct Options {
    unsigned int seconds = 60;  // in all, about
    unsigned int rounds = 1;    // at least
    unsigned int storm = 20;    // each, in seconds
    unsigned int calm = 5;
    unsigned int rest = 2;         // without a wake-up; the last is kLastRest times as long
    unsigned int restLimit = 600;  // to come to rest
    unsigned int seed = 0;
    std::string samples = "/dev/null";
    // A kind of clients, and what is wrong with the one of them that lives; or "service", which
    // gets another client with each storm, or crashes in it.
    std::string faulty;
    std::string fault;
};

std::atomic<bool> gInterrupted{false};

class Failure : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// What the service and the clients have to go through.
enum class Storm { kDeaths, kMisbehaviour, kSurvivor };

const char* nameOf(Storm storm) {
    switch (storm) {
        case Storm::kDeaths: return "deaths";
        case Storm::kMisbehaviour: return "misbehaviour";
        default: return "survivor";
    }
}

// Leaves a process hardly any descriptors; with `normal`, no longer.
void limitDescriptors(pid_t pid, bool normal, rlim_t more) {
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return;
    if (!normal) {
        rlim_t highest = 0;
        std::error_code error;
        const std::string directory = "/proc/" + std::to_string(pid) + "/fd";
        for (const auto& entry : std::filesystem::directory_iterator(directory, error)) {
            highest = std::max<rlim_t>(highest, std::stoul(entry.path().filename()));
        }
        limit.rlim_cur = highest + 1 + more;
    }
    (void)prlimit(pid, RLIMIT_NOFILE, &limit, nullptr);
}

class Soak {
  public:
    explicit Soak(const Options& options)
        : mOptions(options),
          mRandom(options.seed),
          mSamples(fopen(options.samples.c_str(), "we"), fclose) {
        if (!mSamples) throw Failure("cannot write " + options.samples);
        fputs(
            "seconds,phase,process,pid,memory_kib,blocks,descriptors,threads,processor_ms,"
            "wake_ups\n",
            mSamples.get());
        startService({});
        addMembers();
    }

    void run() {
        for (const Member& member : mMembers) {
            while (!member.isReady()) pass(milliseconds(10));
        }
        for (unsigned int round = 0; round < mOptions.rounds || Clock::now() < mEnd; ++round) {
            // Half of the time belongs to one service.
            const bool late = round >= 3 && 2 * elapsed() > seconds(mOptions.seconds);
            storm(late ? Storm::kSurvivor : static_cast<Storm>(round % 3));
            calm();
            rest();
        }
        // What wakes up but now and then, too.
        sleepQuietly(seconds(mOptions.rest * kLastRest));
        for (Member& member : mMembers) {
            if (member.end() != 0) throwOf(member, "did not end well");
        }
        if (mService->terminate() != 0) throw Failure("the service did not end well");
    }
    // Prints the table. Returns what has grown, a line each.
    std::vector<std::string> judge() const {
        std::vector<std::string> grown;
        printf("\n%-20s %15s %13s %9s %11s %9s %9s %10s\n", "at rest, first/last", "memory KiB",
               "heap blocks", "heap KiB", "descriptors", "threads", "requests", "unanswered");
        long long scarce = 0;
        for (const Member& member : mMembers) {
            if (member.isMortal() || member.rests().empty()) continue;
            scarce += member.reported("scarce=");
            const Member::Rest& first = member.rests().front();
            const Member::Rest& last = member.rests().back();
            printf(
                "%-20s %7lld/%-7lld %6lld/%-6lld %4lld/%-4lld %5lld/%-5lld %4lld/%-4lld %9lld %10lld\n",
                member.name().c_str(), kib(first.figures.memory), kib(last.figures.memory),
                count(first.blocks), count(last.blocks), kib(first.bytes), kib(last.bytes),
                count(first.figures.descriptors), count(last.figures.descriptors),
                count(first.figures.threads), count(last.figures.threads),
                count(member.reported("requests=")), count(member.reported("unanswered=")));
            for (const std::string& what : growthOf(member.rests())) {
                grown.push_back(member.name() + ": " + what);
            }
        }
        printf(
            "services %u; killed %u, stopped %u, short of descriptors %u, of memory %lld times; %u "
            "times at rest\n",
            mServices, mKills, mStops, mShortages, scarce, mRests);
        return grown;
    }

  private:
    static long long kib(int64_t bytes) { return bytes / 1024; }
    static long long count(int64_t number) { return number; }

    size_t pick(size_t limit) {
        return std::uniform_int_distribution<size_t>(0, limit - 1)(mRandom);
    }
    milliseconds pickTime(size_t limit) { return milliseconds(1 + pick(limit)); }
    [[noreturn]] static void throwOf(const Member& member, const std::string& what) {
        for (const std::string& line : member.output()) {
            if (line.rfind("rest ", 0) != 0)
                printf("%s: %s\n", member.name().c_str(), line.c_str());
        }
        throw Failure(member.name() + " " + what);
    }

    void addMembers() {
        for (const bool mortal : {false, true}) {
            for (const char* kind : {"plain", "threads", "callbacks"}) {
                add(kind, {LUM_SOAK_CLIENT, kind}, mortal);
            }
            add("session", {LUM_SOAK_SESSION}, mortal);
        }
    }
    void add(const std::string& kind, std::vector<std::string> command, bool mortal) {
        command.push_back(std::to_string(mRandom() % 1000000));
        if (mortal) {
            command.emplace_back("churn");
        } else if (kind == mOptions.faulty) {
            command.push_back(mOptions.fault);
        }
        mMembers.emplace_back(mortal ? kind + ", mortal" : kind, command, mortal);
    }

    // Its rules, too, end it with SIGKILL only.
    void endService() {
        if (!mService) return;
        const int status = mService->kill();
        if (status != 128 + SIGKILL) {
            throw Failure("the service ended with status " + std::to_string(status));
        }
    }
    void startService(const std::vector<std::string>& options) {
        endService();
        mService = std::make_unique<EmulatorProcess>(options);
        ++mServices;
    }
    // With the right behaviour, if another is wanted, or none lives.
    void restoreService(bool anew) {
        if (anew || mService->process().hasEnded()) startService({});
    }

    void tell(const char* command, const char* phase) {
        mPhase = phase;
        for (Member& member : mMembers) member.tell(command);
    }

    void storm(Storm storm) {
        const pid_t service = mService->pid();
        if (service != mSurvivor) mBefore = mService->stats();
        if (mOptions.faulty == "service" && mOptions.fault == "crash") {
            mService->process().signal(SIGABRT);
            (void)mService->process().waitForOutputEnd();
        } else if (mOptions.faulty == "service") {
            const std::vector<std::string> command{LUM_SOAK_CLIENT, "plain", "1"};
            mStrangers.push_back(std::make_unique<ChildProcess>(command));
        }
        tell(storm == Storm::kMisbehaviour ? "loose" : "strict", nameOf(storm));
        const auto end = Clock::now() + seconds(mOptions.storm);
        while (Clock::now() < end) {
            disturb(storm);
            pass(pickTime(500));
        }
        // Everything that is to be undone is.
        for (const auto& [when, what] : std::exchange(mLater, {})) what();
        restoreService(storm == Storm::kMisbehaviour);
        mSurvivor = storm == Storm::kSurvivor ? service : 0;
    }

    void disturb(Storm storm) {
        Member& member = mMembers[pick(mMembers.size())];
        if (!member.isReady()) return;
        switch (pick(8)) {
            case 0:
            case 1: return stop(member);
            case 2:
                if (!member.isMortal()) return;
                ++mKills;
                return restart(member);
            case 3: return runShort(member);
            case 4: return stopService();
            case 5: return runServiceShort();
            default: break;
        }
        // Not so often that nothing is done between: an answer that is missing shows when its
        // service lives on.
        if (storm == Storm::kDeaths && pick(6) == 0) killService();
        if (storm == Storm::kMisbehaviour && (pick(4) == 0 || mService->process().hasEnded())) {
            startService(randomRules([this](size_t limit) { return pick(limit); }, false));
        }
    }

    void later(milliseconds time, std::function<void()> what) {
        mLater.emplace_back(Clock::now() + time, std::move(what));
    }
    void stop(Member& member) {
        ++mStops;
        member.signal(SIGSTOP);
        later(pickTime(2000), [&member] { member.signal(SIGCONT); });
    }
    void stopService() {
        ++mStops;
        mService->process().signal(SIGSTOP);
        later(pickTime(1500), [this] { mService->process().signal(SIGCONT); });
    }
    void runShort(Member& member) {
        ++mShortages;
        const milliseconds time = pickTime(3000);
        // It may be stopped meanwhile, before it ends for that.
        mMayExit[&member] = Clock::now() + time + kExits;
        limitDescriptors(member.pid(), false, pick(4));
        later(time, [&member] { limitDescriptors(member.pid(), true, 0); });
    }
    void runServiceShort() {
        ++mShortages;
        limitDescriptors(mService->pid(), false, pick(4));
        later(pickTime(3000), [this] { limitDescriptors(mService->pid(), true, 0); });
    }
    void killService() {
        if (mService->process().hasEnded()) return;
        ++mKills;
        endService();
        later(pickTime(4000), [this] { restoreService(false); });
    }

    // The clients work.
    void calm() {
        tell("calm", "calm");
        pass(seconds(mOptions.calm));
    }

    // Everything is brought to rest, and nothing wakes up; then what is held is noted.
    void rest() {
        tell("rest", "rest");
        const auto end = Clock::now() + seconds(mOptions.restLimit);
        for (Member& member : mMembers) {
            while (!member.isAtRest()) {
                if (Clock::now() > end) throwOf(member, "does not come to rest");
                pass(milliseconds(10));
            }
        }
        ++mRests;
        sleepQuietly(seconds(mOptions.rest));
        for (Member& member : mMembers) sample(member, member.noteRest().blocks);
        if (mSurvivor == 0) return;
        const auto settled = [this](const EmulatorProcess::Stats& now) {
            return now.clients <= mBefore.clients && now.descriptors <= mBefore.descriptors &&
                   now.filters <= mBefore.filters &&
                   now.heapBlocks <= mBefore.heapBlocks + kServiceBlocks;
        };
        if (!mService->waitForStats(settled)) {
            const EmulatorProcess::Stats now = mService->stats();
            throw Failure("the service has grown: clients " + change(mBefore.clients, now.clients) +
                          ", descriptors " + change(mBefore.descriptors, now.descriptors) +
                          ", filters " + change(mBefore.filters, now.filters) + ", heap blocks " +
                          change(mBefore.heapBlocks, now.heapBlocks));
        }
    }
    static std::string change(size_t before, size_t now) {
        return std::to_string(before) + " to " + std::to_string(now);
    }
    // What is still on its way may wake a process, but not again and again.
    void sleepQuietly([[maybe_unused]] seconds time) {
#ifndef __SANITIZE_THREAD__  // whose own thread does not sleep through
        std::map<std::string, pid_t> processes{{"the service", mService->pid()}};
        for (const Member& member : mMembers) processes[member.name()] = member.pid();
        std::string awake;
        for (int tries = 0; tries < 5; ++tries) {
            std::map<pid_t, int64_t> before;
            for (const auto& [name, pid] : processes) {
                before[pid] = ProcessFigures::wakeUpsOf(pid);
            }
            pass(time);
            awake.clear();
            for (const auto& [name, pid] : processes) {
                const int64_t wakeUps = ProcessFigures::wakeUpsOf(pid) - before[pid];
                if (wakeUps == 0) continue;
                awake = name + " woke up " + std::to_string(wakeUps) + " times";
            }
            if (awake.empty()) return;
        }
        throw Failure("at rest " + awake);
#endif
    }

    // Lets time pass: undoes what is due, looks after the clients, takes samples.
    void pass(milliseconds time) {
        const auto end = Clock::now() + time;
        do {
            // Those that it has stopped would stay.
            if (gInterrupted) throw Failure("interrupted");
            std::this_thread::sleep_for(
                std::min<Clock::duration>(milliseconds(20), std::max(end - Clock::now(), {})));
            undoWhatIsDue();
            for (Member& member : mMembers) lookAfter(member);
            if (Clock::now() >= mNextSample) sampleAll();
        } while (Clock::now() < end);
    }
    void undoWhatIsDue() {
        // What is done may add to them.
        for (auto& [when, what] : std::exchange(mLater, {})) {
            if (Clock::now() < when) {
                mLater.emplace_back(when, std::move(what));
            } else {
                what();
            }
        }
    }
    void lookAfter(Member& member) {
        if (!member.hasEnded()) return;
        // The library ends a process that creates a client without descriptors.
        const int status = member.end();
        if (!member.isMortal() || status != kNoDescriptors || Clock::now() > mMayExit[&member]) {
            throwOf(member, "ended with status " + std::to_string(status));
        }
        restart(member);
    }
    void restart(Member& member) {
        mMayExit.erase(&member);
        member.restart();
    }

    void sampleAll() {
        mNextSample = Clock::now() + seconds(1);
        for (const Member& member : mMembers) sample(member, 0);
        write("service", mService->pid(), ProcessFigures::of(mService->pid()), 0);
        (void)fflush(mSamples.get());
        if (++mTaken % 5 != 0) return;
        printf(
            "%5lld s  %-12s services %u, killed %u, stopped %u, short of descriptors %u, at "
            "rest %u\n",
            count(elapsed().count() / 1000), mPhase, mServices, mKills, mStops, mShortages, mRests);
        (void)fflush(stdout);
    }
    void sample(const Member& member, int64_t blocks) {
        write(member.name(), member.pid(), ProcessFigures::of(member.pid()), blocks);
    }
    void write(const std::string& name, pid_t pid, const ProcessFigures& figures, int64_t blocks) {
        fprintf(mSamples.get(), "%.1f,%s,\"%s\",%d,%lld,%lld,%lld,%lld,%lld,%lld\n",
                static_cast<double>(elapsed().count()) / 1000, mPhase, name.c_str(), pid,
                kib(figures.memory), count(blocks), count(figures.descriptors),
                count(figures.threads), count(figures.processorMs), count(figures.wakeUps));
    }
    milliseconds elapsed() const {
        return std::chrono::duration_cast<milliseconds>(Clock::now() - mBegin);
    }

    static constexpr int kNoDescriptors = 255;
    // After which it has ended for that, if at all.
    static constexpr seconds kExits{5};
    static constexpr unsigned int kLastRest = 5;
    // By which what the service keeps for a session may change.
    static constexpr size_t kServiceBlocks = 100;

    const TestDirectory mDirectory;
    const Options mOptions;
    const Clock::time_point mBegin = Clock::now();
    const Clock::time_point mEnd = mBegin + seconds(mOptions.seconds);
    std::mt19937 mRandom;
    const std::unique_ptr<FILE, int (*)(FILE*)> mSamples;
    std::unique_ptr<EmulatorProcess> mService;
    std::vector<Member> mMembers;
    std::vector<std::unique_ptr<ChildProcess>> mStrangers;
    std::map<const Member*, Clock::time_point> mMayExit;  // for want of descriptors, so long
    std::vector<std::pair<Clock::time_point, std::function<void()>>> mLater;
    // The service that the last storm was to leave alive, and how it was before the first such.
    pid_t mSurvivor = 0;
    EmulatorProcess::Stats mBefore{};
    const char* mPhase = "start";
    Clock::time_point mNextSample{};
    unsigned int mTaken = 0;
    unsigned int mServices = 0;
    unsigned int mKills = 0;
    unsigned int mStops = 0;
    unsigned int mShortages = 0;
    unsigned int mRests = 0;
};

Options parse(int argc, char** argv) {
    Options options;
    options.seed = std::random_device()();
    for (int index = 1; index < argc; ++index) {
        const std::string word = argv[index];
        char text[256] = "";
        char more[64] = "";
        if (sscanf(argv[index], "--seconds=%u", &options.seconds) == 1 ||
            sscanf(argv[index], "--rounds=%u", &options.rounds) == 1 ||
            sscanf(argv[index], "--storm=%u", &options.storm) == 1 ||
            sscanf(argv[index], "--calm=%u", &options.calm) == 1 ||
            sscanf(argv[index], "--rest=%u", &options.rest) == 1 ||
            sscanf(argv[index], "--rest-limit=%u", &options.restLimit) == 1 ||
            sscanf(argv[index], "--seed=%u", &options.seed) == 1) {
            continue;
        }
        if (sscanf(argv[index], "--samples=%255s", text) == 1) {
            options.samples = text;
        } else if (sscanf(argv[index], "--fault=%63[^:]:%63s", text, more) == 2) {
            options.faulty = text;
            options.fault = more;
        } else {
            throw Failure(
                "usage: soak [--seconds=N] [--rounds=N] [--storm=N] [--calm=N] [--rest=N] "
                "[--rest-limit=N] [--seed=N] [--samples=FILE] [--fault=KIND:FAULT]");
        }
    }
    return options;
}

}  // namespace

int main(int argc, char** argv) {
    // Handlers, which processes that are started do not inherit.
    (void)signal(SIGPIPE, [](int) {});
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        (void)signal(number, [](int) { gInterrupted = true; });
    }
    // Inherited by all that it starts: a huge page would count as 2 MiB from its first byte on, and
    // of each thread's own arena the allocator keeps what is free at its end.
    (void)prctl(PR_SET_THP_DISABLE, 1, 0, 0, 0);
    (void)setenv("MALLOC_ARENA_MAX", "1", 1);
    try {
        const Options options = parse(argc, argv);
        printf("seed %u\n", options.seed);
        Soak soak(options);
        soak.run();
        const std::vector<std::string> grown = soak.judge();
        for (const std::string& what : grown) printf("soak: grown: %s\n", what.c_str());
        puts(grown.empty() ? "soak: passed" : "soak: FAILED");
        return grown.empty() ? 0 : 1;
    } catch (const std::exception& failure) {
        printf("soak: FAILED: %s\n", failure.what());
        return 1;
    }
}
