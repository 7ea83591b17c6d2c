// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "platform/linux/src/PeerAccount.h"

namespace {

constexpr uid_t kUser = 4000;
constexpr size_t kMiB = size_t{1} << 20U;

std::unique_ptr<Charge> makeCharge(pid_t pid, uid_t uid = kUser) {
    return std::make_unique<Charge>(PeerAccount::of(pid, uid));
}

// What a process comes to that takes as much as it can get, MiB by MiB.
size_t takeAll(Charge& charge) {
    size_t taken = 0;
    while (charge.set((taken + 1) * kMiB)) ++taken;
    return taken;
}

TEST(PeerAccountTest, IsOneForAProcessAndAnotherForEachOther) {
    const auto account = PeerAccount::of(1, kUser);
    EXPECT_EQ(PeerAccount::of(1, kUser), account);
    EXPECT_NE(PeerAccount::of(2, kUser), account);
    EXPECT_NE(PeerAccount::of(1, kUser + 1), account);
}

TEST(PeerAccountTest, EndsWithTheLastWhoHoldsIt) {
    std::weak_ptr<PeerAccount> ended = PeerAccount::of(1, kUser);
    EXPECT_TRUE(ended.expired());
    auto charge = makeCharge(1);
    ended = charge->account();
    EXPECT_TRUE(charge->set(5));
    charge.reset();
    EXPECT_TRUE(ended.expired());
    EXPECT_EQ(PeerAccount::of(1, kUser)->kept(), 0U);
}

TEST(PeerAccountTest, ProcessHasOneLimitForAllItsConnections) {
    const auto first = makeCharge(1);
    const auto second = makeCharge(1);
    EXPECT_TRUE(first->set(40 * kMiB));
    EXPECT_TRUE(second->set(24 * kMiB));
    EXPECT_FALSE(second->set(24 * kMiB + 1));
    EXPECT_FALSE(first->set(40 * kMiB + 1));
    EXPECT_EQ(first->account()->kept(), 64 * kMiB);
    EXPECT_TRUE(first->set(30 * kMiB));
    EXPECT_TRUE(second->set(34 * kMiB));
    EXPECT_EQ(first->account()->kept(), 64 * kMiB);
}

TEST(PeerAccountTest, ProcessesOfAUserShareWhatThereIs) {
    std::vector<std::unique_ptr<Charge>> charges;
    std::vector<size_t> taken;
    for (pid_t pid = 1; pid <= 11; ++pid) {
        charges.push_back(makeCharge(pid));
        taken.push_back(takeAll(*charges.back()));
    }
    EXPECT_EQ(taken, (std::vector<size_t>{64, 64, 64, 32, 16, 8, 4, 2, 2, 2, 2}));
    // Another user's are not concerned.
    const auto other = makeCharge(12, kUser + 1);
    EXPECT_EQ(takeAll(*other), 64U);
    // What one gives back is there for the others: 164 MiB are left with nine of them.
    charges[0].reset();
    EXPECT_EQ(takeAll(*charges[3]), 46U);
}

TEST(PeerAccountTest, LessIsAlwaysAllowed) {
    const auto early = makeCharge(1);
    ASSERT_TRUE(early->set(64 * kMiB));
    std::vector<std::unique_ptr<Charge>> others;
    for (pid_t pid = 2; pid <= 9; ++pid) {
        others.push_back(makeCharge(pid));
        takeAll(*others.back());
    }
    // More than its share by now, yet nobody takes away what it has.
    EXPECT_FALSE(early->set(64 * kMiB + 1));
    EXPECT_TRUE(early->set(64 * kMiB - 1));
    EXPECT_FALSE(early->set(64 * kMiB));
}

}  // namespace
