// SPDX-License-Identifier: Apache-2.0
// An application in a soak, on the library's own interface: makes requests of every kind, brings
// the client up again when the service is lost, and checks that each request that is answered by
// its id is answered once or lost.
//
// usage: soak_client KIND SEED [churn] [FAULT]
//   KIND: plain, with one thread; threads, with four; callbacks, from inside its callbacks
//   churn: destroys the client now and then and creates another
//   FAULT, which the soak has to notice: leak, memory, descriptors; awake, drowsy, restless; deaf,
//          it does not hear that the service is up; or twice, lost: of some answers
//
// It creates a client and prints "ready". Then each line of standard input is a command:
//   strict   work, with a service that may die, but answers in order as long as it lives
//   loose    work, with a service that may do anything
//   calm     begin anew with another client, and work, with a service that does everything right
//   rest     from calm: once that has begun, end all that goes on, and report "rest blocks=N
//            bytes=N requests=N unanswered=N scarce=N", the last how often memory was scarce
// Its end ends the program. The status is 1 when something came that must not, or did not that
// must.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <lum_sdf_sdk.h>
#include <malloc.h>
#include <poll.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "tests/stress/Account.h"
#include "tests/stress/ClientEvents.h"
#include "tests/stress/Worker.h"
#include "tests/support/AllocationLimit.h"
#include "utils/NoDestroy.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds kAnswerLimit{120};
// By which the loss of the service may be reported after an answer of the next one.
constexpr std::chrono::seconds kLossLimit{5};
// An answer that takes longer does not come, from a service that may do anything.
constexpr std::chrono::seconds kPatience{1};
// Between attempts to bring the client up: one takes up to 3.15 seconds, and they queue up.
constexpr std::chrono::seconds kAttempt{4};

enum class Phase { kRest, kStrict, kLoose, kCalm };

NoDestroy<Account> gAccount;
std::atomic<Phase> gPhase{Phase::kRest};
std::atomic<bool> gUp{false};       // and registered
std::atomic<bool> gExact{false};    // every callback is known beforehand, and no loss may come
std::atomic<long long> gMarker{0};  // the request whose answer begins that
std::atomic<unsigned int> gAnswers{0};
std::atomic<unsigned int> gScarce{0};  // how often memory was scarce

Account& account() {
    return gAccount.value;
}

void failed(const std::string& what) {
    ADD_FAILURE() << what;
}

// How long that may take, the soak says.
template <typename Condition>
void waitWhile(const Condition& condition) {
    while (condition() && !testing::Test::HasFailure()) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
}

// Waits for these answers, the last of which is `last`, the batch's; empty when it was refused.
void settle(const std::vector<std::string>& awaited, const std::string& last, unsigned int losses) {
    if (last.empty()) gUp = false;
    if (gPhase == Phase::kLoose) {
        account().waitForAnswers(awaited, losses, kPatience);
    } else if (!last.empty() && !account().waitForAnswers({last}, losses, kAnswerLimit)) {
        failed("neither answered nor lost: " + last);
    } else if (!account().waitForAnswers(awaited, losses,
                                         last.empty() ? kAnswerLimit : kLossLimit)) {
        failed("neither answered nor lost: one before " + last);
    }
}

// How the application uses the library.
class Way {
  public:
    Way() = default;
    virtual ~Way() = default;
    Way(const Way&) = delete;
    Way& operator=(const Way&) = delete;

    // Between these, it works. stop() ends that, if it does; in a calm, everything has ended and is
    // answered when it returns.
    virtual void start() = 0;
    virtual void stop() = 0;
    // Makes another client, and has the account begin anew.
    void calm() {
        // No callback makes requests of the new client that belong to the old one.
        const std::lock_guard<std::mutex> guard(mLock);
        gPhase = Phase::kCalm;
        ended();
        gExact = false;
        gUp = false;
        gMarker = 0;
        destroySdfClient();
        account().start(Account::Terms::kAnswers);
        EXPECT_EQ(createSdfClient(onStatus), 0);
    }
    // Nothing begins any more.
    void rest() {
        const std::lock_guard<std::mutex> guard(mLock);
        gPhase = Phase::kRest;
    }

    // These are for callbacks. The service is up:
    void up() {
        const std::lock_guard<std::mutex> guard(mLock);
        if (gExact || gPhase == Phase::kRest) return;
        account().accepted(sdfDeleteAllFilter());
        Worker::registerForAll(account());
        if (gPhase == Phase::kCalm) return mark();
        gUp = true;
        begun();
    }
    void answered(const ClientEvent& event) {
        const std::lock_guard<std::mutex> guard(mLock);
        if (event.id != gMarker) return proceed(event);
        // All that came before has come.
        gMarker = 0;
        account().start(Account::Terms::kAll);
        gExact = true;
        gUp = true;
        begun();
    }

  protected:
    // Another client in the place of this one, while it works.
    static void churn() {
        destroySdfClient();
        account().lose();
        gUp = false;
        EXPECT_EQ(createSdfClient(onStatus), 0);
    }

    std::mutex mLock;

  private:
    void mark() {
        const unsigned int losses = account().losses();
        gMarker = sdfSetLatencyLvl(SDF_SLOT_ID_FIRST, SDF_LATENCY_LVL_1, SDF_LATENCY_LVL_1, false,
                                   onLevels);
        if (gMarker <= 0) return;
        account().expectAnswer("levels " + std::to_string(gMarker) + ": 1 1", losses);
    }
    // The caller holds mLock.
    virtual void begun() {}
    virtual void ended() {}
    virtual void proceed(const ClientEvent& /*event*/) {}
};

// Requests come from threads.
class Threads : public Way {
  public:
    Threads(int count, unsigned int seed, bool churns) : mChurns(churns), mRandom(seed) {
        for (int i = 0; i < count; ++i) {
            mWorkers.emplace_back(account(), i, count == 1, seed + static_cast<unsigned int>(i));
        }
    }
    void start() override {
        mStopping = false;
        for (Worker& worker : mWorkers) {
            worker.forget();
            mThreads.emplace_back(
                [this, &worker, seed = mRandom()] { run(worker, std::mt19937(seed)); });
        }
    }
    void stop() override {
        mStopping = true;
        for (std::thread& thread : mThreads) thread.join();
        mThreads.clear();
    }

  private:
    void run(Worker& worker, std::mt19937 random) {
        const AllocationGrant application;
        unsigned int known = account().losses();
        while (!mStopping && !testing::Test::HasFailure()) {
            if (!gUp) {
                std::this_thread::sleep_for(std::chrono::milliseconds(10));
                continue;
            }
            const unsigned int losses = account().losses();
            if (std::exchange(known, losses) != losses) worker.forget();
            std::vector<std::string> awaited;
            if (!gExact) awaited = requestWithoutMemory(random, losses);
            const std::string last = worker.batch();
            awaited.insert(awaited.end(), worker.awaited().begin(), worker.awaited().end());
            settle(awaited, last, losses);
            worker.answered();
            std::this_thread::sleep_for(std::chrono::milliseconds(random() % 20));
            if (mChurns && !gExact && &worker == mWorkers.data() && random() % 100 == 0) churn();
        }
        if (!gExact) return;
        do {
            const unsigned int losses = account().losses();
            const std::string last = worker.endingBatch();
            settle(worker.awaited(), last, losses);
            worker.answered();
        } while (worker.hasFilters() && !testing::Test::HasFailure());
    }
    // Memory runs out in the middle of a request: it has been made, or nothing has. Returns what is
    // awaited.
    static std::vector<std::string> requestWithoutMemory(std::mt19937& random,
                                                         unsigned int losses) {
        long long id = 0;
        {
            const AllocationLimit limit(static_cast<long>(random() % 16));
            id = sdfSetLatencyLvl(SDF_SLOT_ID_SECOND, SDF_LATENCY_LVL_2, SDF_LATENCY_LVL_2, true,
                                  onLevels);
        }
        if (id == SDF_V2_INTERNAL_ERROR) {
            ++gScarce;
            return {};
        }
        if (!account().drawn(id)) return {};
        return {account().expectAnswer("levels " + std::to_string(id) + ": 2 2", losses)};
    }

    const bool mChurns;
    std::mt19937 mRandom;
    std::vector<Worker> mWorkers;
    std::vector<std::thread> mThreads;
    std::atomic<bool> mStopping{false};
};

// Requests come from callbacks: a batch when the last of the one before is answered.
class Callbacks : public Way {
  public:
    Callbacks(unsigned int seed, bool churns)
        : mChurns(churns), mRandom(seed), mWorker(account(), 0, true, seed) {}
    void start() override {
        const std::lock_guard<std::mutex> guard(mLock);
        mStopping = mEnding = mEnded = false;
        // The report that the service is up is what begins it.
        if (gPhase == Phase::kCalm || !gUp) return;
        EXPECT_EQ(createSdfClient(onStatus), 0);
    }
    void stop() override {
        mStopping = true;
        waitWhile([this] { return gExact && !mEnded; });
    }

  private:
    void ended() override { mLast.clear(); }
    void begun() override {
        mWorker.forget();
        next();
    }
    void proceed(const ClientEvent& event) override {
        if (mLast.empty() || (event.text + ":").rfind(mLast + ":", 0) != 0) return;
        settle(mWorker.awaited(), mLast, mLosses);
        mWorker.answered();
        mLast.clear();
        if (testing::Test::HasFailure()) return;
        if (!mStopping) {
            std::this_thread::sleep_for(std::chrono::milliseconds(mRandom() % 20));
            if (mChurns && !gExact && mRandom() % 100 == 0) return churn();
            next();
        } else if (gExact && (mWorker.hasFilters() || !std::exchange(mEnding, true))) {
            mLosses = account().losses();
            mLast = mWorker.endingBatch();
        } else {
            mEnded = true;
        }
    }
    void next() {
        mLosses = account().losses();
        mLast = mWorker.batch();
        if (mLast.empty()) gUp = false;
    }

    const bool mChurns;
    std::mt19937 mRandom;
    Worker mWorker;
    std::string mLast;
    unsigned int mLosses = 0;
    bool mEnding = false;
    std::atomic<bool> mStopping{false};
    std::atomic<bool> mEnded{false};
};

// What is wrong with this application, or with what it sees of the library.
class Faults {
  public:
    explicit Faults(const std::string& fault) : mFault(fault) {
        if (fault == "awake") wakeUpEvery(std::chrono::milliseconds(10));
        if (fault == "drowsy") wakeUpEvery(std::chrono::seconds(3));
    }
    bool comesToRest() const { return mFault != "restless"; }
    bool hearsOfService() const { return mFault != "deaf"; }
    // To be called at rest: how much it keeps does not depend on what has been done.
    void keep() const {
        for (int count = 0; mFault == "leak" && count < 100; ++count) (void)new char[1000];
        if (mFault == "memory") (void)strdup(std::string(size_t{4} << 20U, ' ').c_str());
        if (mFault == "descriptors") (void)fcntl(STDIN_FILENO, F_DUPFD, 0);
    }
    // How many callbacks the application sees for one.
    int seen(const ClientEvent& event) {
        const unsigned int count = ++mCount;
        if (event.kind != ClientEvent::Kind::kLevels || count % 20 != 0) return 1;
        if (mFault == "twice") return 2;
        return mFault == "lost" ? 0 : 1;
    }

  private:
    static void wakeUpEvery(std::chrono::milliseconds time) {
        std::thread([time] {
            for (;;) std::this_thread::sleep_for(time);
        }).detach();
    }

    const std::string mFault;
    std::atomic<unsigned int> mCount{0};
};

class Application {
  public:
    Application(std::unique_ptr<Way> way, unsigned int seed, const std::string& fault)
        : mWay(std::move(way)), mFaults(fault), mRandom(seed) {
        account().start(Account::Terms::kAnswers);
        setEventHook([this](const ClientEvent& event) { called(event); });
        EXPECT_EQ(createSdfClient(onStatus), 0);
        puts("ready");
        (void)fflush(stdout);
    }
    Application(const Application&) = delete;
    Application& operator=(const Application&) = delete;

    void command(const std::string& command) {
        refuseEveryAllocation(0);
        if (command == "rest") {
            waitWhile([this] {
                const bool begins = gPhase == Phase::kCalm && !gExact;
                if (begins) keepUp();
                return begins;
            });
            mWay->rest();
        }
        mWay->stop();
        if (command == "rest") return rest();
        if (command == "calm") {
            mWay->calm();
            mAttempt = Clock::now() + kAttempt;
        } else {
            gPhase = command == "strict" ? Phase::kStrict : Phase::kLoose;
            mAttempt = Clock::now();
        }
        mWay->start();
    }
    // To be called often, but at rest. That requests are answered is seen to where they are made;
    // from inside callbacks, a service that may do anything can end that.
    void keepUp() {
        makeMemoryScarce();
        const unsigned int answers = gAnswers;
        if (std::exchange(mAnswers, answers) != answers || (gUp && gPhase != Phase::kLoose)) {
            mPatience = Clock::now() + kPatience;
        }
        if (gUp && Clock::now() < mPatience) {
            mAttempt = Clock::now();
        } else if (Clock::now() >= mAttempt) {
            mAttempt = Clock::now() + kAttempt;
            EXPECT_EQ(createSdfClient(onStatus), 0);
        }
    }
    void end() {
        mWay->stop();
        destroySdfClient();
    }

  private:
    // For the library's threads, now and then, until this is called again. What is lost then need
    // not be reported, so only with a service whose answers may be missing anyway.
    void makeMemoryScarce() {
        const bool scarce = gPhase == Phase::kLoose && mRandom() % 8 == 0;
        if (scarce) ++gScarce;
        refuseEveryAllocation(scarce ? 2 + mRandom() % 64 : 0);
    }
    void called(const ClientEvent& event) {
        const AllocationGrant application;
        forgetClientEvents();
        if (event.kind == ClientEvent::Kind::kStatus) {
            if (event.status == SDF_V2_SERVICE_UP) {
                if (mFaults.hearsOfService()) mWay->up();
                return;
            }
            if (gExact) failed("lost in a calm: " + event.text);
            gUp = false;
            account().lose();
            return;
        }
        ++gAnswers;
        for (int seen = mFaults.seen(event); seen > 0; --seen) {
            account().happened(event);
            if (event.kind == ClientEvent::Kind::kLevels) mWay->answered(event);
        }
    }
    void rest() {
        if (!account().waitForAll(kAnswerLimit)) failed("not everything came that was to come");
        account().start(Account::Terms::kAnswers);
        gExact = false;
        if (!mFaults.comesToRest()) return;
        mFaults.keep();
        malloc_trim(0);
        printf("rest blocks=%jd bytes=%jd requests=%u unanswered=%u scarce=%u\n",
               intmax_t{allocatedBlocks()}, intmax_t{allocatedBytes()}, account().made(),
               account().asked() - account().answered(), gScarce.load());
        (void)fflush(stdout);
    }

    const std::unique_ptr<Way> mWay;
    Faults mFaults;
    std::mt19937 mRandom;
    Clock::time_point mAttempt{};
    Clock::time_point mPatience{};
    unsigned int mAnswers = 0;
};

std::unique_ptr<Way> wayOf(const std::string& kind, unsigned int seed, bool churns) {
    if (kind == "callbacks") return std::make_unique<Callbacks>(seed, churns);
    return std::make_unique<Threads>(kind == "threads" ? Worker::kThreads : 1, seed, churns);
}

}  // namespace

int main(int argc, char** argv) {
    const AllocationGrant application;
    testing::InitGoogleTest(&argc, argv);
    const std::vector<std::string> words(argv + 1, argv + argc);
    if (words.size() < 2) return 2;
    const auto seed = static_cast<unsigned int>(std::stoul(words[1]));
    const bool churns = words.back() == "churn";
    // Never destroyed: callbacks may come while the process ends.
    auto& client = *new Application(wayOf(words[0], seed, churns), seed, words.back());
    std::string line;
    while (!testing::Test::HasFailure()) {
        pollfd input{STDIN_FILENO, POLLIN, 0};
        if (poll(&input, 1, gPhase == Phase::kRest ? -1 : 100) > 0) {
            char letter = 0;
            if (read(STDIN_FILENO, &letter, 1) <= 0) break;
            if (letter == '\n') {
                client.command(std::exchange(line, ""));
            } else {
                line += letter;
            }
        } else {
            client.keepUp();
        }
    }
    if (!testing::Test::HasFailure()) client.end();
    (void)fflush(stdout);
    _exit(testing::Test::HasFailure() ? 1 : 0);
}
