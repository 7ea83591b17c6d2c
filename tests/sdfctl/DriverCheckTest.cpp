// SPDX-License-Identifier: Apache-2.0
// What the doctor says of the driver's service manager, with the answer written by hand.
#include <gtest/gtest.h>
#include <linux/android/binder.h>
#include <lum/service_manager.h>

#include "tools/place/DriverCheck.h"
#include "tools/place/DriverReason.h"

namespace {

AStatus* gAnswer = nullptr;

}  // namespace

// In place of the platform's.
AStatus* LumServiceManager_mayFind(const char* /*instance*/) {
    return gAnswer;
}

// The linker turns every call of ioctl into one of this: every device is one of the driver.
extern "C" __attribute__((visibility("default"))) int __wrap_ioctl(int /*fd*/,
                                                                   unsigned long request,
                                                                   void* argument) {
    EXPECT_EQ(request, BINDER_VERSION);
    static_cast<binder_version*>(argument)->protocol_version = BINDER_CURRENT_PROTOCOL_VERSION;
    return 0;
}

namespace {

constexpr char kDevice[] = "/dev/null";

// Though it can be opened, and has the right version.
TEST(DriverCheckTest, DeviceThatTheRuntimeCannotUseIsAnObstacle) {
    gAnswer = AStatus_fromExceptionCode(EX_UNSUPPORTED_OPERATION);
    EXPECT_EQ(driverObstacle(kDevice).trouble, "it cannot be used; the log says why");
    EXPECT_STREQ(driverReasonOf(EX_UNSUPPORTED_OPERATION),
                 "the binder device cannot be used (\"sdfctl doctor\" says why)");
}

TEST(DriverCheckTest, RefusalOfAServiceManagerSaysNothingOfTheDevice) {
    gAnswer = AStatus_fromExceptionCode(EX_ILLEGAL_STATE);
    EXPECT_EQ(driverObstacle(kDevice).trouble, "");
    EXPECT_STREQ(driverReasonOf(EX_ILLEGAL_STATE), "the service manager does not accept it");
}

TEST(DriverCheckTest, NameThatMayBeLookedUpIsNoObstacle) {
    gAnswer = AStatus_newOk();
    EXPECT_EQ(refusalObstacle("lum").trouble, "");
}

// Not what dies meanwhile, or finds no memory.
TEST(DriverCheckTest, PolicyIsBlamedForRefusalsOnly) {
    gAnswer = AStatus_fromExceptionCodeWithMessage(EX_SECURITY, "denied");
    const Obstacle refused = refusalObstacle("lum");
    EXPECT_EQ(refused.trouble,
              "the service manager does not let this process look the name up: "
              "Status(-1, EX_SECURITY): 'denied'");
    EXPECT_EQ(refused.advice.find("The system's policy has to let this process find"), 0U);
    gAnswer = nullptr;
    const Obstacle unknown = refusalObstacle("lum");
    EXPECT_EQ(unknown.trouble,
              "the service manager cannot be asked about it: "
              "Status(-129, EX_TRANSACTION_FAILED): 'STATUS_NO_MEMORY: '");
    EXPECT_EQ(unknown.advice.find("It may have died, or lack memory: run this again"), 0U);
    EXPECT_EQ(driverObstacle(kDevice).advice, unknown.advice);
    gAnswer = AStatus_fromStatus(STATUS_FAILED_TRANSACTION);
    EXPECT_EQ(
        driverObstacle(kDevice).advice.find("The system's policy has to let this process call"),
        0U);
}

}  // namespace
