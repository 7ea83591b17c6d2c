// SPDX-License-Identifier: Apache-2.0
// What the doctor says of the driver's service manager, with the answer written by hand.
#include <gtest/gtest.h>
#include <lum/service_manager.h>

#include "tools/place/DriverCheck.h"

namespace {

AStatus* gAnswer = nullptr;

}  // namespace

// In place of the platform's.
AStatus* LumServiceManager_mayFind(const char* /*instance*/) {
    return gAnswer;
}

namespace {

TEST(DriverCheckTest, NameThatMayBeLookedUpIsNoObstacle) {
    gAnswer = AStatus_newOk();
    EXPECT_EQ(refusalObstacle("lum").trouble, "");
}

TEST(DriverCheckTest, NoMemoryForTheAnswerIsReported) {
    gAnswer = nullptr;
    EXPECT_EQ(refusalObstacle("lum").trouble,
              "the service manager does not let this process look the name up: "
              "Status(-129, EX_TRANSACTION_FAILED): 'STATUS_NO_MEMORY: '");
}

}  // namespace
