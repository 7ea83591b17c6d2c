// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include "tests/support/Fault.h"
#include "tools/sdfctl/Waiter.h"

namespace {

TEST(WaiterTest, FaultInACallWithALimitReachesTheProcesssHandler) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            exitAtFault();
            const Waiter waiter;
            (void)waiter.withLimit(60, []() -> long long {
                causeFault();
                return 0;
            });
        },
        testing::ExitedWithCode(kFaultExit), "");
}

}  // namespace
