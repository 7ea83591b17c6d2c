// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "tests/emulator/ManualClock.h"
#include "tests/support/Hex.h"
#include "tools/emulator/RequestHandlers.h"
#include "tools/emulator/Session.h"

// One session of the user 1000 with a clock moved by hand, spoken to in bytes.
class SessionFixture : public testing::Test {
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
        for (const auto& answer : findHandler(request.event_id())->handle(session(), request)) {
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

    Session& session() {
        if (mSession == nullptr) {
            const auto tell = [this](const SdfProto::ClientMsg& message) {
                mTold.push_back(toHex(message.SerializeAsString()));
            };
            const auto notice = [this](const std::string& text) { mNotices.push_back(text); };
            mSession = std::make_unique<Session>(
                1000, Session::Surroundings{mPolicy, mClock.timeline(), tell, notice});
        }
        return *mSession;
    }

    Policy mPolicy;  // to be set before the first request
    ManualClock mClock;
    std::unique_ptr<Session> mSession;
    Lines mTold;
    Lines mNotices;
};
