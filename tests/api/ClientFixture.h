// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gtest/gtest.h>
#include <lum_sdf_sdk.h>

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "api/Sdf.h"
#include "tests/api/FakeTransport.h"
#include "tests/api/RequestTable.h"

using Calls = std::vector<std::string>;
using Ids = std::vector<unsigned int>;
using Texts = std::vector<std::string>;

// Application callbacks that record their calls as text, such as "v2(-7)" and "otherV2(-7)", and
// then do what the test wants done inside them.
namespace app {

extern const SdfStatusV2Cb onV2, onOtherV2;              // "v2(-7)"
extern const SdfLegacyStatusCb onLegacy, onOtherLegacy;  // "legacy(5)"
// The others to those of RequestTable.h.
extern const SdfEffectiveLevelsCb onOtherLevels;
extern const SdfFilterStatusCb onOtherFilterStatus, onOtherAdded;
extern const SdfGetFiltersCb onOtherFilter;
extern const SdfPriorityQueueReportCb onOtherReports, onOtherReport;
extern const SdfAutoFilterInfoCb onOtherAuto;

// The description that onAuto() or onOtherAuto() was last given, see bytesOf().
std::string autoInfo();

// The calls since the last take, in order.
Calls takeCalls();

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
// A field with this tag that holds these bytes, at most 127.
std::string field(const std::string& tag, const std::string& contents);
// A message with this event, without an id, and the body of these bytes that belongs to the event.
std::string message(int event, const std::string& body);
// The same with the body of another event.
std::string message(int event, int bodyOf, const std::string& body);

}  // namespace service

// All bytes of the description, those between its members included.
std::string bytesOf(const SdfAddFilterInfo& info);

extern const char kEnable[];   // the enable request, as FakeTransport::takeText() shows it
extern const char kDisable[];  // the disable request

// No client, a transport at hand, nothing recorded; the same afterwards.
class ClientTest : public ::testing::Test {
  protected:
    ClientTest();
    ~ClientTest() override;

    static FakeSdkClient& sdk() { return FakeSdkClient::get(); }
    static Sdf& client() { return *Sdf::mInstance; }

    // As the transport would call it.
    static void report(SdkClientBase::SdkStatus status, const std::string& hex = "");
    static void receive(const std::string& hex) { report(SdkClientBase::SDK_BLOB_RECEIVED, hex); }

    // What this message does, in order: the calls, log lines ("log 3: text"), and last which fields
    // of ClientState it has changed ("changed usedIds latencyCbs").
    static Texts effectOf(const std::vector<uint8_t>& bytes);
    static Texts effectOf(const std::string& hex);

    // The events posted since the last call, as FakeTransport::takeText() shows them.
    static Texts posted() { return sdk().transport->takeText(); }

    // A client with app::onV2, the service up, nothing recorded.
    static void startUp();
    // The same with app::onLegacy, all callbacks of namespace app registered and awaited
    // (app::onLevels by request 7, app::onAdded by request 8), and the filter kFilterId confirmed.
    static void startUpWithAll();
};
