// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <string>
#include <thread>
#include <vector>

#include "tests/platform/PeerTest.h"
#include "tests/support/Driver.h"
#include "tests/support/Eventually.h"
#include "tests/support/LogCapture.h"

namespace {

class CallsTest : public PeerTest {
  protected:
    int32_t add(int32_t first, int32_t second) { return ask(kAdd, args(first, second)); }

    bool holding(int32_t count) {
        return eventually([&] { return ask(kHolding) == count; });
    }

    // Has the peer call kAdd of `object` with number and 1.
    int32_t callBack(const ndk::SpAIBinder& object, int32_t number) {
        return ask(kCallBack, args(object, number));
    }

    // Sends that many bytes; so many come back.
    binder_status_t exchange(int32_t size, int32_t replySize, binder_flags_t flags = 0) {
        const std::vector<int8_t> bytes(static_cast<size_t>(size), 1);
        std::vector<int8_t> reply;
        const binder_status_t status = call(kBig, args(replySize, bytes), into(&reply), flags);
        EXPECT_EQ(reply.size(), static_cast<size_t>(status == STATUS_OK ? replySize : 0));
        return status;
    }
};

// How many bytes kBig's parcel has besides those of its array: the token (three words, the length,
// 14 characters and a zero, which make 30 bytes, padded to 32), the number and the length.
constexpr int32_t kBigOverhead = 3 * 4 + 4 + 32 + 4 + 4;
// The most that one may have: over the driver, what all calls of a process together may.
const int32_t kMost = overDriver() ? 1024 * 1024 - 2 * 4096 : 1024 * 1024;

// Does `first`, then what kAdd is to do.
ndk::SpAIBinder makeAdder(const std::function<void()>& first) {
    return makePeerObject([first](transaction_code_t, const AParcel* in, AParcel* out) {
        first();
        int32_t a = 0;
        int32_t b = 0;
        into(&a, &b)(in);
        return AParcel_writeInt32(out, a + b);
    });
}

TEST_F(CallsTest, TenThousandOnewayCallsKeepTheirOrder) {
    constexpr int32_t kCount = 10000;
    for (int32_t i = 0; i < kCount; ++i) {
        // Refused while too many are unfinished; nothing of a refused call arrives.
        ASSERT_TRUE(eventually([&] {
            const binder_status_t status = oneway(kNote, args(i));
            EXPECT_TRUE(status == STATUS_OK || status == STATUS_FAILED_TRANSACTION) << status;
            return status == STATUS_OK;
        }));
    }
    EXPECT_TRUE(eventually([&] { return ask(kNoted) == kCount; }));
    int32_t count = 0;
    int32_t inOrder = 0;
    EXPECT_EQ(call(kNoted, nullptr, into(&count, &inOrder)), STATUS_OK);
    EXPECT_EQ(inOrder, 1);
}

TEST_F(CallsTest, UnfinishedOnewayCallsAreLimitedAndBreakNothingElse) {
    LogCapture log;
    // The first call keeps the object's one-way calls waiting. It has to wait before it is let go.
    ASSERT_EQ(oneway(kHold), STATUS_OK);
    ASSERT_TRUE(holding(1));
    for (int sent = 0; sent < 10; ++sent) ASSERT_EQ(exchange(50000, 0, FLAG_ONEWAY), STATUS_OK);
    EXPECT_EQ(exchange(50000, 0, FLAG_ONEWAY), STATUS_FAILED_TRANSACTION);
    EXPECT_EQ(
        log.has(logE(format("binder: process %d has too many calls to finish, another is refused",
                            mPeer.pid()))),
        !overDriver());
    EXPECT_EQ(add(1, 2), 3);
    EXPECT_EQ(call(kLetGo), STATUS_OK);
    EXPECT_TRUE(eventually([&] { return exchange(50000, 0, FLAG_ONEWAY) == STATUS_OK; }));
}

TEST_F(CallsTest, NestedCallRunsOnTheWaitingThread) {
    for (const bool withPool : {false, true}) {
        if (withPool) ABinderProcess_startThreadPool();
        std::thread::id ranOn;
        EXPECT_EQ(callBack(makeAdder([&] { ranOn = std::this_thread::get_id(); }), 6), 7);
        EXPECT_EQ(ranOn, std::this_thread::get_id());
    }
}

TEST_F(CallsTest, CallFromAOnewayCallNeedsThePool) {
    Counter answered;
    int32_t noted = 0;
    const ndk::SpAIBinder object =
        makePeerObject([&](transaction_code_t code, const AParcel* in, AParcel* out) {
            int32_t number = 0;
            AParcel_readInt32(in, &number);
            if (code == kAdd) return AParcel_writeInt32(out, number + 1);
            noted = number;
            answered.add();
            return binder_status_t{STATUS_OK};
        });
    ASSERT_EQ(call(kKeep, args(object)), STATUS_OK);
    ASSERT_EQ(oneway(kOnewayAddToKept, args(4)), STATUS_OK);
    // Blocking calls come back, while the one in no chain of theirs waits for the pool.
    EXPECT_EQ(add(1, 1), 2);
    EXPECT_EQ(answered.value(), 0);
    ABinderProcess_startThreadPool();
    ASSERT_TRUE(answered.waitFor(1));
    EXPECT_EQ(noted, 5);
}

TEST_F(CallsTest, NestingGoesDeeperThanAChainIsLong) {
    constexpr int32_t kDepth = 150;
    int32_t calls = 0;
    ndk::SpAIBinder object;
    object = makeAdder([&] {
        const int32_t call = ++calls;
        if (call == kDepth) return;
        EXPECT_EQ(callBack(object, call), call + 1);
    });
    EXPECT_EQ(callBack(object, 0), 1);
    EXPECT_EQ(calls, kDepth);
}

TEST_F(CallsTest, CallThroughTwoProcessesComesBackToTheWaitingThread) {
    const PeerProcess second("lum.test.second");
    std::thread::id ranOn;
    const ndk::SpAIBinder object =
        makePeerObject([&](transaction_code_t, const AParcel*, AParcel* out) {
            ranOn = std::this_thread::get_id();
            return AParcel_writeInt32(out, 0);
        });
    ASSERT_EQ(AServiceManager_addService(object.get(), "lum.test.first"), EX_NONE);
    EXPECT_EQ(ask(kRelay, args("lum.test.second/lum.test.first")), 2);
    EXPECT_EQ(ranOn, std::this_thread::get_id());
}

TEST_F(CallsTest, CodeThatIsNoMethodIsNotSent) {
    LogCapture log;
    EXPECT_EQ(call(LAST_CALL_TRANSACTION + 1), STATUS_UNKNOWN_TRANSACTION);
    EXPECT_EQ(call(0), STATUS_UNKNOWN_TRANSACTION);
    EXPECT_EQ(log.lines(),
              (std::vector<LogLine>{logE("binder: 16777216 is not the code of a method"),
                                    logE("binder: 0 is not the code of a method")}));
}

TEST_F(CallsTest, AnswerThatTheObjectIsDeadMarksItsProxy) {
    EXPECT_EQ(call(kReturn, args(STATUS_DEAD_OBJECT)), STATUS_DEAD_OBJECT);
    EXPECT_FALSE(AIBinder_isAlive(mService.get()));
    // No further call is made through it.
    EXPECT_EQ(call(kNote, args(0)), STATUS_DEAD_OBJECT);
    EXPECT_EQ(AIBinder_ping(mService.get()), STATUS_DEAD_OBJECT);
    // The process lives: a new proxy finds that nothing has arrived.
    mService = nullptr;
    mService = find(kName);
    EXPECT_TRUE(AIBinder_isAlive(mService.get()));
    EXPECT_EQ(ask(kNoted), 0);
}

TEST_F(CallsTest, ClassOfAnotherInterfaceIsRefused) {
    static AIBinder_Class* const other = plainClass("lum.test.IOther");
    LogCapture log;
    EXPECT_FALSE(AIBinder_associateClass(mService.get(), other));
    EXPECT_TRUE(
        log.has(logE("binder: an object expected to be lum.test.IOther is lum.test.IPeer")));
    EXPECT_EQ(AIBinder_getClass(mService.get()), nullptr);
    EXPECT_TRUE(AIBinder_associateClass(mService.get(), peerClass()));
    EXPECT_TRUE(AIBinder_associateClass(mService.get(), peerClass()));
    EXPECT_EQ(AIBinder_getClass(mService.get()), peerClass());
    EXPECT_FALSE(AIBinder_associateClass(mService.get(), other));
}

TEST_F(CallsTest, CallNeedsAClass) {
    LogCapture log;
    AParcel* in = nullptr;
    EXPECT_EQ(AIBinder_prepareTransaction(mService.get(), &in), STATUS_INVALID_OPERATION);
    EXPECT_EQ(in, nullptr);
    EXPECT_TRUE(log.has(logE("binder: a call needs an object with a class")));
}

TEST_F(CallsTest, ParcelIsTakenOverWhateverComesOfTheCall) {
    ASSERT_TRUE(AIBinder_associateClass(mService.get(), peerClass()));
    const ndk::SpAIBinder other = makePeerObject(nullptr);
    LogCapture log;
    AParcel* in = nullptr;
    AParcel* out = nullptr;
    ASSERT_EQ(AIBinder_prepareTransaction(other.get(), &in), STATUS_OK);
    EXPECT_EQ(AIBinder_transact(mService.get(), kAdd, &in, &out, 0), STATUS_BAD_VALUE);
    EXPECT_EQ(in, nullptr);
    EXPECT_EQ(out, nullptr);
    EXPECT_TRUE(log.has(logE("binder: a parcel prepared for another object")));

    ASSERT_EQ(AIBinder_prepareTransaction(mService.get(), &in), STATUS_OK);
    EXPECT_EQ(AIBinder_transact(mService.get(), kAdd, &in, &out, 0x40), STATUS_BAD_VALUE);
    EXPECT_EQ(in, nullptr);
    EXPECT_TRUE(log.has(logE("binder: unknown flags 0x40 in a call")));

    EXPECT_EQ(AIBinder_transact(mService.get(), kAdd, &in, &out, 0), STATUS_UNEXPECTED_NULL);
    EXPECT_EQ(AIBinder_transact(nullptr, kAdd, &in, &out, 0), STATUS_UNEXPECTED_NULL);
    EXPECT_EQ(AIBinder_transact(mService.get(), kAdd, nullptr, &out, 0), STATUS_UNEXPECTED_NULL);
    EXPECT_EQ(AIBinder_prepareTransaction(nullptr, &in), STATUS_UNEXPECTED_NULL);
}

TEST_F(CallsTest, CallingIdsAreThoseOfTheCaller) {
    int32_t uid = -1;
    int32_t pid = -1;
    EXPECT_EQ(call(kWho, nullptr, into(&uid, &pid)), STATUS_OK);
    EXPECT_EQ(uid, static_cast<int32_t>(getuid()));
    EXPECT_EQ(pid, getpid());

    // A one-way call does not say which process it came from.
    EXPECT_EQ(oneway(kNoteWho), STATUS_OK);
    EXPECT_TRUE(eventually([&] {
        EXPECT_EQ(call(kGetNotedWho, nullptr, into(&uid, &pid)), STATUS_OK);
        return pid == 0;
    }));
    EXPECT_EQ(uid, static_cast<int32_t>(getuid()));

    // And only while the call lasts.
    callBack(makeAdder([&] { pid = AIBinder_getCallingPid(); }), 1);
    EXPECT_EQ(pid, mPeer.pid());
    EXPECT_EQ(AIBinder_getCallingUid(), getuid());
    EXPECT_EQ(AIBinder_getCallingPid(), getpid());
}

TEST_F(CallsTest, TheMostPassesEachWayAndOneMoreWordDoesNot) {
    EXPECT_EQ(exchange(kMost - kBigOverhead, 10), STATUS_OK);
    EXPECT_EQ(exchange(1, kMost - 4), STATUS_OK);
    LogCapture log;
    EXPECT_EQ(exchange(kMost - kBigOverhead + 4, 10), STATUS_FAILED_TRANSACTION);
    EXPECT_EQ(log.has(logE("binder: a transaction of 1048580 bytes is too large")), !overDriver());
    EXPECT_EQ(exchange(1, kMost), STATUS_FAILED_TRANSACTION);
    EXPECT_EQ(add(1, 1), 2);
}

TEST_F(CallsTest, LargeCallsOfManyThreadsArriveWholeAndGetTheirOwnAnswers) {
    const int32_t size = overDriver() ? kMost / 5 : 900000;
    const Threads threads(4, [this, size](int thread) {
        for (int i = 0; i < 10; ++i) EXPECT_EQ(exchange(size, size + 1 + thread), STATUS_OK);
    });
}

TEST_F(CallsTest, PeerKilledDuringCallsEndsThem) {
    Threads threads(4, [this](int) { EXPECT_EQ(call(kHold), STATUS_DEAD_OBJECT); });
    EXPECT_TRUE(holding(4));
    mPeer.kill();
    threads.join();
    // Known to be dead, it is not even written to.
    EXPECT_EQ(call(kHold), STATUS_DEAD_OBJECT);
    EXPECT_EQ(oneway(kNote, args(0)), STATUS_DEAD_OBJECT);
    EXPECT_FALSE(AIBinder_isAlive(mService.get()));
    EXPECT_EQ(AIBinder_ping(mService.get()), STATUS_DEAD_OBJECT);
}

TEST_F(CallsTest, PeerThatExitsWithCallsUnderWayDoesNotCrash) {
    const Threads threads(4, [this](int) { EXPECT_EQ(call(kHold), STATUS_DEAD_OBJECT); });
    EXPECT_TRUE(holding(4));
    EXPECT_EQ(mPeer.finish(), 0);
}

// The signal that a write to a connection without reader raises would end this process. It is only
// raised by a write between the death and the moment that the death is noticed: hence so many.
TEST_F(CallsTest, WritingToAPeerThatIsKilledRaisesNoSignal) {
    ASSERT_NE(signal(SIGPIPE, SIG_DFL), SIG_ERR);
    sigset_t pipe;
    sigemptyset(&pipe);
    sigaddset(&pipe, SIGPIPE);
    ASSERT_EQ(pthread_sigmask(SIG_UNBLOCK, &pipe, nullptr), 0);
    for (int i = 0; i < 40; ++i) {
        const std::string name = "lum.test.peer" + std::to_string(i);
        PeerProcess peer(name);
        const ndk::SpAIBinder service = find(name);
        ASSERT_EQ(AIBinder_ping(service.get()), STATUS_OK);
        Counter calls;
        const Threads killer(1, [&](int) {
            EXPECT_TRUE(calls.waitFor(10));
            peer.kill();
        });
        while (callOneway(service, kNote, args(0)) != STATUS_DEAD_OBJECT) calls.add();
    }
}

}  // namespace
