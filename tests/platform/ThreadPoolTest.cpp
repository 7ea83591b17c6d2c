// SPDX-License-Identifier: Apache-2.0
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <fstream>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "platform/linux/src/IoLoop.h"
#include "tests/platform/EndlessSource.h"
#include "tests/platform/FunctionWork.h"
#include "tests/platform/PeerTest.h"
#include "tests/support/Eventually.h"
#include "tests/support/LogCapture.h"
#include "tools/emulator/ProcessStats.h"

namespace {

std::atomic<int> gRefusedThreads{0};
std::function<void()> gBeforeRefusal;      // set while no other thread makes threads
std::atomic<Counter*> gLetStart{nullptr};  // new threads wait for it before they begin

struct HeldThread {
    void* (*body)(void*);
    void* argument;
    Counter* letStart;
};

void* beginWhenLet(void* thread) {
    const HeldThread held = *std::unique_ptr<HeldThread>(static_cast<HeldThread*>(thread));
    held.letStart->waitFor(1);
    return held.body(held.argument);
}

}  // namespace

// Goes before the C library's: refuses as many threads as a test asks for, or holds them up.
extern "C" __attribute__((visibility("default"))) int pthread_create(
    pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*), void* argument) {
    using Create = int (*)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
    static const auto real = reinterpret_cast<Create>(dlsym(RTLD_NEXT, "pthread_create"));
    if (gRefusedThreads > 0) {
        --gRefusedThreads;
        if (gBeforeRefusal != nullptr) gBeforeRefusal();
        return EAGAIN;
    }
    Counter* const letStart = gLetStart;
    if (letStart == nullptr) return real(thread, attributes, body, argument);
    auto held = std::make_unique<HeldThread>(HeldThread{body, argument, letStart});
    const int error = real(thread, attributes, beginWhenLet, held.get());
    if (error == 0) (void)held.release();
    return error;
}

namespace {

class ThreadPoolTest : public testing::Test {
  protected:
    // Posts work that a free thread does, and returns when it is done.
    static void expectDone(const std::function<void()>& body = [] {}) {
        Counter done;
        post([&] {
            body();
            done.add();
        });
        EXPECT_TRUE(done.waitFor(1));
    }

    // Starts the pool, and returns when both its threads wait.
    void startAtRest() {
        mPool.start();
        pid_t thread = 0;
        expectDone([&thread] { thread = gettid(); });
        waitForPoolThread(thread);
    }

    // Posts work that counts itself, then waits.
    static void postHeld(int count, Counter& running, const Counter& letGo,
                         const std::shared_ptr<WorkLane>& lane = nullptr) {
        for (int i = 0; i < count; ++i) {
            post(
                [&] {
                    running.add();
                    letGo.waitFor(1);
                },
                lane);
        }
    }

    ThreadPool& mPool = ThreadPool::instance();
};

TEST_F(ThreadPoolTest, NothingRunsBeforeTheStart) {
    std::atomic<bool> started{false};
    Counter done;
    for (int i = 0; i < 3; ++i) {
        post([&] {
            EXPECT_TRUE(started);
            done.add();
        });
    }
    started = true;
    mPool.start();
    mPool.start();
    EXPECT_TRUE(done.waitFor(3));
}

TEST_F(ThreadPoolTest, KeepsOneThreadWhenTheWorkIsDone) {
    startAtRest();
    const size_t atRest = runningThreads();
    Counter running;
    Counter letGo;
    postHeld(5, running, letGo);
    ASSERT_TRUE(running.waitFor(5));
    EXPECT_EQ(runningThreads(), atRest + 4);
    letGo.add();
    EXPECT_TRUE(eventually([&] { return runningThreads() == atRest; }));
    expectDone();
}

TEST_F(ThreadPoolTest, ThreadThatBeginsWhenTheWorkIsDoneGoesAgain) {
    startAtRest();
    Counter letStart;
    Counter running;
    Counter letGo;
    Counter done;
    postHeld(1, running, letGo);
    ASSERT_TRUE(running.waitFor(1));
    const size_t withOne = runningThreads();
    gLetStart = &letStart;
    post([&] { done.add(); });
    gLetStart = nullptr;
    EXPECT_EQ(runningThreads(), withOne + 1);
    // The first thread deals with this too, before the second has begun.
    letGo.add();
    ASSERT_TRUE(done.waitFor(1));
    letStart.add();
    EXPECT_TRUE(eventually([&] { return runningThreads() == withOne; }));
}

TEST_F(ThreadPoolTest, GrowsToSixteenThreadsAndNotBeyond) {
    startAtRest();
    const size_t withOne = runningThreads();
    Counter running;
    Counter letGo;
    Counter done;
    for (int i = 0; i < 48; ++i) {
        post([&] {
            running.add();
            letGo.waitFor(1);
            done.add();
        });
    }
    EXPECT_TRUE(running.waitFor(16));
    EXPECT_EQ(runningThreads(), withOne + 15);
    // One more waits for what comes.
    const auto source = std::make_shared<EndlessSource>();
    ASSERT_TRUE(IoLoop::instance().add(source->fd(), source));
    EXPECT_TRUE(source->woken().waitFor(1));
    removeSource(source);
    letGo.add();
    EXPECT_TRUE(done.waitFor(48));
}

TEST_F(ThreadPoolTest, WorkThatASourcePostsIsDoneByTheSameThread) {
    class PostingSource final : public EndlessSource,
                                public std::enable_shared_from_this<PostingSource> {
      public:
        void onReady(uint32_t) override {
            mCaller = gettid();
            post([self = shared_from_this()] {
                if (self->mCaller == gettid()) self->mSame = true;
            });
            // Time enough for another thread to do it.
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
        bool same() const { return mSame; }

      private:
        std::atomic<pid_t> mCaller{0};
        std::atomic<bool> mSame{false};
    };
    mPool.start();
    const auto source = std::make_shared<PostingSource>();
    ASSERT_TRUE(IoLoop::instance().add(source->fd(), source));
    // Not if a thread has only just started, or finishes other work.
    EXPECT_TRUE(eventually([&] { return source->same(); }));
    removeSource(source);
}

// With the last work of a process that has gone its account ends, which takes a while.
TEST_F(ThreadPoolTest, WorkOfOthersIsDoneWhileTheAccountOfAProcessEnds) {
    startAtRest();
    const size_t atRest = runningThreads();
    Counter running;
    Counter letEnd;
    Counter ends;
    Counter letGo;
    Counter done;
    std::shared_ptr<WorkLane> gone(new WorkLane, [&](WorkLane* lane) {
        delete lane;
        ends.add();
        EXPECT_TRUE(done.waitFor(1));
    });
    postHeld(1, running, letEnd, std::exchange(gone, nullptr));
    // As many as the other may have at once, and one more.
    const auto other = std::make_shared<WorkLane>();
    postHeld(7, running, letGo, other);
    ASSERT_TRUE(running.waitFor(8));
    post([&] { done.add(); }, other);
    expectDone();
    EXPECT_EQ(done.value(), 0);
    letEnd.add();
    EXPECT_TRUE(ends.waitFor(1));
    EXPECT_TRUE(done.waitFor(1));
    letGo.add();
    EXPECT_TRUE(eventually([&] { return runningThreads() == atRest; }));
}

TEST_F(ThreadPoolTest, ThreadsBlockWhatAProgramHandlesAndNoFault) {
    mPool.start();
    sigset_t blocked;
    expectDone([&] { pthread_sigmask(SIG_SETMASK, nullptr, &blocked); });
    for (const int signal : {SIGTERM, SIGINT, SIGUSR1, SIGCHLD, SIGPIPE, SIGALRM}) {
        EXPECT_EQ(sigismember(&blocked, signal), 1) << signal;
    }
    for (const int signal : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS, SIGABRT}) {
        EXPECT_EQ(sigismember(&blocked, signal), 0) << signal;
    }
    // The starting thread's own are as before.
    sigset_t own;
    pthread_sigmask(SIG_SETMASK, nullptr, &own);
    EXPECT_EQ(sigismember(&own, SIGTERM), 0);
}

std::string nameOfThisThread() {
    char name[16] = "";
    pthread_getname_np(pthread_self(), name, sizeof name);
    return name;
}

// Whether it is "binder:", the process, and a number, as far as 15 characters go.
bool isBinderThreadName(const std::string& name) {
    const std::string start = "binder:" + std::to_string(getpid()) + "_";
    return name.compare(0, start.size(), start, 0, 15) == 0;
}

TEST_F(ThreadPoolTest, ThreadsOfThePoolAndTheirStarterBearThePlatformsNames) {
    EXPECT_FALSE(isBinderThreadName(nameOfThisThread()));
    ABinderProcess_startThreadPool();
    const std::string starter = nameOfThisThread();
    EXPECT_TRUE(isBinderThreadName(starter)) << starter;
    std::string first;
    expectDone([&] { first = nameOfThisThread(); });
    EXPECT_TRUE(isBinderThreadName(first)) << first;
    // A later starter gets a name, too.
    std::string other;
    std::thread([&] {
        ABinderProcess_startThreadPool();
        other = nameOfThisThread();
    }).join();
    EXPECT_TRUE(isBinderThreadName(other)) << other;
    if (std::to_string(getpid()).size() < 7) {  // all of the name is kept
        EXPECT_EQ((std::set<std::string>{starter, first, other}).size(), 3U);
    }
}

const LogLine kRefusedLine = logE(
    "binder: no thread for incoming calls (Resource temporarily unavailable), tried again later");

TEST_F(ThreadPoolTest, RefusedThreadIsSaidAndTriedAgainWithTheNextWork) {
    LogCapture log;
    gRefusedThreads = 1;
    mPool.start();
    EXPECT_EQ(log.lines(), (std::vector<LogLine>{kRefusedLine}));
    expectDone();
    EXPECT_EQ(log.lines().size(), 1U);
}

TEST_F(ThreadPoolTest, RefusedThreadsAreSaidOnceHoweverMuchWorkWantsThem) {
    startAtRest();
    LogCapture log;
    gRefusedThreads = 1000000;
    for (int i = 0; i < 20; ++i) {
        Counter running;
        Counter letGo;
        Counter done;
        post([&] {
            running.add();
            letGo.waitFor(1);
            done.add();
        });
        ASSERT_TRUE(running.waitFor(1));
        post([&] { done.add(); });
        letGo.add();
        ASSERT_TRUE(done.waitFor(2));
    }
    EXPECT_EQ(log.lines(), (std::vector<LogLine>{kRefusedLine}));
    gRefusedThreads = 0;
}

TEST_F(ThreadPoolTest, RefusedThreadIsTriedAgainWithoutMoreWork) {
    // The thread that waits is there already, as with a connection.
    ASSERT_EQ(mPool.startWaiting(), 0);
    LogCapture log;
    Counter done;
    for (int i = 0; i < 3; ++i) post([&] { done.add(); });
    gRefusedThreads = 4;
    mPool.start();
    EXPECT_TRUE(done.waitFor(3));
    EXPECT_EQ(gRefusedThreads, 0);
    EXPECT_EQ(log.lines(), (std::vector<LogLine>{kRefusedLine}));
}

TEST_F(ThreadPoolTest, RefusedThreadIsTriedAgainWhenThereWereNoSocketsYet) {
    Counter done;
    post([&] { done.add(); });
    gRefusedThreads = 1;
    mPool.start();
    EXPECT_TRUE(done.waitFor(1));
}

// Whether a thread of this process has ended, or waits for something.
bool isAtRest(pid_t thread) {
    std::ifstream file("/proc/self/task/" + std::to_string(thread) + "/stat");
    std::string number;
    std::string name;
    std::string state;
    return !(file >> number >> name >> state) || state == "S";
}

TEST_F(ThreadPoolTest, ThreadStaysWhileTheOneToFollowItIsRefused) {
    mPool.start();
    std::atomic<pid_t> thread{0};
    std::atomic<bool> followed{false};
    Counter letGo;
    post([&] {
        thread = gettid();
        letGo.waitFor(1);
    });
    ASSERT_TRUE(eventually([&] { return thread != 0; }));
    // The only thread has done everything before it is known that there will be no other.
    gBeforeRefusal = [&] {
        letGo.add();
        EXPECT_TRUE(eventually([&] { return followed && isAtRest(thread); }));
    };
    gRefusedThreads = 1000000;
    post([&] { followed = true; });
    expectDone();
    gRefusedThreads = 0;
}

TEST_F(ThreadPoolTest, LookupIsNullWhileThereIsNoThreadForSockets) {
    const TestDirectory directory;
    const PeerProcess peer(kName);
    const ndk::SpAIBinder object = makePeerObject(nullptr);
    LogCapture log;
    const LogLine line = logE("binder: cannot wait for sockets (Resource temporarily unavailable)");
    gRefusedThreads = 2;
    EXPECT_EQ(find(kName).get(), nullptr);
    EXPECT_EQ(AServiceManager_addService(object.get(), "lum.test.own"), EX_ILLEGAL_STATE);
    EXPECT_EQ(log.lines(), (std::vector<LogLine>{line, line}));
    EXPECT_EQ(AIBinder_debugGetRefCount(object.get()), 1);

    EXPECT_EQ(AIBinder_ping(find(kName).get()), STATUS_OK);
    EXPECT_EQ(AServiceManager_addService(object.get(), "lum.test.own"), EX_NONE);
}

TEST(WorkQueueTest, KeepsTheOrderAndEndsALongQueue) {
    WorkQueue queue;
    EXPECT_TRUE(queue.empty());
    EXPECT_EQ(queue.pop(), nullptr);
    std::vector<int> order;
    for (int i = 0; i < 3; ++i) {
        queue.push(std::make_unique<FunctionWork>([&order, i] { order.push_back(i); }));
    }
    queue.pop()->run();
    queue.push(std::make_unique<FunctionWork>([&order] { order.push_back(3); }));
    while (!queue.empty()) queue.pop()->run();
    EXPECT_EQ(order, (std::vector<int>{0, 1, 2, 3}));
    // Ended one by one: recursion would not survive this many.
    for (int i = 0; i < 1000000; ++i) queue.push(std::make_unique<FunctionWork>(nullptr));
}

}  // namespace
