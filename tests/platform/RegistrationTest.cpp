// SPDX-License-Identifier: Apache-2.0
// How long an object stays registered for at the link, and what that means for those who link to
// its death. The test has what comes read: nothing happens but when it says so.
#include <android/binder_manager.h>
#include <android/binder_process.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "platform/linux/src/Parcel.h"
#include "platform/linux/src/RemoteBinder.h"
#include "tests/platform/Connection.h"
#include "tests/platform/DeathEvents.h"
#include "tests/platform/EndlessSource.h"
#include "tests/platform/FunctionWork.h"
#include "tests/platform/Threads.h"
#include "tests/support/Eventually.h"
#include "tests/support/TestDirectory.h"

namespace {

// All that has been posted so far is done then: every thread of the pool comes to be here.
void waitForPool() {
    constexpr int kThreads = 16;
    Counter here;
    Counter done;
    for (int i = 0; i < kThreads; ++i) {
        post([&] {
            here.add();
            here.waitFor(kThreads);
            done.add();
        });
    }
    EXPECT_TRUE(done.waitFor(kThreads));
}

// A thread that does what it is given, and sleeps otherwise.
class Sleeper {
  public:
    Sleeper() : mThread([this] { run(); }) {}
    ~Sleeper() { end(); }
    Sleeper(const Sleeper&) = delete;
    Sleeper& operator=(const Sleeper&) = delete;

    // Returns when it is done.
    void does(std::function<void()> body) {
        mBody = std::move(body);
        const int before = mDone.value();
        mGiven.add();
        ASSERT_TRUE(mDone.waitFor(before + 1));
    }
    void end() {
        if (mThread.joinable()) does(nullptr);
        if (mThread.joinable()) mThread.join();
    }

  private:
    void run() {
        for (int next = 1; mGiven.waitFor(next); ++next) {
            const bool last = mBody == nullptr;
            if (!last) mBody();
            mDone.add();
            if (last) return;
        }
    }

    std::function<void()> mBody;
    Counter mGiven;
    Counter mDone;
    std::thread mThread;
};

class RegistrationTest : public testing::Test {
  protected:
    RegistrationTest() { ABinderProcess_startThreadPool(); }

    binder_status_t link(const ndk::SpAIBinder& service, Cookie* cookie) {
        return AIBinder_linkToDeath(service.get(), mRecipient.get(), cookie);
    }
    binder_status_t unlink(const ndk::SpAIBinder& service, Cookie* cookie) {
        return AIBinder_unlinkToDeath(service.get(), mRecipient.get(), cookie);
    }

    // A call that is not answered.
    void callOther() const {
        const BinderRef root = mOther.link->root();
        std::unique_ptr<AParcel> out;
        EXPECT_EQ(root->asRemote()->transact(kPingTransaction, AParcel(), FLAG_ONEWAY, &out),
                  STATUS_OK);
    }

    // The service dies. Returns what the recipients have been called for then.
    Log afterDeathOf(Connection& connection) const {
        connection.die();
        waitForPool();
        return mEvents.all();
    }

    // What a careless client does on the calling thread.
    void linkAndLetGo() {
        const ndk::SpAIBinder service = mConnection.service();
        EXPECT_EQ(link(service, &mFirst), STATUS_OK);
    }

    void linkAndUnlink(Cookie* cookie, binder_status_t status) {
        const ndk::SpAIBinder service = mConnection.service();
        EXPECT_EQ(link(service, &mFirst), STATUS_OK);
        EXPECT_EQ(unlink(service, cookie), status);
    }

    // A new client links, then the thread that has let go does `late`, and the service dies.
    // Returns what the recipients were called for.
    Log afterTheNewLink(const std::function<void()>& late) {
        const ndk::SpAIBinder service = mConnection.service();
        EXPECT_EQ(link(service, &mSecond), STATUS_OK);
        late();
        return afterDeathOf(mConnection);
    }

    // A thread that lets go and then does that takes the registration away, whoever has linked
    // meanwhile.
    void expectEnded(const std::function<void()>& late) {
        mThread.does([this] { linkAndLetGo(); });
        EXPECT_EQ(afterTheNewLink([&] { mThread.does(late); }), Log{"first unlinked"});
    }

    const TestDirectory mDirectory;
    Events mEvents;
    Cookie mFirst{&mEvents, "first", nullptr};
    Cookie mSecond{&mEvents, "second", nullptr};
    Recipient mRecipient = makeRecipient();
    Connection mConnection;
    Connection mOther;
    Sleeper mThread;

    const Log kHeard{"first unlinked", "second died", "second unlinked"};
};

TEST_F(RegistrationTest, ThreadThatSleepsLeavesItAsItIs) {
    mThread.does([this] { linkAndLetGo(); });
    EXPECT_EQ(mEvents.all(), Log{"first unlinked"});
    // The old registration still stands, and it is for the object: whoever is linked hears.
    EXPECT_EQ(afterTheNewLink([] {}), kHeard);
}

TEST_F(RegistrationTest, NextCallOfTheThreadEndsTheNewLinksToo) {
    expectEnded([this] { callOther(); });
}

TEST_F(RegistrationTest, NextLookupOfTheThreadEndsTheNewLinksToo) {
    expectEnded([] { AServiceManager_checkService("lum.test.nobody"); });
}

TEST_F(RegistrationTest, NextLinkOfTheThreadEndsTheNewLinksToo) {
    Cookie third{&mEvents, "third", nullptr};
    const ndk::SpAIBinder other = mOther.service();
    expectEnded([&] { EXPECT_EQ(link(other, &third), STATUS_OK); });
    EXPECT_EQ(unlink(other, &third), STATUS_OK);
}

TEST_F(RegistrationTest, EndOfTheThreadEndsTheNewLinksToo) {
    mThread.does([this] { linkAndLetGo(); });
    EXPECT_EQ(afterTheNewLink([this] { mThread.end(); }), Log{"first unlinked"});
}

TEST_F(RegistrationTest, ReturnToThePoolEndsTheNewLinksToo) {
    Counter letGo;
    Counter goOn;
    std::atomic<pid_t> thread{0};
    post([&] {
        linkAndLetGo();
        thread = gettid();
        letGo.add();
        goOn.waitFor(1);
    });
    ASSERT_TRUE(letGo.waitFor(1));
    EXPECT_EQ(afterTheNewLink([&] {
                  goOn.add();
                  waitForPoolThread(thread);
              }),
              Log{"first unlinked"});
}

TEST_F(RegistrationTest, WhoIsLeftUnheardIsStillLinked) {
    mThread.does([this] { linkAndLetGo(); });
    const ndk::SpAIBinder service = mConnection.service();
    ASSERT_EQ(link(service, &mSecond), STATUS_OK);
    mThread.end();
    EXPECT_EQ(afterDeathOf(mConnection), Log{"first unlinked"});
    EXPECT_EQ(unlink(service, &mSecond), STATUS_OK);
    EXPECT_EQ(mEvents.all(), (Log{"first unlinked", "second unlinked"}));
}

TEST_F(RegistrationTest, LinkMadeAfterTheLateEndIsHeard) {
    mThread.does([this] {
        linkAndLetGo();
        callOther();
    });
    EXPECT_EQ(afterTheNewLink([this] { mThread.end(); }), kHeard);
}

TEST_F(RegistrationTest, LinkMadeByTheSameThreadIsHeard) {
    ndk::SpAIBinder service;
    mThread.does([&] {
        linkAndLetGo();
        service = mConnection.service();
        EXPECT_EQ(link(service, &mSecond), STATUS_OK);
    });
    mThread.end();
    EXPECT_EQ(afterDeathOf(mConnection), kHeard);
}

TEST_F(RegistrationTest, UnlinkingTheLastEndsItAtOnce) {
    mThread.does([this] { linkAndUnlink(&mFirst, STATUS_OK); });
    EXPECT_EQ(afterTheNewLink([this] { mThread.end(); }), kHeard);
}

TEST_F(RegistrationTest, UnlinkingWithAnotherCookieEndsNothing) {
    mThread.does([this] { linkAndUnlink(&mSecond, STATUS_NAME_NOT_FOUND); });
    EXPECT_EQ(afterTheNewLink([this] { mThread.end(); }), Log{"first unlinked"});
}

TEST_F(RegistrationTest, DeletingTheRecipientEndsNothing) {
    Recipient own = makeRecipient();
    mThread.does([&] {
        const ndk::SpAIBinder service = mConnection.service();
        EXPECT_EQ(AIBinder_linkToDeath(service.get(), own.get(), &mFirst), STATUS_OK);
        own.set(nullptr);
        EXPECT_EQ(mEvents.all(), Log{"first unlinked"});
    });
    EXPECT_EQ(afterTheNewLink([this] { mThread.end(); }), Log{"first unlinked"});
}

TEST_F(RegistrationTest, IsOneForAllLinksOfAProxy) {
    const ndk::SpAIBinder service = mConnection.service();
    EXPECT_EQ(mConnection.service(), service);
    ASSERT_EQ(link(service, &mFirst), STATUS_OK);
    ASSERT_EQ(link(service, &mSecond), STATUS_OK);
    EXPECT_EQ(unlink(service, &mFirst), STATUS_OK);
    EXPECT_EQ(afterDeathOf(mConnection), kHeard);
}

// Which the first would be, if the registration of its object could be taken for the other's.
TEST_F(RegistrationTest, EndsForItsObjectAlone) {
    const ndk::SpAIBinder other = mOther.service();
    ASSERT_EQ(link(other, &mSecond), STATUS_OK);
    mThread.does([this] { linkAndLetGo(); });
    mThread.end();
    EXPECT_EQ(afterDeathOf(mOther), kHeard);
}

TEST_F(RegistrationTest, LateEndFindsTheConnectionGone) {
    mThread.does([this] { linkAndLetGo(); });
    EXPECT_EQ(afterDeathOf(mConnection), Log{"first unlinked"});
    mThread.does([this] { callOther(); });
    EXPECT_EQ(mEvents.all(), Log{"first unlinked"});
}

TEST_F(RegistrationTest, LateEndFindsTheLinkGone) {
    mThread.does([this] { linkAndLetGo(); });
    const std::weak_ptr<LocalLink> gone = mConnection.link;
    mConnection.link.reset();
    EXPECT_TRUE(gone.expired());  // a thread that sleeps does not keep it
    mThread.end();
}

TEST_F(RegistrationTest, ObjectHasOneProxyWhateverBecomesOfTheFormer) {
    const Threads threads(4, [this](int) {
        for (int round = 0; round < 2000; ++round) {
            const ndk::SpAIBinder service = mConnection.service();
            ASSERT_EQ(mConnection.service(), service);
        }
    });
}

}  // namespace
