// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "tests/platform/PeerInterface.h"
#include "tests/platform/PeerProcess.h"
#include "tests/platform/Threads.h"
#include "tests/support/TestDirectory.h"

constexpr char kName[] = "lum.test.peer";

// Returns the object that is served under that name.
inline ndk::SpAIBinder find(const std::string& name) {
    return ndk::SpAIBinder(AServiceManager_waitForService(name.c_str()));
}

// Has a peer and its service.
class PeerTest : public testing::Test {
  protected:
    binder_status_t call(transaction_code_t code, const Fill& fill = nullptr,
                         const Take& take = nullptr, binder_flags_t flags = 0) const {
        return callPeer(mService, code, fill, take, flags);
    }
    binder_status_t oneway(transaction_code_t code, const Fill& fill = nullptr) const {
        return callOneway(mService, code, fill);
    }
    // Returns the number that the method replies.
    int32_t ask(transaction_code_t code, const Fill& fill = nullptr) const {
        int32_t answer = -1;
        EXPECT_EQ(call(code, fill, into(&answer)), STATUS_OK);
        return answer;
    }
    // Returns the object that the method replies.
    ndk::SpAIBinder askObject(transaction_code_t code) const {
        ndk::SpAIBinder object;
        EXPECT_EQ(call(code, nullptr, into(&object)), STATUS_OK);
        return object;
    }

    const TestDirectory mDirectory;
    PeerProcess mPeer{kName};
    ndk::SpAIBinder mService = find(kName);
};
