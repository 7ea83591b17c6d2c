// SPDX-License-Identifier: Apache-2.0
// The application calls the interface from inside its callbacks.
#include <gtest/gtest.h>

#include <set>

#include "tests/api/ClientFixture.h"
#include "tests/api/ClientState.h"
#include "tests/api/Requests.h"
#include "tests/api/ScriptedRand.h"
#include "tests/support/Hex.h"

namespace {

class InCallbackTest : public ClientTest {
  protected:
    // Both status callbacks, the service up, and request 7 awaiting its levels.
    void SetUp() override {
        startUp();
        ASSERT_EQ(lum_sdf_enable(app::onLegacy), 1);
        scriptRand({7});
        ASSERT_EQ(setLatency(), 7);
        sdk().transport->take();
    }
};

TEST_F(InCallbackTest, FirstStatusCallbackReplacesItselfAndTheSecond) {
    app::inside("legacy", [] {
        EXPECT_EQ(lum_sdf_enable(app::onOtherLegacy), 1);
        EXPECT_EQ(createSdfClient(app::onOtherV2), 0);
    });
    receive(service::statusInd("06"));
    EXPECT_EQ(app::takeCalls(), (Calls{"legacy(5)", "otherV2(-7)"}));
    receive(service::statusInd("06"));
    EXPECT_EQ(app::takeCalls(), (Calls{"otherLegacy(5)", "otherV2(-7)"}));
}

// The callback that says there is no transport creates and destroys again, and is not called from
// inside itself without end.
TEST_F(InCallbackTest, NoTransportAtCreate) {
    ASSERT_EQ(destroySdfClient(), 0);
    sdk().transport = nullptr;
    app::inside("legacy", [] {
        EXPECT_EQ(lum_sdf_enable(app::onLegacy), 1);
        EXPECT_EQ(createSdfClient(app::onV2), 0);
        EXPECT_EQ(setLatency(), -5);
        EXPECT_EQ(lum_sdf_disable(), 0);
        EXPECT_EQ(destroySdfClient(), -5);
    });
    EXPECT_EQ(lum_sdf_enable(app::onLegacy), 1);
    EXPECT_EQ(app::takeCalls(), Calls{"legacy(2)"});
    EXPECT_EQ(lum_sdf_enable(app::onLegacy), 1);
    EXPECT_EQ(app::takeCalls(), Calls{"legacy(2)"});
}

TEST_F(InCallbackTest, NoTransportAtDestroy) {
    ASSERT_EQ(destroySdfClient(), 0);
    sdk().transport = nullptr;
    ASSERT_EQ(createSdfClient(app::onV2), 0);
    ASSERT_EQ(lum_sdf_enable(app::onLegacy), 1);
    app::takeCalls();
    for (const char* callback : {"legacy", "v2"}) {
        app::inside(callback, [] {
            EXPECT_EQ(lum_sdf_disable(), 0);
            EXPECT_EQ(destroySdfClient(), -5);
            EXPECT_EQ(createSdfClient(app::onV2), 0);
        });
    }
    EXPECT_EQ(destroySdfClient(), -5);
    EXPECT_EQ(app::takeCalls(), (Calls{"legacy(2)", "v2(-3)"}));
    EXPECT_EQ(lum_sdf_disable(), 0);
    EXPECT_EQ(app::takeCalls(), (Calls{"legacy(2)", "v2(-3)"}));
}

TEST_F(InCallbackTest, NoTransportAtFirstThenOneFromInside) {
    ASSERT_EQ(destroySdfClient(), 0);
    const auto transport = std::exchange(sdk().transport, nullptr);
    app::inside("legacy", [&] {
        app::inside("legacy", nullptr);
        sdk().transport = transport;
        EXPECT_EQ(createSdfClient(app::onV2), 0);
    });
    EXPECT_EQ(lum_sdf_enable(app::onLegacy), 1);
    EXPECT_EQ(client().mSdkClient, transport);
    receive(service::statusInd("06"));
    EXPECT_EQ(app::takeCalls(), (Calls{"legacy(2)", "legacy(5)", "v2(-7)"}));
}

// The first of the two callbacks that say there is no transport makes one and destroys the client:
// the second is not called.
TEST_F(InCallbackTest, NoTransportAtDestroyAndGoneBetween) {
    ASSERT_EQ(destroySdfClient(), 0);
    const auto transport = std::exchange(sdk().transport, nullptr);
    ASSERT_EQ(createSdfClient(app::onV2), 0);
    ASSERT_EQ(lum_sdf_enable(app::onLegacy), 1);
    app::takeCalls();
    app::inside("legacy", [&] {
        sdk().transport = transport;
        EXPECT_EQ(createSdfClient(app::onV2), 0);
        EXPECT_EQ(destroySdfClient(), 0);
    });
    EXPECT_EQ(destroySdfClient(), -5);
    EXPECT_EQ(app::takeCalls(), Calls{"legacy(2)"});
    EXPECT_FALSE(Sdf::mInstance);
}

// ---- The one-shot slots, and lists whose callback changes what they are about

using service::field;
using service::message;

const std::string kTwoFilters = message(4, field("12", "08 05") + " " + field("12", "08 06"));
const std::string kTwoEntries = message(5, field("12", "08 05") + " " + field("12", "08 06"));

class FilterInCallbackTest : public InCallbackTest {
  protected:
    void SetUp() override { startUpWithAll(); }
};

TEST_F(FilterInCallbackTest, ListCallbackAsksForTheNextList) {
    app::inside("filter", [] { EXPECT_EQ(sdfGetFilters(app::onOtherFilter), 0); });
    receive(kTwoFilters);
    EXPECT_EQ(app::takeCalls(), (Calls{"filter(5,0,1,1,1,0)", "filter(6,0,1,1,1,0)"}));
    EXPECT_EQ(client().mGetFiltersCb, app::onOtherFilter);
    receive(kTwoFilters);
    EXPECT_EQ(app::takeCalls(), (Calls{"otherFilter(5,0,1,1,1,0)", "otherFilter(6,0,1,1,1,0)"}));
    EXPECT_EQ(client().mGetFiltersCb, nullptr);
}

TEST_F(FilterInCallbackTest, ReportCallbackAsksForTheNextReport) {
    client().mPriorityQueueReportsCb = nullptr;
    app::inside("report", [] { EXPECT_EQ(sdfGetPriorityQueueReport(app::onOtherReport), 0); });
    receive(kTwoEntries);
    EXPECT_EQ(app::takeCalls(), (Calls{"report(5,0,0)", "report(6,0,0)"}));
    receive(kTwoEntries);
    EXPECT_EQ(app::takeCalls(), (Calls{"otherReport(5,0,0)", "otherReport(6,0,0)"}));
    EXPECT_EQ(client().mGetPriorityQueueReportCb, nullptr);
}

// A report that is asked for while another is delivered is the next one, also when that other one
// was not asked for.
TEST_F(FilterInCallbackTest, ReportsCallbackAsksForTheNextReport) {
    client().mGetPriorityQueueReportCb = nullptr;
    app::inside("reports", [] {
        app::inside("reports", nullptr);
        EXPECT_EQ(sdfGetPriorityQueueReport(app::onReport), 0);
    });
    receive(kTwoEntries);
    EXPECT_EQ(app::takeCalls(), (Calls{"reports(5,0,0)", "reports(6,0,0)"}));
    receive(kTwoEntries);
    EXPECT_EQ(app::takeCalls(),
              (Calls{"reports(5,0,0)", "report(5,0,0)", "reports(6,0,0)", "report(6,0,0)"}));
}

// A registration counts from the next entry, or filter, on.
TEST_F(FilterInCallbackTest, RegistrationIsReplacedInTheMiddle) {
    app::inside("report",
                [] { EXPECT_EQ(sdfRegPriorityQueueReports(true, 1, app::onOtherReports), 0); });
    receive(kTwoEntries);
    EXPECT_EQ(app::takeCalls(),
              (Calls{"reports(5,0,0)", "report(5,0,0)", "otherReports(6,0,0)", "report(6,0,0)"}));
    app::inside("filterStatus", [] { EXPECT_EQ(sdfRegFilterStatus(app::onOtherFilterStatus), 0); });
    receive(message(2, field("12", "08 05") + " " + field("12", "08 06")));
    EXPECT_EQ(app::takeCalls(), (Calls{"filterStatus(5,0)", "otherFilterStatus(6,0)"}));
    app::inside("auto", [] { EXPECT_EQ(sdfRegAutoFilterInfo(app::onOtherAuto), 0); });
    receive(message(6, "08 05"));
    receive(message(6, "08 05"));
    EXPECT_EQ(app::takeCalls(), (Calls{"auto(5)", "otherAuto(5)"}));
}

// Filters come and go while a list of states is delivered.
TEST_F(FilterInCallbackTest, StatusCallbackAddsAndDeletes) {
    client().mFilterIds = {1, 2, 3, 4, 5, kFilterId};
    app::inside("filterStatus", [] {
        for (int i = 0; i < 100; ++i) EXPECT_GT(sdfAddFilter(makeFlow(), app::onAdded), 0);
        EXPECT_EQ(sdfDeleteFilter(client().mFilterIds.back()), 0);
    });
    receive(message(2, field("12", "08 01 10 03") + " " + field("12", "08 02 10 03") + " " +
                           field("12", "08 AC 02 10 03")));
    EXPECT_EQ(app::takeCalls(),
              (Calls{"filterStatus(1,3)", "filterStatus(2,3)", "filterStatus(300,3)"}));
    EXPECT_EQ(client().mFilterIds, Ids{3});
    EXPECT_EQ(client().mFilterCbs.size(), 301U);
}

// During its callback a filter is not known yet: deleting all leaves it.
TEST_F(FilterInCallbackTest, AddCallbackDeletesAll) {
    app::inside("added", [] {
        EXPECT_EQ(sdfDeleteFilter(8), -2);
        EXPECT_EQ(sdfDeleteAllFilter(), 0);
        EXPECT_EQ(sdfDeleteAllFilter(), -5);
    });
    receive(message(3, field("0A", "08 08 10 01")));
    EXPECT_EQ(client().mFilterIds, Ids{8});
    EXPECT_EQ(sdfDeleteFilter(8), 0);
}

// ---- Every call from inside every callback

// Something that arrives, and the calls that it makes when nobody interferes.
struct Delivery {
    const char* what;
    std::string hex;  // of a message; empty: the transport reports a failure
    Calls calls;
    bool up;  // whether the service is up while it is delivered
    SdkClientBase::SdkStatus failure = SdkClientBase::SDK_SERVICE_DOWN;  // if there is no message
};

const std::vector<Delivery>& deliveries() {
    static const std::vector<Delivery> all = {
        {"service up", service::statusInd("06"), {"legacy(5)", "v2(-7)"}, true},
        {"service error", service::statusInd("03"), {"legacy(2)", "v2(-3)"}, false},
        {"service lost", "", {"legacy(6)", "v2(-8)"}, false},
        {"message refused", "", {"legacy(2)", "v2(-3)"}, false, SdkClientBase::SDK_SEND_FAILED},
        {"levels", service::effectiveLevels("07"), {"levels(7,6,3)"}, true},
        {"filter states",
         message(2, field("12", "08 05 10 03") + " " + field("12", "08 06 10 01") + " " +
                        field("12", "08 63 10 04")),
         {"filterStatus(5,3)", "filterStatus(6,1)", "filterStatus(99,4)"},
         true},
        {"filter added", message(3, field("0A", "08 08 10 01")), {"added(8,1)"}, true},
        {"filters listed",
         message(4, field("12", "08 05") + " " + field("12", "08 06") + " " + field("12", "08 07")),
         {"filter(5,0,1,1,1,0)", "filter(6,0,1,1,1,0)", "filter(7,0,1,1,1,0)"},
         true},
        {"report",
         kTwoEntries,
         {"reports(5,0,0)", "report(5,0,0)", "reports(6,0,0)", "report(6,0,0)"},
         true},
        {"automatic filter", message(6, "08 05 18 01"), {"auto(5)"}, true},
    };
    return all;
}

class EveryCallTest : public FilterInCallbackTest {
  protected:
    static void deliver(const Delivery& delivery) {
        if (delivery.hex.empty()) {
            report(delivery.failure);
        } else {
            receive(delivery.hex);
        }
    }

    static std::string nameOf(const std::string& call) { return call.substr(0, call.find('(')); }

    // Starts anew, and does action() in each call of that callback while this is delivered; leaves
    // the client in place.
    static void run(const Delivery& delivery, const std::string& callback,
                    const std::function<void()>& action) {
        destroySdfClient();
        app::reset();
        startUpWithAll();
        app::inside(callback, action);
        deliver(delivery);
        app::inside(callback, nullptr);
    }

    // test(delivery, the callback's name) for each callback that the delivery calls.
    template <typename Test>
    static void forEachCallback(const Test& test) {
        for (const Delivery& delivery : deliveries()) {
            std::set<std::string> names;
            for (const std::string& call : delivery.calls) names.insert(nameOf(call));
            for (const std::string& name : names) {
                SCOPED_TRACE(delivery.what + (", in " + name));
                test(delivery, name);
            }
        }
    }
};

// A request from inside is a request like any other, and everything else is delivered as without.
TEST_F(EveryCallTest, Requests) {
    forEachCallback([](const Delivery& delivery, const std::string& callback) {
        for (const Request& request : everyRequest()) {
            SCOPED_TRACE(request.name);
            std::vector<long long> results;
            run(delivery, callback, [&] {
                if (results.empty()) scriptRand({9});
                results.push_back(request.call());
            });
            EXPECT_EQ(app::takeCalls(), delivery.calls);
            std::string event = request.event;
            if (request.drawsId) event.replace(event.find("10 07"), 5, "10 09");
            const Texts texts = posted();
            if (!delivery.up) {
                EXPECT_EQ(results, std::vector<long long>{-8});
                EXPECT_EQ(texts, Texts{});
                continue;
            }
            ASSERT_FALSE(results.empty());
            EXPECT_EQ(results[0], request.drawsId ? 9 : 0);
            if (!event.empty()) {
                ASSERT_FALSE(texts.empty());
                EXPECT_EQ(texts[0], event);
            }
        }
    });
}

// Creating again from inside asks the service again and changes nothing else.
TEST_F(EveryCallTest, Creates) {
    forEachCallback([](const Delivery& delivery, const std::string& callback) {
        size_t times = 0;
        run(delivery, callback, [&] {
            ++times;
            EXPECT_EQ(createSdfClient(app::onV2), 0);
            EXPECT_EQ(lum_sdf_enable(app::onLegacy), 1);
        });
        EXPECT_EQ(app::takeCalls(), delivery.calls);
        EXPECT_EQ(posted(), Texts(2 * times, kEnable));
        EXPECT_EQ(client().mServiceUp, delivery.up);
    });
}

// With the client gone, the rest of the message is dropped; a new client is not touched by it.
TEST_F(EveryCallTest, Destroys) {
    const auto destroy = [] { EXPECT_EQ(destroySdfClient(), 0); };
    const auto disable = [] { EXPECT_EQ(lum_sdf_disable(), 1); };
    const auto create = [] { EXPECT_EQ(createSdfClient(app::onV2), 0); };
    const auto enable = [] { EXPECT_EQ(lum_sdf_enable(app::onLegacy), 1); };
    // A new client with the same requests waiting and the same callbacks registered.
    const auto startOver = [] {
        EXPECT_EQ(destroySdfClient(), 0);
        const Calls calls = app::takeCalls();
        startUpWithAll();
        client().mFilterIds.push_back(5);
        client().mFilterCbs[5] = app::onAdded;
        for (const std::string& call : calls) app::note(call);
    };
    const std::vector<std::pair<const char*, std::vector<std::function<void()>>>> actions = {
        {"destroy", {destroy}},
        {"disable", {disable}},
        {"destroy, create", {destroy, create}},
        {"destroy, enable", {destroy, enable}},
        {"disable, create", {disable, create}},
        {"disable, enable", {disable, enable}},
        {"create, destroy", {create, destroy}},
        {"destroy, create, destroy", {destroy, create, destroy}},
        {"start over", {startOver}},
    };
    forEachCallback([&](const Delivery& delivery, const std::string& callback) {
        for (const auto& [name, steps] : actions) {
            SCOPED_TRACE(name);
            std::unique_ptr<ClientState> after;
            run(delivery, callback, [&, &doSteps = steps] {
                app::inside(callback, nullptr);  // starting over calls it, too
                for (const auto& step : doSteps) step();
                after = std::make_unique<ClientState>();
            });
            Calls expected;
            for (const std::string& call : delivery.calls) {
                expected.push_back(call);
                if (nameOf(call) == callback) break;
            }
            EXPECT_EQ(app::takeCalls(), expected);
            ASSERT_TRUE(after);
            EXPECT_EQ(ClientState().differences(*after), "");
        }
    });
}

}  // namespace
