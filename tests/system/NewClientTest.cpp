// SPDX-License-Identifier: Apache-2.0
// A client that takes the place of one destroyed before hears of the loss of the service, whatever
// becomes of the thread that destroyed it. What that client has left to be done for the service's
// proxy is done with the thread's next call, when it comes back to the pool, or at its end: it must
// not take anything from the new one.

#include <aidl/vendor/orn/data/lumservice/ILumService.h>
#include <android/binder_manager.h>
#include <gtest/gtest.h>
#include <lum_sdf_sdk.h>

#include <atomic>
#include <string>
#include <thread>

#include "tests/stress/ClientEvents.h"
#include "tests/support/Eventually.h"
#include "tests/system/LibraryTest.h"

namespace {

using aidl::vendor::orn::data::lumservice::ILumService;

constexpr char kDown[] = "status -8";

class NewClientTest : public LibraryTest {
  protected:
    NewClientTest() {
        serve();
        connect();
    }

    // Destroys the client, creates another, and waits until that is connected.
    void replaceClient() {
        EXPECT_EQ(destroySdfClient(), 0);
        forgetClientEvents();
        connect();
    }

    void expectLossIsHeard() {
        EXPECT_EQ(reportedSoFar(), Lines{});
        mEmulator->kill();
        EXPECT_TRUE(waitForText(kDown));
    }

    static void callTheService() {
        const ndk::SpAIBinder service(AServiceManager_checkService(ILumService::descriptor));
        EXPECT_EQ(AIBinder_ping(service.get()), STATUS_OK);
    }
};

TEST_F(NewClientTest, HearsOfTheLossWhenTheThreadDoesNothingOrCallsTheService) {
    replaceClient();
    expectLossIsHeard();
    mEmulator->restart();
    replaceClient();
    callTheService();
    expectLossIsHeard();
}

TEST_F(NewClientTest, HearsOfTheLossWhenItWasMadeInACallback) {
    static std::atomic<bool> replacing{false};
    static Counter replaced;
    setEventHook([this](const ClientEvent& event) {
        if (event.kind != ClientEvent::Kind::kStatus || replacing.exchange(true)) return;
        replaceClient();
        replaced.add();
    });
    ASSERT_EQ(createSdfClient(onStatus), 0);  // brings another status
    ASSERT_TRUE(replaced.waitFor());
    expectLossIsHeard();
}

TEST_F(NewClientTest, HearsOfTheLossAfterManyBeforeOnThreadsThatHaveEnded) {
    std::thread([this] { replaceClient(); }).join();
    replaceClient();
    std::thread([this] { replaceClient(); }).join();
    callTheService();
    expectLossIsHeard();
}

}  // namespace
