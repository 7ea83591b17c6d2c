// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "tests/emulator/ManualClock.h"
#include "tests/support/Hex.h"
#include "tools/emulator/FeatureState.h"
#include "tools/emulator/RequestHandlers.h"

// One feature of the user 1000 with a clock moved by hand, spoken to in bytes.
class FeatureFixture : public testing::Test {
  protected:
    using Lines = std::vector<std::string>;

    // Carries a request out, given as fromHex() takes it, and returns the answers.
    Lines ask(const std::string& hex) {
        SdfProto::ServiceMsg request;
        const std::vector<uint8_t> bytes = fromHex(hex);
        if (!request.ParseFromArray(bytes.data(), static_cast<int>(bytes.size()))) {
            throw std::invalid_argument("no request: " + hex);
        }
        Lines answers;
        for (const auto& answer : findHandler(request.event_id())->handle(feature(), request)) {
            answers.push_back(toHex(answer.SerializeAsString()));
        }
        return answers;
    }

    // Lets time pass and returns what has been sent meanwhile.
    Lines pass(int milliseconds) {
        mTold.clear();
        mClock.pass(std::chrono::milliseconds(milliseconds));
        return mTold;
    }

    FeatureState& feature() {
        if (mState == nullptr) {
            const auto tell = [this](const SdfProto::ClientMsg& message) {
                mTold.push_back(toHex(message.SerializeAsString()));
            };
            const auto notice = [this](const std::string& text) { mNotices.push_back(text); };
            mState = std::make_unique<FeatureState>(
                1000, FeatureState::Surroundings{mPolicy, mClock.timeline(), tell, notice});
        }
        return *mState;
    }

    Policy mPolicy;  // to be set before the first request
    ManualClock mClock;
    std::unique_ptr<FeatureState> mState;
    Lines mTold;
    Lines mNotices;
};
