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

// For sdfRegFilterStatus(): "filterStatus(7,1)"; for the functions that add filters: "added(7,1)".
void onFilterStatus(unsigned int id, SdfFilterStatus status);
void onOtherFilterStatus(unsigned int id, SdfFilterStatus status);
void onAdded(unsigned int id, SdfFilterStatus status);
void onOtherAdded(unsigned int id, SdfFilterStatus status);
// For sdfGetFilters(): "filter(7,1,6,3,2,300)".
void onFilter(unsigned int id, SdfFilterStatus status, SdfLatencyLvl first, SdfLatencyLvl second,
              SdfOod ood, unsigned int pdcpTimer);
void onOtherFilter(unsigned int id, SdfFilterStatus status, SdfLatencyLvl first,
                   SdfLatencyLvl second, SdfOod ood, unsigned int pdcpTimer);
// For sdfRegPriorityQueueReports(): "reports(1,2,3)"; for sdfGetPriorityQueueReport():
// "report(...".
void onReports(unsigned int key, uint64_t first, uint64_t second);
void onOtherReports(unsigned int key, uint64_t first, uint64_t second);
void onReport(unsigned int key, uint64_t first, uint64_t second);
void onOtherReport(unsigned int key, uint64_t first, uint64_t second);
// For sdfRegAutoFilterInfo(): "auto(7)"; what it was told is kept, see autoInfo().
void onAuto(unsigned int id, SdfAddFilterInfo info);
void onOtherAuto(unsigned int id, SdfAddFilterInfo info);

// What onAuto() or onOtherAuto() was last told, see bytesOf().
std::string autoInfo();

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
// A field with this tag that holds these bytes, at most 127.
std::string field(const std::string& tag, const std::string& contents);
// A message with this event, without an id, and the body of these bytes that belongs to the event.
std::string message(int event, const std::string& body);
// The same with the body of another event.
std::string message(int event, int bodyOf, const std::string& body);

}  // namespace service

// All bytes of the description, those between its members included.
std::string bytesOf(const SdfAddFilterInfo& info);

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
    // The same with app::onLegacy, all callbacks of namespace app registered and awaited
    // (app::onLevels by request 7, app::onAdded by request 8), and the filter kFilterId confirmed.
    static void startUpWithAll();
};
