// SPDX-License-Identifier: Apache-2.0
// What the emulator does for clients, seen by clients.

#include <android/binder_auto_utils.h>
#include <android/binder_parcel.h>
#include <android/binder_stability.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/ChildProcess.h"
#include "tests/support/EmulatorProcess.h"
#include "tests/support/Hex.h"
#include "tests/support/TestDirectory.h"
#include "tests/system/EmulatorClient.h"

namespace {

using Blobs = std::vector<Inbox::Blob>;

std::string ownPid() {
    return "pid=" + std::to_string(getpid());
}

// ADD_FILTER with the id 7, from ::1 to ::2, and two bytes to follow in the description.
constexpr char kAddFilter[] = "08 04 10 07 1A 0E 32 0C 0A 03 3A 3A 31 12 03 3A 3A 32 ";
constexpr char kFilterAdded[] = "08 03 10 07 1A 10 22 0E 0A 0C 08 07 10 01 1A 06 61 63 74 69 76 65";
constexpr char kGetFilters[] = "08 05";
constexpr char kOneFilter[] = "08 04 1A 10 2A 0E 12 0C 08 07 10 01 1A 06 61 63 74 69 76 65";
constexpr char kNoFilters[] = "08 04 1A 02 2A 00";

// The answer to it when there is a filter 7 already.
std::string idInUse() {
    return "08 03 10 07 1A 1D 22 1B 0A 19 08 07 10 06 1A 13 " +
           toHex(std::string("unique_id is in use"));
}

// The client of a process of its own, started and registered.
std::unique_ptr<ChildProcess> startClient() {
    auto client = std::make_unique<ChildProcess>(std::vector<std::string>{LUM_CLIENT_PROGRAM});
    if (!client->waitForLine("registered"))
        throw std::runtime_error("the client does not register");
    return client;
}

// Registers any object or none, which a proxy need not do. Returns what the service answers.
ndk::ScopedAStatus registerBinder(ILumService& service, AIBinder* callback) {
    AIBinder* const binder = service.asBinder().get();
    ndk::ScopedAParcel request;
    ndk::ScopedAParcel reply;
    EXPECT_EQ(AIBinder_prepareTransaction(binder, request.getR()), STATUS_OK);
    EXPECT_EQ(AParcel_writeStrongBinder(request.get(), callback), STATUS_OK);
    const binder_status_t status = AIBinder_transact(binder, FIRST_CALL_TRANSACTION, request.getR(),
                                                     reply.getR(), FLAG_PRIVATE_VENDOR);
    if (status != STATUS_OK) return ndk::ScopedAStatus::fromStatus(status);
    ndk::ScopedAStatus answer;
    EXPECT_EQ(AParcel_readStatusHeader(reply.get(), answer.getR()), STATUS_OK);
    return answer;
}

class EmulatorTest : public testing::Test {
  protected:
    static void expectNoCallback(const ndk::ScopedAStatus& status) {
        EXPECT_EQ(status.getExceptionCode(), EX_NULL_POINTER);
        EXPECT_STREQ(status.getMessage(), "no callback object");
    }

    // Sends a request that is refused with these words.
    static void expectRefused(const EmulatorClient& client, const std::string& hex,
                              const std::string& message) {
        const ndk::ScopedAStatus status = client.send(hex);
        EXPECT_EQ(status.getExceptionCode(), EX_ILLEGAL_ARGUMENT);
        EXPECT_EQ(status.getMessage(), message);
    }

    // What was refused has neither ended the service nor changed what it keeps.
    void expectGoesOn(const EmulatorClient& client) {
        EXPECT_EQ(mEmulator.stats().clients, 1U);
        ASSERT_TRUE(client.send(kEnable).isOk());
        EXPECT_EQ(client.inbox().waitFor(1), (Blobs{{5, kServiceUp}}));
    }

    const TestDirectory mDirectory;
    EmulatorProcess mEmulator{{"--print"}};
};

TEST_F(EmulatorTest, AnswersCarryTypeIdAndLevelsOfTheRequest) {
    const EmulatorClient client;
    ASSERT_TRUE(client.send(kEnable, 11).isOk());
    ASSERT_TRUE(client.send(kSetLevels, 0).isOk());
    // unique_id 2^32, first_level 9, which is none, second_level L1.
    ASSERT_TRUE(client.send("08 01 10 80 80 80 80 10 1A 04 1A 02 10 09").isOk());
    EXPECT_EQ(
        client.inbox().waitFor(3),
        (Blobs{{11, kServiceUp}, {0, kLevels}, {5, "08 01 10 80 80 80 80 10 1A 04 12 02 08 09"}}));
    EXPECT_EQ(mEmulator.terminate(), 0);
}

TEST_F(EmulatorTest, DisableLetsTheCallbackObjectGo) {
    EmulatorClient client;
    ASSERT_TRUE(client.send(kEnable).isOk());
    client.inbox().waitFor(1);
    client.drop();
    EXPECT_EQ(mEmulator.stats().clients, 1U);
    ASSERT_TRUE(client.send(kDisable).isOk());
    EXPECT_TRUE(client.inbox().waitForEnd());
    EXPECT_EQ(mEmulator.stats().clients, 0U);
    EXPECT_EQ(client.inbox().waitFor(1).size(), 1U);
    // Without an enable before, too.
    EmulatorClient silent;
    silent.drop();
    ASSERT_TRUE(silent.send(kDisable).isOk());
    EXPECT_TRUE(silent.inbox().waitForEnd());
}

TEST_F(EmulatorTest, FeaturesThatShareACallbackHaveFiltersOfTheirOwnAndLeaveOnTheirOwn) {
    EmulatorClient client;
    for (const int feature : {5, 3}) {
        ASSERT_TRUE(client.send(kEnable, feature).isOk());
        ASSERT_TRUE(client.send(std::string(kAddFilter) + "18 01", feature).isOk());
    }
    EXPECT_EQ(client.inbox().waitFor(4),
              (Blobs{{5, kServiceUp}, {5, kFilterAdded}, {3, kServiceUp}, {3, kFilterAdded}}));
    EXPECT_EQ(mEmulator.stats().filters, 2U);
    ASSERT_TRUE(client.send(kDisable, 3).isOk());
    EXPECT_EQ(mEmulator.stats().filters, 1U);
    EXPECT_EQ(mEmulator.stats().clients, 1U);
    ASSERT_TRUE(client.send(kGetFilters, 5).isOk());
    EXPECT_EQ(client.inbox().waitFor(5).back(), (Inbox::Blob{5, kOneFilter}));
    client.drop();
    ASSERT_TRUE(client.send(kDisable, 5).isOk());
    EXPECT_TRUE(client.inbox().waitForEnd());
}

TEST_F(EmulatorTest, RequestsBelongToTheLatestClientOfAProcess) {
    const EmulatorClient first;
    ASSERT_TRUE(first.send(kEnable).isOk());
    EXPECT_EQ(first.inbox().waitFor(1), (Blobs{{5, kServiceUp}}));
    const EmulatorClient second;
    ASSERT_TRUE(second.send(kSetLevels).isOk());
    EXPECT_EQ(second.inbox().waitFor(1), (Blobs{{5, kLevels}}));
    ASSERT_TRUE(first.registerAgain().isOk());
    EXPECT_EQ(mEmulator.stats().clients, 2U);
    ASSERT_TRUE(second.send(kSetLevels).isOk());
    EXPECT_EQ(first.inbox().waitFor(2), (Blobs{{5, kServiceUp}, {5, kLevels}}));
    EXPECT_EQ(second.inbox().waitFor(1).size(), 1U);
}

// A process that replaces its client: what the old one had does not come to the new one, and its
// disable may come after the new one's enable.
TEST_F(EmulatorTest, DisableBelongsToTheFirstClientOfAProcessAndFiltersToNoOtherOne) {
    EmulatorClient before;
    ASSERT_TRUE(before.send(kEnable).isOk());
    ASSERT_TRUE(before.send(std::string(kAddFilter) + "18 01").isOk());
    EXPECT_EQ(before.inbox().waitFor(2).size(), 2U);
    EmulatorClient after;
    ASSERT_TRUE(after.send(kEnable).isOk());
    ASSERT_TRUE(after.send(kGetFilters).isOk());
    EXPECT_EQ(after.inbox().waitFor(2), (Blobs{{5, kServiceUp}, {5, kNoFilters}}));
    before.drop();
    ASSERT_TRUE(before.send(kDisable).isOk());
    EXPECT_TRUE(before.inbox().waitForEnd());
    EXPECT_EQ(mEmulator.stats().filters, 0U);
    EXPECT_EQ(mEmulator.stats().clients, 1U);
    ASSERT_TRUE(after.send(kSetLevels).isOk());
    EXPECT_EQ(after.inbox().waitFor(3).back(), (Inbox::Blob{5, kLevels}));
    after.drop();
    ASSERT_TRUE(after.send(kDisable).isOk());
    EXPECT_TRUE(after.inbox().waitForEnd());
    EXPECT_EQ(mEmulator.stats().clients, 0U);
}

// Each adds the same filters under the same ids: they are no one else's duplicates.
TEST_F(EmulatorTest, ClientsHaveFiltersOfTheirOwnUntilTheyLeaveOrDie) {
    std::vector<std::unique_ptr<ChildProcess>> clients;
    clients.reserve(3);
    for (int i = 0; i < 3; ++i) clients.push_back(startClient());
    for (const auto& client : clients) {
        client->writeLine(std::string("5 1 ") + kAddFilter + "18 01");
        EXPECT_TRUE(client->waitForLine(std::string("got ") + kFilterAdded));
        client->writeLine(std::string("5 2 ") + kAddFilter + "18 01");
        EXPECT_TRUE(client->waitForLine("got " + idInUse()));
    }
    EXPECT_EQ(mEmulator.stats().filters, 3U);
    // Deleting one's own leaves the others'; 0A is DELETE_ALL_FILTER.
    clients[0]->writeLine("5 2 08 0A");
    clients[0]->writeLine(std::string("5 3 ") + kGetFilters);
    EXPECT_TRUE(clients[0]->waitForLine(std::string("got ") + kNoFilters));
    EXPECT_EQ(mEmulator.stats().filters, 2U);
    const std::string died = "died pid=" + std::to_string(clients[1]->pid());
    clients[1]->kill();
    EXPECT_TRUE(mEmulator.process().waitForLine(died));
    EXPECT_TRUE(mEmulator.waitForStats(
        [](const EmulatorProcess::Stats& now) { return now.clients == 2 && now.filters == 1; }));
    clients[2]->writeLine(std::string("5 3 ") + kGetFilters);
    EXPECT_TRUE(clients[2]->waitForLine(std::string("got ") + kOneFilter));
    // It leaves.
    clients[2]->writeLine(std::string("5 3 ") + kDisable);
    EXPECT_TRUE(mEmulator.waitForStats(
        [](const EmulatorProcess::Stats& now) { return now.clients == 1 && now.filters == 0; }));
    EXPECT_EQ(mEmulator.terminate(), 0);
}

TEST_F(EmulatorTest, WhatIsNoRequestIsRefused) {
    const EmulatorClient client;
    expectRefused(client, "FF FF FF", "3 bytes that are no ServiceMsg");
    EXPECT_TRUE(
        mEmulator.process().waitForLine("received " + ownPid() + " type=5 unreadable: ff ff ff"));
    EXPECT_TRUE(mEmulator.process().waitForLine("notice: refused a message, " + ownPid() +
                                                ": 3 bytes that are no ServiceMsg"));
    expectRefused(client, "", "ENABLE without its body");
    expectRefused(client, "08 01 1A 04 0A 02 08 01", "SET_LATENCY_LEVEL without its body");
    expectRefused(client, "08 05 1A 04 0A 02 08 01", "GET_FILTERS with a body");
    const std::vector<uint8_t> whole = fromHex(kSetLevels);
    for (auto end = whole.begin(); end != whole.end(); ++end) {
        EXPECT_EQ(
            client.service().sendBlob(LumSdkType::SDF, {whole.begin(), end}).getExceptionCode(),
            EX_ILLEGAL_ARGUMENT);
    }
    expectGoesOn(client);
}

TEST_F(EmulatorTest, WhatIsNoCallbackIsRefused) {
    const EmulatorClient client;
    ILumService& service = client.service();
    expectNoCallback(registerBinder(service, nullptr));
    EXPECT_TRUE(mEmulator.process().waitForLine("notice: refused a registration, " + ownPid() +
                                                ": no callback object"));
    // The service itself: an object, but no callback.
    expectNoCallback(registerBinder(service, service.asBinder().get()));
    // The same one again: that is no other client.
    ASSERT_TRUE(client.registerAgain().isOk());
    expectGoesOn(client);
}

// The client of another process stops before the flood comes, and reads nothing of it.
TEST(EmulatorFloodTest, LateFloodEndsAtTheFirstMessageThatIsNotDelivered) {
    const TestDirectory directory;
    EmulatorProcess emulator({"--rule", "on enable nth 1: late 1000, flood 20000"});
    const auto stopped = startClient();
    const std::string pid = "pid=" + std::to_string(stopped->pid());
    stopped->writeLine(std::string("5 0 ") + kEnable);
    ASSERT_TRUE(stopped->waitForLine("got nothing"));
    stopped->signal(SIGSTOP);
    const auto isNotice = [&](const std::string& line) {
        return line.rfind("notice: not delivered, " + pid + ": STATUS_IND of 6 bytes: too much; ",
                          0) == 0;
    };
    EXPECT_TRUE(emulator.process().waitFor(isNotice));
    const EmulatorClient client;
    ASSERT_TRUE(client.send(kEnable).isOk());
    EXPECT_EQ(client.inbox().waitFor(1), (Blobs{{5, kServiceUp}}));
    EXPECT_EQ(emulator.terminate(), 0);
    const std::vector<std::string> lines = emulator.process().lines();
    EXPECT_EQ(std::count_if(lines.begin(), lines.end(), isNotice), 1);
}

}  // namespace
