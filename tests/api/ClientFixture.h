// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "api/Sdf.h"
#include "api/lum_sdf_sdk.h"
#include "tests/api/FakeTransport.h"

// Application callbacks that record their calls as text, such as "v2(-7)", and then do what the
// test wants done inside them.
namespace app {

void onV2(int status);                                                   // "v2(-7)"
void onOtherV2(int status);                                              // "otherV2(-7)"
void onLegacy(status_e status);                                          // "legacy(5)"
void onOtherLegacy(status_e status);                                     // "otherLegacy(5)"
void onLevels(long long id, SdfLatencyLvl first, SdfLatencyLvl second);  // "levels(7,1,6)"
void onOtherLevels(long long id, SdfLatencyLvl first,
                   SdfLatencyLvl second);  // "otherLevels(7,1,6)"

// The calls since the last take, in order.
std::vector<std::string> takeCalls();

// Runs inside the named callback ("v2", "legacy", ...) after it has recorded its call.
void inside(const std::string& callback, std::function<void()> action);

// Records a line among the calls.
void note(const std::string& text);

void reset();

}  // namespace app

// Messages of the service, as bytes worked out by hand.
namespace service {

// STATUS_IND with a status of one byte; 6 is service up.
inline std::string statusInd(const std::string& status) {
    return "1A 04 0A 02 08 " + status;
}
// EFFECTIVE_LEVELS_CB for the id with this varint, levels 6 and 3.
std::string effectiveLevels(const std::string& idVarint);

}  // namespace service

using Calls = std::vector<std::string>;

extern const char kEnable[];   // the enable request, as FakeTransport::takeText() shows it
extern const char kDisable[];  // the disable request

// No client, a transport to be had, nothing recorded; the same afterwards.
class ClientTest : public ::testing::Test {
  protected:
    ClientTest();
    ~ClientTest() override;

    static FakeSdkClient& sdk() { return FakeSdkClient::get(); }
    static Sdf& client() { return *Sdf::mInstance; }

    // As the transport would call it.
    static void report(SdkClientBase::SdkStatus status, const std::string& hex = "");
    static void receive(const std::string& hex) { report(SdkClientBase::SDK_BLOB_RECEIVED, hex); }

    // A client with app::onV2, the service up, nothing recorded.
    static void startUp();
};
