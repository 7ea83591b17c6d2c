// SPDX-License-Identifier: Apache-2.0
#include "fuzz/ClientInStep.h"

#include <google/protobuf/stubs/logging.h>
#include <netinet/in.h>

#include <cstring>
#include <optional>
#include <utility>

#include "fuzz/Check.h"
#include "fuzz/Messages.h"
#include "fuzz/Wire.h"
#include "tests/api/ClientFixture.h"
#include "tests/api/ClientState.h"
#include "tests/api/FakeTransport.h"
#include "tests/api/Requests.h"
#include "tests/api/ScriptedRand.h"
#include "tests/support/Hex.h"

namespace {

using Data = SdfProto::ServiceData;
using Client = ClientModel::Client;
using wire::bodyOf;
using wire::kLevels;
using wire::kOods;
using wire::kSlots;

// The requests, see makeRequest().
constexpr unsigned int kRequestKinds = 18;
constexpr unsigned int kDeleteFilter = 15;
constexpr unsigned int kDeleteAllFilter = 16;

constexpr unsigned int kMostSteps = 128;
constexpr unsigned int kMostDepth = 4;

// Numbers below 256, each once before one comes again, so that ids meet those in use, and 0.
constexpr int kNumbers = 256;
std::vector<int> makeRandom(int seed) {
    std::vector<int> numbers;
    int number = seed;
    for (int i = 0; i < 8 * kNumbers; ++i) {
        number = (number * 5 + 3) % kNumbers;
        numbers.push_back(number);
    }
    return numbers;
}

FakeSdkClient& sdk() {
    return FakeSdkClient::get();
}

// The transport is made once: its descriptors are what costs most.
const std::shared_ptr<FakeTransport>& transport() {
    static const auto& made = *new std::shared_ptr<FakeTransport>(sdk().transport);
    return made;
}

}  // namespace

ClientInStep::ClientInStep(Input& input) : ClientInStep(input, makeRandom(input.byte())) {}

ClientInStep::ClientInStep(Input& input, const std::vector<int>& random)
    : mInput(&input), mModel(*this, random) {
    google::protobuf::SetLogHandler(nullptr);  // it says of each text that is no UTF-8
    scriptRand(random);
    app::reset();
    sdk().transport = transport();
    sdk().obtained.clear();
    sdk().destroyed.clear();
    sdk().duringGet = [this] { mListeners.push_back(sdk().listener); };
    sdk().duringDestroy = [this] { onCalled("destroying"); };
    for (const auto& [cb, name] : callbackNames()) {
        const bool describes = name == "auto" || name == "otherAuto";
        app::inside(name, [this, describes] {
            const std::string text = app::takeCalls().back();
            onCalled(describes ? text + " " + app::autoInfo() : text);
        });
    }
}

ClientInStep::~ClientInStep() {
    app::reset();
    sdk().transport = transport();
    sdk().duringGet = nullptr;
    sdk().duringDestroy = nullptr;
    destroySdfClient();
    lum::utils::exchangeShared(Sdf::mInstance, {});
    sdk().listener = nullptr;
    transport()->take();
}

bool ClientInStep::canGoOn() const {
    return !mInput->empty() && mSteps < kMostSteps && scriptedRandLeft() > size_t{kNumbers} * 2;
}

void ClientInStep::anyStep() {
    run(makeStep());
}

void ClientInStep::message(const std::vector<uint8_t>& bytes) {
    if (mListeners.empty()) return;
    const size_t listener = mListeners.size() - 1;
    run({"message",
         [this, listener, bytes] {
             const SdkClientBase::Listener called = mListeners[listener];
             called(SdkClientBase::SDK_BLOB_RECEIVED, bytes);
             return 0LL;
         },
         [listener, bytes](ClientModel& model) {
             model.report(listener, SdkClientBase::SDK_BLOB_RECEIVED, bytes);
             return 0LL;
         }});
}

unsigned int ClientInStep::anyId() {
    const std::shared_ptr<Sdf> client = Sdf::current();
    if (!client || mInput->rarely(8)) return mInput->number<unsigned int>();
    const std::vector<unsigned int>& ids = mInput->flag() ? client->mUsedIds : client->mFilterIds;
    return ids.empty() ? mInput->byte() : ids[mInput->byte() % ids.size()];
}

template <typename Callback>
Callback ClientInStep::oneOf(Callback first, Callback other) {
    if (mInput->rarely(16)) return nullptr;
    return mInput->flag() ? other : first;
}

ClientInStep::Step ClientInStep::makeStep() {
    constexpr unsigned int kLifecycle = 8;
    constexpr unsigned int kReports = 8;
    const unsigned int which = mInput->pick(kLifecycle + kReports + kRequestKinds);
    if (which < kLifecycle) return makeLifecycle(which);
    return which < kLifecycle + kReports ? makeReport()
                                         : makeRequest(which - kLifecycle - kReports);
}

ClientInStep::Step ClientInStep::makeLifecycle(unsigned int which) {
    switch (which) {
        case 0:
        case 1: {
            const SdfStatusV2Cb cb = oneOf(app::onV2, app::onOtherV2);
            return {"createSdfClient", [cb] { return createSdfClient(cb); },
                    [cb](ClientModel& model) { return model.createSdfClient(cb); }};
        }
        case 2:
        case 3: {
            const SdfLegacyStatusCb cb = oneOf(app::onLegacy, app::onOtherLegacy);
            return {"lum_sdf_enable", [cb] { return lum_sdf_enable(cb); },
                    [cb](ClientModel& model) { return model.lumSdfEnable(cb); }};
        }
        case 4:
        case 5:
            return {"destroySdfClient", [] { return destroySdfClient(); },
                    [](ClientModel& model) { return model.destroySdfClient(); }};
        case 6:
            return {"lum_sdf_disable", [] { return lum_sdf_disable(); },
                    [](ClientModel& model) { return model.lumSdfDisable(); }};
        default: {
            const bool there = !mInput->rarely(4);
            return {"transport",
                    [there] {
                        sdk().transport = there ? transport() : nullptr;
                        return 0LL;
                    },
                    [there](ClientModel& model) {
                        model.setTransport(there);
                        return 0LL;
                    }};
        }
    }
}

ClientInStep::Step ClientInStep::makeReport() {
    if (mListeners.empty())
        return {"no listener", [] { return 0LL; }, [](ClientModel&) { return 0LL; }};
    // The latest, or an earlier one that the transport still calls late.
    const size_t listener =
        mInput->rarely(8) ? mInput->byte() % mListeners.size() : mListeners.size() - 1;
    auto status = SdkClientBase::SDK_BLOB_RECEIVED;
    if (mInput->rarely(8)) {
        status = mInput->around(SdkClientBase::SDK_BLOB_RECEIVED, SdkClientBase::SDK_SERVICE_UP);
    }
    std::vector<uint8_t> bytes;
    if (status == SdkClientBase::SDK_BLOB_RECEIVED) {
        bytes = makeMessage(*mInput, [this] { return anyId(); });
    }
    return {"report " + std::to_string(status),
            [this, listener, status, bytes] {
                // The application may make another client, and with it another listener.
                const SdkClientBase::Listener called = mListeners[listener];
                called(status, bytes);
                return 0LL;
            },
            [listener, status, bytes](ClientModel& model) {
                model.report(listener, status, bytes);
                return 0LL;
            }};
}

SdfAddFilterInfo ClientInStep::makeFlow() {
    const auto mostlyValid = [this](auto first, auto last) {
        if (mInput->rarely(16)) return mInput->around(first, last);
        const int above =
            static_cast<int>(mInput->pick(static_cast<unsigned int>(last - first + 1)));
        return static_cast<decltype(first)>(first + above);
    };
    SdfAddFilterInfo info{};
    for (sockaddr_storage* const address : {&info.src_addr, &info.dest_addr}) {
        constexpr sa_family_t kFamilies[] = {AF_INET,  AF_INET,   AF_INET6,
                                             AF_INET6, AF_UNSPEC, AF_UNIX};
        sockaddr_in6 bytes{};
        bytes.sin6_family = kFamilies[mInput->pick(6)];
        bytes.sin6_port = htons(mInput->number<uint16_t>());
        // Where the other family has its address.
        bytes.sin6_flowinfo = mInput->byte();
        bytes.sin6_addr.s6_addr[15] = mInput->byte();
        memcpy(address, &bytes, sizeof bytes);
    }
    info.first_level = mostlyValid(SDF_LATENCY_LVL_1, SDF_LATENCY_LVL_6);
    info.second_level = mostlyValid(SDF_LATENCY_LVL_1, SDF_LATENCY_LVL_6);
    info.ood = mostlyValid(SDF_OOD_UNSPECIFIED_LVL, SDF_OOD_DISABLED_LVL);
    info.app_type = mostlyValid(SDF_APP_TYPE_UNSPECIFIED, SDF_APP_TYPE_TRAFFIC_PRIO_BE);
    info.protocol = mostlyValid(SDF_PROTOCOL_NONE, SDF_PROTOCOL_TCPUDP);
    info.pdcp_timer = mInput->number<uint32_t>();
    info.src_port_range = mInput->number<uint16_t>();
    info.dest_port_range = mInput->number<uint16_t>();
    // Passed through: others each, so that none can take another's place.
    info.filter_arg6 = 6;
    info.filter_arg11 = 11;
    info.filter_arg13 = 13;
    info.filter_arg16 = 16;
    info.filter_arg17 = 17;
    info.filter_arg19 = 19;
    info.filter_arg20 = 20;
    return info;
}

namespace {

bool isValid(const sockaddr_storage& address, uint16_t range) {
    return !wire::addressText(address).empty() && wire::portOf(address) + range <= UINT16_MAX;
}

bool isValid(const SdfAddFilterInfo& info) {
    return isValid(info.src_addr, info.src_port_range) &&
           isValid(info.dest_addr, info.dest_port_range) && kLevels.contain(info.first_level) &&
           kLevels.contain(info.second_level) && wire::kProtocols.contain(info.protocol) &&
           wire::kAppTypes.contain(info.app_type) && kOods.contain(info.ood);
}

}  // namespace

ClientInStep::Step ClientInStep::makeAddFilter() {
    // Mostly one that is taken.
    const SdfAddFilterInfo info = mInput->flag() ? makeFlow() : makePlainFlow();
    const SdfFilterStatusCb cb = oneOf(app::onAdded, app::onOtherAdded);
    const bool extra = mInput->flag();
    const uint8_t value = mInput->byte();
    const wire::Request request =
        wire::addFilterRequest(info, extra ? std::optional(value) : std::nullopt);
    return {extra ? "sdfAddFilterV2" : "sdfAddFilter",
            [=] { return extra ? sdfAddFilterV2(info, value, cb) : sdfAddFilter(info, cb); },
            [=](ClientModel& model) { return model.addFilter(isValid(info), request, cb); }};
}

ClientInStep::Step ClientInStep::makeRequest(unsigned int which) {
    const auto slot = [this] {
        return mInput->around(SDF_SLOT_ID_UNSPECIFIED, SDF_SLOT_ID_SECOND);
    };
    const auto level = [this] { return mInput->around(SDF_LATENCY_LVL_1, SDF_LATENCY_LVL_6); };
    const auto ood = [this] {
        return mInput->around(SDF_OOD_UNSPECIFIED_LVL, SDF_OOD_DISABLED_LVL);
    };
    switch (which) {
        case 0: {
            const auto of = slot();
            const auto first = level();
            const auto second = level();
            const bool flag = mInput->flag();
            const SdfEffectiveLevelsCb cb = oneOf(app::onLevels, app::onOtherLevels);
            const bool valid =
                kSlots.contain(of) && kLevels.contain(first) && kLevels.contain(second);
            const wire::Request request{
                SdfProto::SET_LATENCY_LEVEL, Data::kSetLatencyLevel,
                bodyOf({kSlots.encode(of), kLevels.encode(first), kLevels.encode(second), flag})};
            return {"sdfSetLatencyLvl",
                    [=] { return sdfSetLatencyLvl(of, first, second, flag, cb); },
                    [=](ClientModel& model) { return model.setLatency(valid, request, cb); }};
        }
        case 1: {
            const unsigned int id = anyId();
            const auto first = level();
            const auto second = level();
            const bool valid = kLevels.contain(first) && kLevels.contain(second);
            const wire::Request request{
                SdfProto::UPDATE_LATENCY_LEVEL, Data::kUpdateLatencyLevel,
                bodyOf({id, kLevels.encode(first), kLevels.encode(second)})};
            return {"sdfUpdateLatencyLvl", [=] { return sdfUpdateLatencyLvl(id, first, second); },
                    [=](ClientModel& model) { return model.requestOf(id, valid, request); }};
        }
        case 2: {
            const unsigned int id = anyId();
            const auto value = ood();
            const wire::Request request{SdfProto::UPDATE_OOD, Data::kUpdateOod,
                                        bodyOf({id, kOods.encode(value)})};
            return {"sdfUpdateOod", [=] { return sdfUpdateOod(id, value); },
                    [=](ClientModel& model) {
                        return model.requestOf(id, kOods.contain(value), request);
                    }};
        }
        case 3: {
            const unsigned int id = anyId();
            const auto timer = mInput->number<unsigned int>();
            const wire::Request request{SdfProto::UPDATE_PDCP_TIMER, Data::kUpdatePdcpTimer,
                                        bodyOf({id, timer})};
            return {"sdfUpdatePdcpTimer", [=] { return sdfUpdatePdcpTimer(id, timer); },
                    [=](ClientModel& model) { return model.requestOf(id, true, request); }};
        }
        case 4: {
            const unsigned int id = anyId();
            const auto dscp = mInput->number<unsigned int>();
            const wire::Request request{SdfProto::UPDATE_TARGET_DSCP, Data::kUpdateTargetDscp,
                                        bodyOf({id, dscp})};
            return {"sdfUpdateTargetDscp", [=] { return sdfUpdateTargetDscp(id, dscp); },
                    [=](ClientModel& model) { return model.requestOf(id, true, request); }};
        }
        case 5: {
            const auto value = ood();
            const wire::Request request{SdfProto::UPDATE_DDS_OOD, Data::kUpdateDdsOod,
                                        bodyOf({kOods.encode(value)})};
            return {
                "sdfUpdateDdsOod", [=] { return sdfUpdateDdsOod(value); },
                [=](ClientModel& model) { return model.request(kOods.contain(value), request); }};
        }
        case 6: {
            const auto timer = mInput->number<unsigned int>();
            const wire::Request request{SdfProto::UPDATE_DDS_PDCP_TIMER, Data::kUpdateDdsPdcpTimer,
                                        bodyOf({timer})};
            return {"sdfUpdateDdsPdcpTimer", [=] { return sdfUpdateDdsPdcpTimer(timer); },
                    [=](ClientModel& model) { return model.request(true, request); }};
        }
        case 7: {
            const bool enable = mInput->flag();
            const wire::Request request{SdfProto::EN_HIGH_PERF_GAMING, Data::kEnHighPerfGaming,
                                        bodyOf({enable})};
            return {"sdfEnHighPerfGaming", [=] { return sdfEnHighPerfGaming(enable); },
                    [=](ClientModel& model) { return model.request(true, request); }};
        }
        case 8: {
            const auto of = slot();
            const bool enable = mInput->flag();
            const wire::Request request{SdfProto::PRIORITIZE_DATA, Data::kPrioritizeData,
                                        bodyOf({kSlots.encode(of), enable})};
            return {"sdfPrioritizeData", [=] { return sdfPrioritizeData(of, enable); },
                    [=](ClientModel& model) { return model.request(kSlots.contain(of), request); }};
        }
        case 9: {
            const bool enable = mInput->flag();
            const wire::Request request{SdfProto::PRIORITIZE_DDS, Data::kPrioritizeDds,
                                        bodyOf({enable})};
            return {"sdfPrioritizeDds", [=] { return sdfPrioritizeDds(enable); },
                    [=](ClientModel& model) { return model.request(true, request); }};
        }
        case 10: {
            const bool enable = mInput->flag();
            const auto value = mInput->number<unsigned int>();
            const SdfPriorityQueueReportCb cb = oneOf(app::onReports, app::onOtherReports);
            const wire::Request request{SdfProto::REG_PRIORITY_QUEUE_REPORTS,
                                        Data::kRegPriorityQueueReports, bodyOf({enable, value})};
            return {"sdfRegPriorityQueueReports",
                    [=] { return sdfRegPriorityQueueReports(enable, value, cb); },
                    [=](ClientModel& model) {
                        return model.registration(&Client::reports, cb, request);
                    }};
        }
        case 11: {
            const SdfPriorityQueueReportCb cb = oneOf(app::onReport, app::onOtherReport);
            const wire::Request request{SdfProto::GET_PRIORITY_QUEUE_REPORT};
            return {"sdfGetPriorityQueueReport", [=] { return sdfGetPriorityQueueReport(cb); },
                    [=](ClientModel& model) {
                        return model.registration(&Client::getReport, cb, request);
                    }};
        }
        case 12: {
            const SdfAutoFilterInfoCb cb = oneOf(app::onAuto, app::onOtherAuto);
            const wire::Request request{SdfProto::REG_AUTO_FILTER_INFO_IND};
            return {"sdfRegAutoFilterInfo", [=] { return sdfRegAutoFilterInfo(cb); },
                    [=](ClientModel& model) {
                        return model.registration(&Client::autoFilter, cb, request);
                    }};
        }
        case 13: {
            const SdfFilterStatusCb cb = oneOf(app::onFilterStatus, app::onOtherFilterStatus);
            const wire::Request request{SdfProto::REG_FILTER_STATUS, Data::kRegFilterStatus,
                                        bodyOf({1})};
            return {"sdfRegFilterStatus", [=] { return sdfRegFilterStatus(cb); },
                    [=](ClientModel& model) {
                        return model.registration(&Client::filterStatus, cb, request);
                    }};
        }
        case 14: {
            const SdfGetFiltersCb cb = oneOf(app::onFilter, app::onOtherFilter);
            const wire::Request request{SdfProto::GET_FILTERS};
            return {"sdfGetFilters", [=] { return sdfGetFilters(cb); },
                    [=](ClientModel& model) {
                        return model.registration(&Client::getFilters, cb, request);
                    }};
        }
        case kDeleteFilter: {
            const unsigned int id = anyId();
            return {"sdfDeleteFilter", [=] { return sdfDeleteFilter(id); },
                    [=](ClientModel& model) { return model.deleteFilter(id); }};
        }
        case kDeleteAllFilter:
            return {"sdfDeleteAllFilter", [] { return sdfDeleteAllFilter(); },
                    [](ClientModel& model) { return model.deleteAllFilters(); }};
        default: return makeAddFilter();
    }
}

void ClientInStep::startUpWithAll() {
    // Without decisions: valid arguments.
    Input none(nullptr, 0);
    Input* const before = std::exchange(mInput, &none);
    constexpr unsigned int kCreate = 0;
    constexpr unsigned int kEnable = 2;
    run(makeLifecycle(kCreate));
    run(makeLifecycle(kEnable));
    message(fromHex(service::statusInd("06")));
    run(makeAddFilter());
    const unsigned int id = Sdf::mInstance->mFilterCbs.begin()->first;
    SdfProto::ClientMsg added;
    added.set_event_id(SdfProto::ADD_FILTER_CB);
    added.mutable_data()->mutable_add_filter_cb()->mutable_filter()->set_filter_id(id);
    message(encode(added));
    for (unsigned int which = 0; which < kRequestKinds; ++which) {
        if (which != kDeleteFilter && which != kDeleteAllFilter) run(makeRequest(which));
    }
    mInput = before;
}

void ClientInStep::run(Step step) {
    mPath.clear();
    runLibrary(step);
    mPath.clear();
    runModel(step);
    compareRequests();
    compareRecords();
}

void ClientInStep::runLibrary(Step& step) {
    ++mSteps;
    Step* const outer = std::exchange(mStep, &step);
    step.result = step.library();
    mStep = outer;
}

void ClientInStep::onCalled(const std::string& text) {
    mStep->seen.push_back({text, {}});
    if (mDepth == kMostDepth) return;
    // What is done inside grows by itself, but the vector that it is in does not until it is done.
    Seen& seen = mStep->seen.back();
    ++mDepth;
    for (unsigned int left = mInput->rarely(4) ? 1 + mInput->pick(3) : 0; left > 0 && canGoOn();
         --left) {
        seen.inside.push_back(makeStep());
        runLibrary(seen.inside.back());
    }
    --mDepth;
}

void ClientInStep::runModel(Step& step) {
    Step* const outer = std::exchange(mStep, &step);
    const size_t outerNext = std::exchange(mNextSeen, 0);
    const std::string outerPath = mPath;
    mPath += " > " + step.name;
    const long long expected = step.model(mModel);
    if (expected != step.result) {
        disagree("returned " + std::to_string(step.result) + " and not " +
                 std::to_string(expected));
    }
    if (mNextSeen != step.seen.size()) disagree("called " + step.seen[mNextSeen].text + " as well");
    mPath = outerPath;
    mNextSeen = outerNext;
    mStep = outer;
}

void ClientInStep::called(const std::string& text) {
    if (mNextSeen == mStep->seen.size()) disagree("did not call " + text);
    Seen& seen = mStep->seen[mNextSeen++];
    if (seen.text != text) disagree("called " + seen.text + " and not " + text);
    const std::string outerPath = mPath;
    mPath += " > " + text;
    for (Step& inside : seen.inside) runModel(inside);
    mPath = outerPath;
}

namespace {

std::string textOf(const std::string& text) {
    return text;
}

std::string textOf(unsigned int number) {
    return std::to_string(number);
}

template <typename... Arguments>
std::string textOf(void (*cb)(Arguments...)) {
    return nameOf(cb);
}

template <typename Callback>
std::string textOf(const std::pair<const unsigned int, Callback>& entry) {
    return textOf(entry.first) + "=" + textOf(entry.second);
}

template <typename List>
auto textOf(const List& list) -> decltype(list.begin(), std::string()) {
    std::string text;
    for (const auto& element : list) text += (text.empty() ? "" : ", ") + textOf(element);
    return "[" + text + "]";
}

}  // namespace

void ClientInStep::compareRequests() {
    const std::vector<std::string> posted = transport()->takeText();
    const std::vector<std::string> expected = std::exchange(mExpected, {});
    if (posted != expected) disagree("posted " + textOf(posted) + " and not " + textOf(expected));
}

void ClientInStep::compareRecords() const {
    const ClientState state;
    const Client* const model = mModel.current();
    std::string all;
    const auto compare = [&all](const char* name, const auto& mine, const auto& theirs) {
        if (mine == theirs) return;
        all += (all.empty() ? "" : ", ") + std::string(name) + " " + textOf(mine) + " and not " +
               textOf(theirs);
    };
    compare("client", state.instance != nullptr, model != nullptr);
    if (state.instance && model != nullptr) {
        compare("v2", state.v2, model->v2);
        compare("legacy", state.legacy, model->legacy);
        compare("transport", state.transport != nullptr, model->transport);
        compare("usedIds", state.usedIds, model->usedIds);
        compare("filterIds", state.filterIds, model->filterIds);
        compare("filterStatus", state.filterStatus, model->filterStatus);
        compare("getFilters", state.getFilters, model->getFilters);
        compare("reports", state.reports, model->reports);
        compare("getReport", state.getReport, model->getReport);
        compare("autoFilter", state.autoFilter, model->autoFilter);
        compare("latencyCbs", state.latencyCbs, model->latencyCbs);
        compare("filterCbs", state.filterCbs, model->filterCbs);
        compare("serviceUp", state.serviceUp, model->up);
    }
    if (!all.empty()) disagree("records " + all);
}

void ClientInStep::disagree(const std::string& what) const {
    fail("step " + std::to_string(mSteps) + mPath + ": the library " + what);
}
