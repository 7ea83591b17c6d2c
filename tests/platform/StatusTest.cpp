// SPDX-License-Identifier: Apache-2.0
#include <android/binder_auto_utils.h>
#include <android/binder_status.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

namespace {

using ndk::ScopedAStatus;

// What there is to know of a status, in one text.
std::string show(const ScopedAStatus& status) {
    return std::string(status.isOk() ? "ok" : "failed") + " exception " +
           std::to_string(status.getExceptionCode()) + " service " +
           std::to_string(status.getServiceSpecificError()) + " status " +
           std::to_string(status.getStatus()) + " message '" + status.getMessage() + "'";
}

TEST(Status, CodesAreThoseOfTheDevice) {
    EXPECT_EQ(0, STATUS_OK);
    EXPECT_EQ(INT32_MIN, STATUS_UNKNOWN_ERROR);
    EXPECT_EQ(-12, STATUS_NO_MEMORY);
    EXPECT_EQ(-38, STATUS_INVALID_OPERATION);
    EXPECT_EQ(-22, STATUS_BAD_VALUE);
    EXPECT_EQ(INT32_MIN + 1, STATUS_BAD_TYPE);
    EXPECT_EQ(-2, STATUS_NAME_NOT_FOUND);
    EXPECT_EQ(-1, STATUS_PERMISSION_DENIED);
    EXPECT_EQ(-19, STATUS_NO_INIT);
    EXPECT_EQ(-17, STATUS_ALREADY_EXISTS);
    EXPECT_EQ(-32, STATUS_DEAD_OBJECT);
    EXPECT_EQ(INT32_MIN + 2, STATUS_FAILED_TRANSACTION);
    EXPECT_EQ(-75, STATUS_BAD_INDEX);
    EXPECT_EQ(-61, STATUS_NOT_ENOUGH_DATA);
    EXPECT_EQ(-11, STATUS_WOULD_BLOCK);
    EXPECT_EQ(-110, STATUS_TIMED_OUT);
    EXPECT_EQ(-74, STATUS_UNKNOWN_TRANSACTION);
    EXPECT_EQ(INT32_MIN + 7, STATUS_FDS_NOT_ALLOWED);
    EXPECT_EQ(INT32_MIN + 8, STATUS_UNEXPECTED_NULL);
    EXPECT_EQ(-8, EX_SERVICE_SPECIFIC);
    EXPECT_EQ(-129, EX_TRANSACTION_FAILED);
}

TEST(Status, OkIsOk) {
    EXPECT_EQ("ok exception 0 service 0 status 0 message ''", show(ScopedAStatus::ok()));
    EXPECT_EQ("No error", ScopedAStatus::ok().getDescription());
}

TEST(Status, FromNoExceptionIsOk) {
    EXPECT_TRUE(ScopedAStatus::fromExceptionCode(EX_NONE).isOk());
    EXPECT_TRUE(ScopedAStatus::fromExceptionCodeWithMessage(EX_NONE, "text").isOk());
    EXPECT_TRUE(ScopedAStatus::fromStatus(STATUS_OK).isOk());
}

TEST(Status, FromExceptionCarriesCodeAndMessage) {
    const auto plain = ScopedAStatus::fromExceptionCode(EX_ILLEGAL_STATE);
    EXPECT_EQ("failed exception -5 service 0 status 0 message ''", show(plain));
    EXPECT_EQ("Status(-5, EX_ILLEGAL_STATE): ''", plain.getDescription());
    const auto text = ScopedAStatus::fromExceptionCodeWithMessage(EX_SECURITY, "not you");
    EXPECT_EQ("failed exception -1 service 0 status 0 message 'not you'", show(text));
    EXPECT_EQ("Status(-1, EX_SECURITY): 'not you'", text.getDescription());
}

TEST(Status, EveryExceptionKeepsItsCode) {
    const std::vector<binder_exception_t> codes = {
        EX_SECURITY,      EX_BAD_PARCELABLE,      EX_ILLEGAL_ARGUMENT,      EX_NULL_POINTER,
        EX_ILLEGAL_STATE, EX_NETWORK_MAIN_THREAD, EX_UNSUPPORTED_OPERATION, EX_SERVICE_SPECIFIC,
        EX_PARCELABLE};
    for (const binder_exception_t code : codes) {
        const auto status = ScopedAStatus::fromExceptionCode(code);
        EXPECT_EQ(code, status.getExceptionCode());
        EXPECT_FALSE(status.isOk());
        EXPECT_EQ(STATUS_OK, status.getStatus());
    }
}

TEST(Status, FromServiceSpecificCarriesTheNumber) {
    const auto status = ScopedAStatus::fromServiceSpecificErrorWithMessage(-42, "full");
    EXPECT_EQ("failed exception -8 service -42 status 0 message 'full'", show(status));
    EXPECT_EQ("Status(-8, EX_SERVICE_SPECIFIC): '-42: full'", status.getDescription());
    EXPECT_EQ("failed exception -8 service 7 status 0 message ''",
              show(ScopedAStatus::fromServiceSpecificError(7)));
}

TEST(Status, FromStatusIsAFailedTransaction) {
    const auto status = ScopedAStatus::fromStatus(STATUS_DEAD_OBJECT);
    EXPECT_EQ("failed exception -129 service 0 status -32 message ''", show(status));
    EXPECT_EQ("Status(-129, EX_TRANSACTION_FAILED): 'STATUS_DEAD_OBJECT: '",
              status.getDescription());
}

TEST(Status, EveryStatusKeepsItsCode) {
    const std::vector<binder_status_t> codes = {
        STATUS_UNKNOWN_ERROR,      STATUS_NO_MEMORY,
        STATUS_INVALID_OPERATION,  STATUS_BAD_VALUE,
        STATUS_BAD_TYPE,           STATUS_NAME_NOT_FOUND,
        STATUS_PERMISSION_DENIED,  STATUS_NO_INIT,
        STATUS_ALREADY_EXISTS,     STATUS_DEAD_OBJECT,
        STATUS_FAILED_TRANSACTION, STATUS_BAD_INDEX,
        STATUS_NOT_ENOUGH_DATA,    STATUS_WOULD_BLOCK,
        STATUS_TIMED_OUT,          STATUS_UNKNOWN_TRANSACTION,
        STATUS_FDS_NOT_ALLOWED,    STATUS_UNEXPECTED_NULL};
    for (const binder_status_t code : codes) {
        EXPECT_EQ(code, ScopedAStatus::fromStatus(code).getStatus());
    }
}

TEST(Status, UnknownCodesBecomeTheGeneralOnes) {
    for (const int32_t code : {1, -1000, INT32_MAX, INT32_MIN + 3}) {
        EXPECT_EQ(STATUS_UNKNOWN_ERROR, ScopedAStatus::fromStatus(code).getStatus());
    }
    for (const int32_t code : {1, -10, -127, -128, -130, INT32_MIN, INT32_MAX}) {
        EXPECT_EQ("failed exception -129 service 0 status -2147483646 message 'why'",
                  show(ScopedAStatus::fromExceptionCodeWithMessage(code, "why")));
    }
}

TEST(Status, FailedTransactionAsAnExceptionHasAStatus) {
    EXPECT_EQ(STATUS_FAILED_TRANSACTION,
              ScopedAStatus::fromExceptionCode(EX_TRANSACTION_FAILED).getStatus());
}

TEST(Status, MessageIsCopied) {
    std::string message = "before";
    const auto status = ScopedAStatus::fromExceptionCodeWithMessage(EX_SECURITY, message.c_str());
    message = "after!";
    EXPECT_STREQ("before", status.getMessage());
}

TEST(Status, DeletingNothingIsAllowed) {
    AStatus_delete(nullptr);
    AStatus_deleteDescription(nullptr);
}

TEST(Status, OkMayBeDeletedAgainAndAgain) {
    for (int i = 0; i < 3; ++i) {
        AStatus* ok = AStatus_newOk();
        ASSERT_TRUE(AStatus_isOk(ok));
        AStatus_delete(ok);
    }
}

TEST(ScopedAStatus, EmptyOneCountsAsFailed) {
    const ScopedAStatus status;
    EXPECT_EQ("failed exception -129 service 0 status -2147483648 message '(no status)'",
              show(status));
    EXPECT_EQ("(no status)", status.getDescription());
}

TEST(ScopedAStatus, MovesAndReleases) {
    ScopedAStatus first = ScopedAStatus::fromServiceSpecificError(1);
    ScopedAStatus second(std::move(first));
    // NOLINTNEXTLINE(bugprone-use-after-move,clang-analyzer-cplusplus.Move): what is tested
    EXPECT_EQ(nullptr, first.get());
    EXPECT_EQ(1, second.getServiceSpecificError());
    first = ScopedAStatus::fromServiceSpecificError(2);
    second = std::move(first);
    // NOLINTNEXTLINE(bugprone-use-after-move,clang-analyzer-cplusplus.Move): what is tested
    EXPECT_EQ(nullptr, first.get());
    EXPECT_EQ(2, second.getServiceSpecificError());
    AStatus* released = second.release();
    EXPECT_EQ(nullptr, second.get());
    EXPECT_EQ(2, AStatus_getServiceSpecificError(released));
    AStatus_delete(released);
    *second.getR() = AStatus_newOk();
    EXPECT_TRUE(second.isOk());
}

}  // namespace
