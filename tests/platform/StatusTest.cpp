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

struct Code {
    int32_t code;
    int32_t onTheDevice;
    const char* name;
};

TEST(Status, EveryStatusHasItsCodeAndName) {
    for (const auto& [code, onTheDevice, name] :
         {Code{STATUS_UNKNOWN_ERROR, INT32_MIN, "UNKNOWN_ERROR"},
          Code{STATUS_NO_MEMORY, -12, "NO_MEMORY"},
          Code{STATUS_INVALID_OPERATION, -38, "INVALID_OPERATION"},
          Code{STATUS_BAD_VALUE, -22, "BAD_VALUE"},
          Code{STATUS_BAD_TYPE, INT32_MIN + 1, "BAD_TYPE"},
          Code{STATUS_NAME_NOT_FOUND, -2, "NAME_NOT_FOUND"},
          Code{STATUS_PERMISSION_DENIED, -1, "PERMISSION_DENIED"},
          Code{STATUS_NO_INIT, -19, "NO_INIT"}, Code{STATUS_ALREADY_EXISTS, -17, "ALREADY_EXISTS"},
          Code{STATUS_DEAD_OBJECT, -32, "DEAD_OBJECT"},
          Code{STATUS_FAILED_TRANSACTION, INT32_MIN + 2, "FAILED_TRANSACTION"},
          Code{STATUS_BAD_INDEX, -75, "BAD_INDEX"},
          Code{STATUS_NOT_ENOUGH_DATA, -61, "NOT_ENOUGH_DATA"},
          Code{STATUS_WOULD_BLOCK, -11, "WOULD_BLOCK"}, Code{STATUS_TIMED_OUT, -110, "TIMED_OUT"},
          Code{STATUS_UNKNOWN_TRANSACTION, -74, "UNKNOWN_TRANSACTION"},
          Code{STATUS_FDS_NOT_ALLOWED, INT32_MIN + 7, "FDS_NOT_ALLOWED"},
          Code{STATUS_UNEXPECTED_NULL, INT32_MIN + 8, "UNEXPECTED_NULL"}}) {
        EXPECT_EQ(onTheDevice, code);
        const auto status = ScopedAStatus::fromStatus(code);
        EXPECT_EQ(code, status.getStatus());
        EXPECT_EQ(std::string("Status(-129, EX_TRANSACTION_FAILED): 'STATUS_") + name + ": '",
                  status.getDescription());
    }
}

TEST(Status, EveryExceptionHasItsCodeAndName) {
    for (const auto& [code, onTheDevice, name] :
         {Code{EX_SECURITY, -1, "SECURITY"}, Code{EX_BAD_PARCELABLE, -2, "BAD_PARCELABLE"},
          Code{EX_ILLEGAL_ARGUMENT, -3, "ILLEGAL_ARGUMENT"},
          Code{EX_NULL_POINTER, -4, "NULL_POINTER"}, Code{EX_ILLEGAL_STATE, -5, "ILLEGAL_STATE"},
          Code{EX_NETWORK_MAIN_THREAD, -6, "NETWORK_MAIN_THREAD"},
          Code{EX_UNSUPPORTED_OPERATION, -7, "UNSUPPORTED_OPERATION"},
          Code{EX_PARCELABLE, -9, "PARCELABLE"}}) {
        EXPECT_EQ(onTheDevice, code);
        const auto status = ScopedAStatus::fromExceptionCode(code);
        EXPECT_EQ("failed exception " + std::to_string(code) + " service 0 status 0 message ''",
                  show(status));
        EXPECT_EQ("Status(" + std::to_string(code) + ", EX_" + name + "): ''",
                  status.getDescription());
    }
}

TEST(Status, OkIsOk) {
    EXPECT_EQ("ok exception 0 service 0 status 0 message ''", show(ScopedAStatus::ok()));
    EXPECT_EQ("No error", ScopedAStatus::ok().getDescription());
    EXPECT_TRUE(ScopedAStatus::fromExceptionCode(EX_NONE).isOk());
    EXPECT_TRUE(ScopedAStatus::fromExceptionCodeWithMessage(EX_NONE, "text").isOk());
    EXPECT_TRUE(ScopedAStatus::fromStatus(STATUS_OK).isOk());
}

TEST(Status, CarriesACopyOfTheMessageAndTheServicesNumber) {
    std::string message = "not you";
    const auto text = ScopedAStatus::fromExceptionCodeWithMessage(EX_SECURITY, message.c_str());
    message = "another";
    EXPECT_EQ("failed exception -1 service 0 status 0 message 'not you'", show(text));
    EXPECT_EQ("Status(-1, EX_SECURITY): 'not you'", text.getDescription());
    const auto number = ScopedAStatus::fromServiceSpecificErrorWithMessage(-42, "full");
    EXPECT_EQ("failed exception -8 service -42 status 0 message 'full'", show(number));
    EXPECT_EQ("Status(-8, EX_SERVICE_SPECIFIC): '-42: full'", number.getDescription());
    EXPECT_EQ("failed exception -8 service 7 status 0 message ''",
              show(ScopedAStatus::fromServiceSpecificError(7)));
}

TEST(Status, UnknownCodesBecomeTheGeneralOnes) {
    for (const int32_t code : {1, -1000, INT32_MAX, INT32_MIN + 3}) {
        EXPECT_EQ(STATUS_UNKNOWN_ERROR, ScopedAStatus::fromStatus(code).getStatus());
    }
    for (const int32_t code : {1, -10, -128, -129, -130, INT32_MIN}) {
        EXPECT_EQ("failed exception -129 service 0 status -2147483646 message 'why'",
                  show(ScopedAStatus::fromExceptionCodeWithMessage(code, "why")));
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
    first = ScopedAStatus::fromServiceSpecificError(2);
    second = std::move(first);
    AStatus* const released = second.release();
    EXPECT_EQ(nullptr, second.get());
    EXPECT_EQ(2, AStatus_getServiceSpecificError(released));
    *second.getR() = released;
    EXPECT_EQ(2, second.getServiceSpecificError());
}

}  // namespace
