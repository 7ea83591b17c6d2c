// SPDX-License-Identifier: Apache-2.0
#include "tools/sdfctl/Callbacks.h"
#include "tools/sdfctl/Requests.h"

namespace {

Action regPriorityQueueReports(Arguments& arguments) {
    struct Values {
        bool on = false;
        unsigned int value = 0;
        CallbackChoice<SdfPriorityQueueReportCb> callback{callbacks::onQueueReport};
    };
    const auto values = valuesOf<Values>();
    arguments.onOff("SWITCH", values->on, "on or off");
    arguments.number("VALUE", values->value, "Report value, which the service knows to read");
    values->callback.declare(arguments);
    return [values](Session& session) {
        request(session, "sdfRegPriorityQueueReports",
                {switched("enable", values->on), plain("report_value", values->value)}, [&] {
                    return sdfRegPriorityQueueReports(values->on, values->value,
                                                      values->callback.chosen());
                });
    };
}

Action getPriorityQueueReport(Arguments& arguments) {
    using Choice = CallbackChoice<SdfPriorityQueueReportCb>;
    const auto callback = std::make_shared<Choice>(callbacks::onQueueAnswer);
    callback->declare(arguments);
    return [callback](Session& session) {
        session.ready();
        const long long result = session.call("sdfGetPriorityQueueReport", {}, [&] {
            return sdfGetPriorityQueueReport(callback->chosen());
        });
        if (result == SDF_V2_SUCCESS) session.expectAnswers("queue-answer", 0, true);
    };
}

// The registrations that take nothing but a callback.
template <typename Callback>
Action registration(Arguments& arguments, const char* function, long long (*body)(Callback),
                    Callback callback) {
    const auto choice = std::make_shared<CallbackChoice<Callback>>(callback);
    choice->declare(arguments);
    return [choice, function, body](Session& session) {
        request(session, function, {}, [&] { return body(choice->chosen()); });
    };
}

Action regAutoFilterInfo(Arguments& arguments) {
    return registration(arguments, "sdfRegAutoFilterInfo", sdfRegAutoFilterInfo,
                        callbacks::onAutoFilter);
}

Action regFilterStatus(Arguments& arguments) {
    return registration(arguments, "sdfRegFilterStatus", sdfRegFilterStatus,
                        callbacks::onFilterStatus);
}

}  // namespace

std::vector<Command> reportCommands() {
    return {
        {"reg-filter-status", "sdfRegFilterStatus(): be told what becomes of filters",
         regFilterStatus},
        {"reg-auto-filter-info", "sdfRegAutoFilterInfo(): be told of the service's own filters",
         regAutoFilterInfo},
        {"reg-priority-queue-reports", "sdfRegPriorityQueueReports(): ask for reports, or stop",
         regPriorityQueueReports},
        {"get-priority-queue-report", "sdfGetPriorityQueueReport(): ask for one report",
         getPriorityQueueReport},
    };
}
