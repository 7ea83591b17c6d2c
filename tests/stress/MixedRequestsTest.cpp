// SPDX-License-Identifier: Apache-2.0
// Applications that make requests of every kind, as fast as they are answered: one from inside its
// callbacks, which needs no lock, and one with four threads, which LUM_SDF_GUARDED allows.
#include <gtest/gtest.h>

#include <future>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "api/Sdf.h"
#include "tests/stress/Account.h"
#include "tests/stress/ClientEvents.h"
#include "tests/stress/Figures.h"
#include "tests/stress/Worker.h"
#include "tests/support/EmulatorProcess.h"
#include "tests/support/TestDirectory.h"
#include "utils/NoDestroy.h"

namespace {

// Never destroyed: callbacks may come while the process ends.
NoDestroy<Account> gAccount;

void happened(const ClientEvent& event) {
    forgetClientEvents();
    gAccount.value.happened(event);
}

// Of ids that await no answer.
void expectNothingKept(const Sdf& sdf, size_t awaited) {
    EXPECT_EQ(sdf.mUsedIds.size(), awaited);
    EXPECT_EQ(sdf.mLatencyCbs.size(), awaited);
    EXPECT_TRUE(sdf.mFilterIds.empty());
    EXPECT_TRUE(sdf.mFilterCbs.empty());
    EXPECT_EQ(sdf.mGetPriorityQueueReportCb, nullptr);
}

class MixedRequestsTest : public testing::Test {
  protected:
    // Of a test that ran before in this process.
    MixedRequestsTest() { setEventHook(nullptr); }

    // Works twice. The same client goes on, so that what it kept would show.
    template <typename Work>
    void expectNothingGrows(const Work& work) {
        ASSERT_NO_FATAL_FAILURE(work(LUM_REQUESTS / 10));
        ASSERT_FALSE(HasFailure());
        // First, because what the emulator prints is kept here.
        const EmulatorFigures emulatorBefore = figures(mEmulator);
        const Figures before = figures();
        ASSERT_NO_FATAL_FAILURE(work(LUM_REQUESTS));
        EXPECT_TRUE(settlesAt(before));
        EXPECT_TRUE(settlesAt(mEmulator, emulatorBefore));
        EXPECT_TRUE(gAccount.value.noIdIsUsed());
    }

    const TestDirectory mDirectory;
    EmulatorProcess mEmulator;
};

// Each batch is made in the callback of the last answer to the one before.
class InCallbackClient {
  public:
    // Called on the main thread; the first call creates the client, which stays.
    void run(unsigned int requests) {
        mTarget = requests;
        mRun = std::promise<void>();
        ASSERT_EQ(createSdfClient(onStatus), 0);
        EXPECT_EQ(mRun.get_future().wait_for(Account::kGenerous), std::future_status::ready);
    }

    void called(const ClientEvent& event) {
        if (event.kind == ClientEvent::Kind::kStatus) {
            EXPECT_EQ(event.status, SDF_V2_SERVICE_UP);
            Worker::registerForAll(gAccount.value);
            mLast = mWorker.batch();
            return;
        }
        happened(event);
        if (event.text == mLast) goOn();
    }

  private:
    void goOn() {
        EXPECT_TRUE(gAccount.value.isEven()) << "the service answers in order";
        mWorker.answered();
        if (gAccount.value.made() < mTarget && !testing::Test::HasFailure()) {
            mLast = mWorker.batch();
        } else if (mWorker.hasFilters() || !std::exchange(mEnding, true)) {
            mLast = mWorker.endingBatch();
        } else {
            mEnding = false;
            expectNothingKept(*Sdf::current(), 1);  // this callback's
            std::string().swap(mLast);
            mRun.set_value();
        }
    }

    Worker mWorker{gAccount.value, 0, true, 0};
    unsigned int mTarget = 0;
    std::string mLast;
    bool mEnding = false;
    std::promise<void> mRun;
};
NoDestroy<InCallbackClient> gInCallback;

TEST_F(MixedRequestsTest, InCallbacksEveryAnswerComesOnceAndLeavesNothing) {
    setEventHook([](const ClientEvent& event) { gInCallback.value.called(event); });
    expectNothingGrows([](unsigned int requests) { gInCallback.value.run(requests); });
    EXPECT_EQ(destroySdfClient(), 0);
}

#if LUM_SDF_GUARDED
void answerAll(Worker& worker, const std::string& last) {
    ASSERT_TRUE(gAccount.value.waitFor(last)) << last;
    worker.answered();
}

// All threads until so many requests have been made in all, and everything is answered, deleted and
// switched off.
void work(std::vector<Worker>& workers, unsigned int requests) {
    std::vector<std::thread> threads;
    threads.reserve(workers.size());
    for (Worker& worker : workers) {
        threads.emplace_back([&worker, requests] {
            while (gAccount.value.made() < requests && !testing::Test::HasFailure()) {
                answerAll(worker, worker.batch());
            }
            answerAll(worker, worker.endingBatch());
        });
    }
    for (std::thread& thread : threads) thread.join();
    ASSERT_FALSE(testing::Test::HasFailure());
    ASSERT_TRUE(gAccount.value.waitForAll());
    ASSERT_TRUE(gAccount.value.isEven());
}

TEST_F(MixedRequestsTest, OnFourThreadsEveryAnswerComesOnceAndLeavesNothing) {
    ASSERT_EQ(createSdfClient(onStatus), 0);
    ASSERT_TRUE(waitForStatus(SDF_V2_SERVICE_UP));
    setEventHook(happened);
    Worker::registerForAll(gAccount.value);
    std::vector<Worker> workers;
    workers.reserve(Worker::kThreads);
    for (int i = 0; i < Worker::kThreads; ++i) {
        workers.emplace_back(gAccount.value, i, false, static_cast<unsigned int>(i));
    }
    expectNothingGrows([&workers](unsigned int requests) { work(workers, requests); });
    const std::shared_ptr<Sdf> sdf = Sdf::current();
    ASSERT_EQ(destroySdfClient(), 0);
    expectNothingKept(*sdf, 0);
}
#endif

}  // namespace
