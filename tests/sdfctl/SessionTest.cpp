// SPDX-License-Identifier: Apache-2.0
// A session with a library in the place of the real one that reports the service inside the call
// that asks for it: the first time as lost, then as up.
#include <gtest/gtest.h>
#include <lum_sdf_sdk.h>

#include "tools/sdfctl/Session.h"

namespace {

int gCalls = 0;

}  // namespace

extern "C" long long createSdfClient(SdfStatusV2Cb cb) {
    cb(++gCalls == 1 ? SDF_V2_SERVICE_DOWN : SDF_V2_SERVICE_UP);
    return 0;
}

extern "C" long long destroySdfClient() {
    return 0;
}

namespace {

TEST(SessionTest, StatusThatComesInsideTheCallThatAsksAgainEndsTheWait) {
    Settings settings;
    settings.wait = 0;  // without limit
    Session session(settings);
    session.ready();
    EXPECT_EQ(gCalls, 2);
    session.finish();
    EXPECT_EQ(session.exitStatus(), kExitSuccess);
}

}  // namespace
