// SPDX-License-Identifier: Apache-2.0
// Objects within one process, where no link is involved.
#include <gtest/gtest.h>

#include <stdexcept>

#include "tests/platform/CountedObject.h"
#include "tests/platform/PeerInterface.h"
#include "tests/support/LogCapture.h"

namespace {

TEST(LocalBinderTest, NullIsTakenWhereItMayBe) {
    AIBinder_incStrong(nullptr);
    AIBinder_decStrong(nullptr);
    EXPECT_EQ(AIBinder_debugGetRefCount(nullptr), -1);
    EXPECT_EQ(AIBinder_Weak_new(nullptr), nullptr);
    EXPECT_EQ(AIBinder_Weak_promote(nullptr), nullptr);
    AIBinder_Weak_delete(nullptr);
    EXPECT_FALSE(AIBinder_associateClass(nullptr, peerClass()));
    EXPECT_EQ(AIBinder_ping(nullptr), STATUS_UNEXPECTED_NULL);
    EXPECT_EQ(AIBinder_Class_define(nullptr, nullptr, nullptr, nullptr), nullptr);
    LogCapture log;
    EXPECT_EQ(AIBinder_new(nullptr, nullptr), nullptr);
    EXPECT_TRUE(log.has(logE("binder: AIBinder_new without a class")));
}

TEST(LocalBinderTest, StatusNobodyKnowsBecomesAnUnknownError) {
    const ndk::SpAIBinder object =
        makePeerObject([](transaction_code_t, const AParcel* in, AParcel*) -> binder_status_t {
            int32_t status = 0;
            AParcel_readInt32(in, &status);
            return status;
        });
    for (const binder_status_t unknown : {1, 42, -1000, -4711}) {
        EXPECT_EQ(callPeer(object, 1, args(unknown)), STATUS_UNKNOWN_ERROR) << unknown;
    }
    EXPECT_EQ(callPeer(object, 1, args(STATUS_TIMED_OUT)), STATUS_TIMED_OUT);
}

TEST(LocalBinderTest, ThrowingFunctionBecomesAnError) {
    const ndk::SpAIBinder object =
        makePeerObject([](transaction_code_t code, const AParcel*, AParcel*) -> binder_status_t {
            if (code == 1) throw std::runtime_error("thrown on purpose");
            throw code;
        });
    LogCapture log;
    EXPECT_EQ(callPeer(object, 1), STATUS_UNKNOWN_ERROR);
    EXPECT_EQ(callPeer(object, 2), STATUS_UNKNOWN_ERROR);
    EXPECT_EQ(log.lines(), (std::vector<LogLine>{
                               logE("binder: onTransact threw: thrown on purpose"),
                               logE("binder: onTransact threw"),
                           }));
}

TEST(LocalBinderTest, ThrowingConstructionGivesNoObject) {
    static AIBinder_Class* const clazz = AIBinder_Class_define(
        "lum.test.IThrowing", [](void*) -> void* { throw std::runtime_error("on purpose"); },
        [](void*) { ADD_FAILURE() << "nothing to destroy"; },
        [](AIBinder*, transaction_code_t, const AParcel*, AParcel*) -> binder_status_t {
            return STATUS_OK;
        });
    LogCapture log;
    EXPECT_EQ(AIBinder_new(clazz, nullptr), nullptr);
    EXPECT_EQ(log.lines(), std::vector<LogLine>{logE("binder: onCreate threw: on purpose")});
}

TEST(LocalBinderTest, ClassOfTheSameNameIsAnother) {
    static AIBinder_Class* const twin = plainClass(kPeerDescriptor);
    const ndk::SpAIBinder object = makePeerObject(nullptr);
    LogCapture log;
    EXPECT_TRUE(AIBinder_associateClass(object.get(), peerClass()));
    EXPECT_FALSE(AIBinder_associateClass(object.get(), twin));
    EXPECT_FALSE(AIBinder_associateClass(object.get(), countedClass()));
    EXPECT_EQ(AIBinder_getClass(object.get()), peerClass());
    EXPECT_EQ(log.lines(),
              (std::vector<LogLine>{
                  logE("binder: an object of lum.test.IPeer belongs to another class of that name"),
                  logE("binder: an object expected to be test.Counted is lum.test.IPeer"),
              }));
}

}  // namespace
