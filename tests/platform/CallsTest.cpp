// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "tests/platform/PeerInterface.h"
#include "tests/platform/PeerProcess.h"
#include "tests/support/Eventually.h"
#include "tests/support/LogCapture.h"
#include "tests/support/TestDirectory.h"

namespace {

constexpr char kName[] = "lum.test.peer";

class CallsTest : public testing::Test {
  protected:
    int32_t add(int32_t first, int32_t second) {
        int32_t sum = -1;
        const Fill fill = [&](AParcel* in) {
            AParcel_writeInt32(in, first);
            AParcel_writeInt32(in, second);
        };
        EXPECT_EQ(callPeer(mService, kAdd, fill, readInt(&sum)), STATUS_OK);
        return sum;
    }

    int32_t ask(transaction_code_t code) {
        int32_t answer = -1;
        EXPECT_EQ(callPeer(mService, code, nullptr, readInt(&answer)), STATUS_OK);
        return answer;
    }

    bool holding(int32_t count) {
        return eventually([&] { return ask(kHolding) == count; });
    }

    // Has the peer call kAdd of `object` with number and 1.
    binder_status_t callBack(const ndk::SpAIBinder& object, int32_t number, int32_t* sum) {
        const Fill fill = [&](AParcel* in) {
            AParcel_writeStrongBinder(in, object.get());
            AParcel_writeInt32(in, number);
        };
        return callPeer(mService, kCallBack, fill, readInt(sum));
    }

    binder_status_t sendBytes(int32_t size, int32_t replySize, binder_flags_t flags = 0,
                              int32_t* received = nullptr) {
        const std::vector<int8_t> bytes(static_cast<size_t>(size), 1);
        const Fill fill = [&](AParcel* in) {
            AParcel_writeInt32(in, replySize);
            AParcel_writeByteArray(in, bytes.data(), size);
        };
        const Take take = [&](const AParcel* out) {
            std::string reply;
            AParcel_readByteArray(out, &reply, [](void* data, int32_t length, int8_t** buffer) {
                auto* const text = static_cast<std::string*>(data);
                text->resize(static_cast<size_t>(length));
                *buffer = reinterpret_cast<int8_t*>(text->data());
                return true;
            });
            if (received != nullptr) *received = static_cast<int32_t>(reply.size());
        };
        return callPeer(mService, kBig, fill, take, flags);
    }

    const TestDirectory mDirectory;
    PeerProcess mPeer{kName};
    ndk::SpAIBinder mService{AServiceManager_waitForService(kName)};
};

// How many bytes kBig's parcel has besides those of its array: the token (three words, the length,
// 14 characters and a zero, which make 30 bytes, padded to 32), the number and the length.
constexpr int32_t kBigOverhead = 3 * 4 + 4 + 32 + 4 + 4;
constexpr int32_t kMiB = 1024 * 1024;

ndk::SpAIBinder makeAdder(PeerHandler first) {
    return makePeerObject(
        [first = std::move(first)](transaction_code_t code, const AParcel* in, AParcel* out) {
            if (code != kAdd) return binder_status_t{STATUS_UNKNOWN_TRANSACTION};
            const binder_status_t status = first(code, in, out);
            if (status != STATUS_OK) return status;
            int32_t a = 0;
            int32_t b = 0;
            AParcel_readInt32(in, &a);
            AParcel_readInt32(in, &b);
            return AParcel_writeInt32(out, a + b);
        });
}

TEST_F(CallsTest, TwoWayCallReturnsTheReply) {
    ASSERT_EQ(mPeer.said(), "ready");
    ASSERT_NE(mService.get(), nullptr);
    EXPECT_EQ(add(40, 2), 42);
}

TEST_F(CallsTest, ProxyIsRemoteAliveAndAnswersPing) {
    EXPECT_TRUE(AIBinder_isRemote(mService.get()));
    EXPECT_TRUE(AIBinder_isAlive(mService.get()));
    EXPECT_EQ(AIBinder_ping(mService.get()), STATUS_OK);
    EXPECT_EQ(AIBinder_getUserData(mService.get()), nullptr);
    EXPECT_EQ(AIBinder_dump(mService.get(), STDOUT_FILENO, nullptr, 0), STATUS_INVALID_OPERATION);
}

TEST_F(CallsTest, OnewayCallReturnsBeforeItIsDone) {
    EXPECT_EQ(callPeer(mService, kHold, nullptr, nullptr, FLAG_ONEWAY), STATUS_OK);
    EXPECT_TRUE(holding(1));
    EXPECT_EQ(callPeer(mService, kLetGo), STATUS_OK);
    EXPECT_TRUE(holding(0));
}

TEST_F(CallsTest, TenThousandOnewayCallsKeepTheirOrder) {
    constexpr int32_t kCount = 10000;
    for (int32_t i = 0; i < kCount; ++i) {
        // Refused while too many are unfinished; nothing of a refused call arrives.
        ASSERT_TRUE(eventually([&] {
            const binder_status_t status =
                callPeer(mService, kNote, writeInt(i), nullptr, FLAG_ONEWAY);
            EXPECT_TRUE(status == STATUS_OK || status == STATUS_FAILED_TRANSACTION) << status;
            return status == STATUS_OK;
        }));
    }
    EXPECT_TRUE(eventually([&] { return ask(kNoted) == kCount; }));
    int32_t inOrder = 0;
    EXPECT_EQ(callPeer(mService, kNoted, nullptr,
                       [&](const AParcel* out) {
                           int32_t count = 0;
                           AParcel_readInt32(out, &count);
                           AParcel_readInt32(out, &inOrder);
                       }),
              STATUS_OK);
    EXPECT_EQ(inOrder, 1);
}

TEST_F(CallsTest, OnewayCallsToThisProcessKeepTheirOrder) {
    std::mutex lock;
    std::vector<int32_t> notes;
    Counter arrived;
    const ndk::SpAIBinder object =
        makePeerObject([&](transaction_code_t code, const AParcel* in, AParcel*) {
            if (code != kNote) return binder_status_t{STATUS_UNKNOWN_TRANSACTION};
            int32_t number = -1;
            AParcel_readInt32(in, &number);
            {
                const std::lock_guard<std::mutex> guard(lock);
                notes.push_back(number);
            }
            arrived.add();
            return binder_status_t{STATUS_OK};
        });
    ABinderProcess_startThreadPool();
    ASSERT_EQ(callPeer(mService, kKeep, writeBinder(object)), STATUS_OK);
    // As many as one-way calls may be unfinished at once, so that none is refused.
    constexpr int32_t kCount = 1000;
    ASSERT_EQ(callPeer(mService, kNoteToKept, writeInt(kCount)), STATUS_OK);
    ASSERT_TRUE(arrived.waitFor(kCount));
    const std::lock_guard<std::mutex> guard(lock);
    for (int32_t i = 0; i < kCount; ++i) EXPECT_EQ(notes[static_cast<size_t>(i)], i);
}

TEST_F(CallsTest, UnfinishedOnewayCallsAreLimitedAndBreakNothingElse) {
    LogCapture log;
    // The first call keeps the object's one-way calls waiting.
    ASSERT_EQ(callPeer(mService, kHold, nullptr, nullptr, FLAG_ONEWAY), STATUS_OK);
    int sent = 0;
    while (sendBytes(50000, 0, FLAG_ONEWAY) == STATUS_OK) {
        ++sent;
        ASSERT_LT(sent, 11);
    }
    EXPECT_EQ(sent, 10);
    EXPECT_TRUE(log.has(logE(format(
        "binder: process %d has too many calls to finish, another is refused", mPeer.pid()))));
    EXPECT_EQ(add(1, 2), 3);
    EXPECT_EQ(callPeer(mService, kLetGo), STATUS_OK);
    EXPECT_TRUE(eventually([&] { return sendBytes(50000, 0, FLAG_ONEWAY) == STATUS_OK; }));
}

TEST_F(CallsTest, NestedCallRunsOnTheWaitingThread) {
    for (const bool withPool : {false, true}) {
        if (withPool) ABinderProcess_startThreadPool();
        EXPECT_EQ(ABinderProcess_isThreadPoolStarted(), withPool);
        std::thread::id ranOn;
        const ndk::SpAIBinder object = makeAdder([&](transaction_code_t, const AParcel*, AParcel*) {
            ranOn = std::this_thread::get_id();
            return binder_status_t{STATUS_OK};
        });
        int32_t sum = 0;
        EXPECT_EQ(callBack(object, 6, &sum), STATUS_OK);
        EXPECT_EQ(sum, 7);
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
    ASSERT_EQ(callPeer(mService, kKeep, writeBinder(object)), STATUS_OK);
    ASSERT_EQ(callPeer(mService, kOnewayAddToKept, writeInt(4), nullptr, FLAG_ONEWAY), STATUS_OK);
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
    object = makeAdder([&](transaction_code_t, const AParcel*, AParcel*) {
        if (++calls == kDepth) return binder_status_t{STATUS_OK};
        int32_t sum = 0;
        return callBack(object, calls, &sum);
    });
    int32_t sum = 0;
    EXPECT_EQ(callBack(object, 0, &sum), STATUS_OK);
    EXPECT_EQ(calls, kDepth);
    EXPECT_EQ(sum, 1);
    // Let go of what the object's function holds: the object itself.
    object = nullptr;
}

TEST_F(CallsTest, CallThroughTwoProcessesComesBackToTheWaitingThread) {
    const PeerProcess second("lum.test.second");
    ASSERT_EQ(second.said(), "ready");
    std::thread::id ranOn;
    const ndk::SpAIBinder object =
        makePeerObject([&](transaction_code_t code, const AParcel*, AParcel* out) {
            if (code != kRelay) return binder_status_t{STATUS_UNKNOWN_TRANSACTION};
            ranOn = std::this_thread::get_id();
            return AParcel_writeInt32(out, 0);
        });
    ASSERT_EQ(AServiceManager_addService(object.get(), "lum.test.first"), EX_NONE);
    const std::string path = "lum.test.second/lum.test.first";
    int32_t steps = 0;
    EXPECT_EQ(callPeer(
                  mService, kRelay,
                  [&](AParcel* in) {
                      AParcel_writeString(in, path.c_str(), static_cast<int32_t>(path.size()));
                  },
                  readInt(&steps)),
              STATUS_OK);
    EXPECT_EQ(steps, 2);
    EXPECT_EQ(ranOn, std::this_thread::get_id());
    EXPECT_FALSE(ABinderProcess_isThreadPoolStarted());
}

TEST_F(CallsTest, SeveralThreadsCallAtOnce) {
    std::vector<std::thread> threads;
    threads.reserve(8);
    for (int32_t t = 0; t < 8; ++t) {
        threads.emplace_back([this, t] {
            for (int32_t i = 0; i < 200; ++i) EXPECT_EQ(add(t * 1000, i), t * 1000 + i);
        });
    }
    for (std::thread& thread : threads) thread.join();
}

TEST_F(CallsTest, BlockingCallsRunAtTheSameTime) {
    std::vector<std::thread> threads;
    threads.reserve(5);
    for (int i = 0; i < 5; ++i) {
        threads.emplace_back([this] { EXPECT_EQ(callPeer(mService, kHold), STATUS_OK); });
    }
    EXPECT_TRUE(holding(5));
    EXPECT_EQ(callPeer(mService, kLetGo), STATUS_OK);
    for (std::thread& thread : threads) thread.join();
}

TEST_F(CallsTest, PeerWithoutPoolAnswersNoCall) {
    PeerProcess quiet("lum.test.quiet", "nopool");
    ASSERT_EQ(quiet.said(), "ready");
    const ndk::SpAIBinder service(AServiceManager_checkService("lum.test.quiet"));
    ASSERT_NE(service.get(), nullptr);
    Counter answered;
    std::thread caller([&] {
        EXPECT_EQ(AIBinder_ping(service.get()), STATUS_DEAD_OBJECT);
        answered.add();
    });
    // Another process is answered meanwhile.
    EXPECT_EQ(add(2, 3), 5);
    EXPECT_EQ(answered.value(), 0);
    quiet.kill();
    caller.join();
}

TEST_F(CallsTest, UnknownMethodIsRefused) {
    EXPECT_EQ(callPeer(mService, 12345), STATUS_UNKNOWN_TRANSACTION);
    EXPECT_EQ(callPeer(mService, 12345, nullptr, nullptr, FLAG_ONEWAY), STATUS_OK);
    EXPECT_EQ(add(1, 1), 2);
}

TEST_F(CallsTest, CodeThatIsNoMethodIsNotSent) {
    LogCapture log;
    EXPECT_EQ(callPeer(mService, LAST_CALL_TRANSACTION + 1), STATUS_UNKNOWN_TRANSACTION);
    EXPECT_EQ(callPeer(mService, 0), STATUS_UNKNOWN_TRANSACTION);
    EXPECT_TRUE(log.has(logE("binder: 16777216 is not the code of a method")));
    EXPECT_TRUE(log.has(logE("binder: 0 is not the code of a method")));
}

TEST_F(CallsTest, AnswerThatTheObjectIsDeadMarksItsProxy) {
    EXPECT_EQ(callPeer(mService, kReturn, writeInt(STATUS_DEAD_OBJECT)), STATUS_DEAD_OBJECT);
    EXPECT_FALSE(AIBinder_isAlive(mService.get()));
    // No further call is made through it.
    EXPECT_EQ(callPeer(mService, kNote, writeInt(0)), STATUS_DEAD_OBJECT);
    EXPECT_EQ(AIBinder_ping(mService.get()), STATUS_DEAD_OBJECT);
    // The process lives: a new proxy finds that nothing has arrived.
    mService = nullptr;
    mService = ndk::SpAIBinder(AServiceManager_checkService(kName));
    EXPECT_TRUE(AIBinder_isAlive(mService.get()));
    EXPECT_EQ(ask(kNoted), 0);
}

TEST_F(CallsTest, ClassOfAnotherInterfaceIsRefused) {
    static AIBinder_Class* const other = AIBinder_Class_define(
        "lum.test.IOther", [](void* args) { return args; }, [](void*) {},
        [](AIBinder*, transaction_code_t, const AParcel*, AParcel*) -> binder_status_t {
            return STATUS_OK;
        });
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

TEST_F(CallsTest, VendorFlagIsAccepted) {
    int32_t holding = -1;
    EXPECT_EQ(callPeer(mService, kHolding, nullptr, readInt(&holding), FLAG_PRIVATE_VENDOR),
              STATUS_OK);
    EXPECT_EQ(holding, 0);
    EXPECT_EQ(callPeer(mService, kNote, writeInt(0), nullptr, FLAG_PRIVATE_VENDOR | FLAG_ONEWAY),
              STATUS_OK);
}

TEST_F(CallsTest, CallingIdsAreThoseOfTheCaller) {
    int32_t uid = -1;
    int32_t pid = -1;
    const Take take = [&](const AParcel* out) {
        AParcel_readInt32(out, &uid);
        AParcel_readInt32(out, &pid);
    };
    EXPECT_EQ(callPeer(mService, kWho, nullptr, take), STATUS_OK);
    EXPECT_EQ(uid, static_cast<int32_t>(getuid()));
    EXPECT_EQ(pid, getpid());

    // A one-way call does not say which process it came from.
    EXPECT_EQ(callPeer(mService, kNoteWho, nullptr, nullptr, FLAG_ONEWAY), STATUS_OK);
    EXPECT_TRUE(eventually([&] {
        EXPECT_EQ(callPeer(mService, kGetNotedWho, nullptr, take), STATUS_OK);
        return pid == 0;
    }));
    EXPECT_EQ(uid, static_cast<int32_t>(getuid()));
}

TEST_F(CallsTest, CallingIdsAreSetDuringACallOnly) {
    uid_t uid = static_cast<uid_t>(-1);
    pid_t pid = -1;
    const ndk::SpAIBinder object = makeAdder([&](transaction_code_t, const AParcel*, AParcel*) {
        uid = AIBinder_getCallingUid();
        pid = AIBinder_getCallingPid();
        return binder_status_t{STATUS_OK};
    });
    int32_t sum = 0;
    EXPECT_EQ(callBack(object, 1, &sum), STATUS_OK);
    EXPECT_EQ(uid, getuid());
    EXPECT_EQ(pid, mPeer.pid());
    EXPECT_EQ(AIBinder_getCallingUid(), getuid());
    EXPECT_EQ(AIBinder_getCallingPid(), getpid());
}

TEST_F(CallsTest, TransactionOfOneMiBPassesAndOneMoreWordDoesNot) {
    int32_t received = -1;
    EXPECT_EQ(sendBytes(kMiB - kBigOverhead, 10, 0, &received), STATUS_OK);
    EXPECT_EQ(received, 10);
    LogCapture log;
    EXPECT_EQ(sendBytes(kMiB - kBigOverhead + 4, 10), STATUS_FAILED_TRANSACTION);
    EXPECT_TRUE(log.has(logE("binder: a transaction of 1048580 bytes is too large")));
    EXPECT_EQ(add(1, 1), 2);
}

TEST_F(CallsTest, ReplyOfOneMiBPassesAndOneMoreWordDoesNot) {
    int32_t received = -1;
    EXPECT_EQ(sendBytes(1, kMiB - 4, 0, &received), STATUS_OK);
    EXPECT_EQ(received, kMiB - 4);
    EXPECT_EQ(sendBytes(1, kMiB), STATUS_FAILED_TRANSACTION);
    EXPECT_EQ(add(1, 1), 2);
}

TEST_F(CallsTest, LargeCallsOfManyThreadsArriveWhole) {
    std::vector<std::thread> threads;
    threads.reserve(4);
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([this] {
            for (int i = 0; i < 10; ++i) {
                int32_t received = -1;
                EXPECT_EQ(sendBytes(900000, 900001, 0, &received), STATUS_OK);
                EXPECT_EQ(received, 900001);
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
}

TEST_F(CallsTest, PeerKilledDuringCallsEndsThem) {
    std::vector<std::thread> threads;
    threads.reserve(4);
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([this] { EXPECT_EQ(callPeer(mService, kHold), STATUS_DEAD_OBJECT); });
    }
    EXPECT_TRUE(holding(4));
    mPeer.kill();
    for (std::thread& thread : threads) thread.join();
    // Known to be dead, it is not even written to.
    EXPECT_EQ(callPeer(mService, kHold), STATUS_DEAD_OBJECT);
    EXPECT_EQ(callPeer(mService, kNote, writeInt(0), nullptr, FLAG_ONEWAY), STATUS_DEAD_OBJECT);
    EXPECT_FALSE(AIBinder_isAlive(mService.get()));
    EXPECT_EQ(AIBinder_ping(mService.get()), STATUS_DEAD_OBJECT);
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
        const ndk::SpAIBinder service(AServiceManager_checkService(name.c_str()));
        ASSERT_EQ(AIBinder_ping(service.get()), STATUS_OK);
        Counter calls;
        std::thread killer([&] {
            EXPECT_TRUE(calls.waitFor(10));
            peer.kill();
        });
        while (callPeer(service, kNote, writeInt(0), nullptr, FLAG_ONEWAY) != STATUS_DEAD_OBJECT) {
            calls.add();
        }
        killer.join();
    }
}

TEST_F(CallsTest, PeerThatExitsWithCallsUnderWayDoesNotCrash) {
    std::vector<std::thread> threads;
    threads.reserve(4);
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([this] { EXPECT_EQ(callPeer(mService, kHold), STATUS_DEAD_OBJECT); });
    }
    EXPECT_TRUE(holding(4));
    const int status = mPeer.finish();
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
    for (std::thread& thread : threads) thread.join();
}

TEST_F(CallsTest, PeerThatDiesInsteadOfAnsweringEndsTheCall) {
    EXPECT_EQ(callPeer(mService, kTellDeath), STATUS_DEAD_OBJECT);
}

}  // namespace
