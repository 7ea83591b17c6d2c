// SPDX-License-Identifier: Apache-2.0
// The owners of binder objects and their references, and text for people. What interfaces are built
// from is tested with the generated ones.
#include <android/binder_auto_utils.h>
#include <android/binder_to_string.h>
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "tests/platform/CountedObject.h"

namespace {

using ndk::ScopedAIBinder_Weak;
using ndk::SpAIBinder;

int32_t references(const SpAIBinder& binder) {
    return AIBinder_debugGetRefCount(binder.get());
}

TEST(SpAIBinder, CopiesHaveReferencesOfTheirOwn) {
    int ended = 0;
    SpAIBinder first = makeCounted(&ended);
    EXPECT_EQ(1, references(first));
    SpAIBinder second = first;
    EXPECT_EQ(2, references(first));
    first = second;
    const SpAIBinder& self = first;
    first = self;
    EXPECT_EQ(2, references(first));
    EXPECT_TRUE(first == second);
    EXPECT_TRUE(first != makeCounted(&ended));
    EXPECT_EQ(1, ended);
    first.set(nullptr);
    EXPECT_EQ(1, references(second));
    second = nullptr;
    EXPECT_EQ(2, ended);
}

TEST(SpAIBinder, MovesAndReleasesTheReference) {
    int ended = 0;
    int otherEnded = 0;
    SpAIBinder first = makeCounted(&ended);
    SpAIBinder second(std::move(first));
    // NOLINTNEXTLINE(bugprone-use-after-move,clang-analyzer-cplusplus.Move): what is tested
    EXPECT_EQ(nullptr, first.get());
    SpAIBinder third = makeCounted(&otherEnded);
    third = std::move(second);
    EXPECT_EQ(1, otherEnded);
    AIBinder* const released = third.release();
    EXPECT_EQ(nullptr, third.get());
    third.set(released);
    EXPECT_EQ(1, references(third));
    EXPECT_EQ(nullptr, *third.getR());
    EXPECT_EQ(1, ended);
}

TEST(ScopedAIBinderWeak, PromotesWhileTheObjectLives) {
    int ended = 0;
    SpAIBinder binder = makeCounted(&ended);
    const ScopedAIBinder_Weak weak(AIBinder_Weak_new(binder.get()));
    EXPECT_EQ(1, references(binder));
    EXPECT_EQ(binder, weak.promote());
    binder.set(nullptr);
    EXPECT_EQ(1, ended);
    EXPECT_EQ(nullptr, weak.promote().get());
}

enum class Colour : int32_t { RED };
std::string toString(Colour /*colour*/) {
    return "RED";
}

TEST(ToString, WritesWhatNoStructureOfTheInterfacesHas) {
    using android::internal::ToString;
    EXPECT_EQ("RED", ToString(Colour::RED));
    EXPECT_EQ("[200, 1]", ToString(std::vector<uint8_t>{200, 1}));
}

}  // namespace
