// SPDX-License-Identifier: Apache-2.0
#include "tools/emulator/ServiceLogic.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <functional>
#include <nlohmann/json.hpp>
#include <utility>

#include "tools/emulator/RuleWords.h"

namespace {

using Json = nlohmann::ordered_json;
using aidl::vendor::orn::data::lumservice::LumSdkType;

std::string withPid(const std::string& what, pid_t pid) {
    return what + " pid=" + std::to_string(pid);
}

// The name that a process was started under, without its directories; null if it is not known. It
// may be any bytes: what is no plain character is shown as a question mark.
Json nameOfProcess(pid_t pid) {
    std::ifstream file("/proc/" + std::to_string(pid) + "/cmdline");
    std::string name;
    if (!std::getline(file, name, '\0')) return nullptr;
    name.erase(0, name.rfind('/') + 1);
    const auto isPlain = [](char c) { return c >= ' ' && c <= '~'; };
    std::replace_if(name.begin(), name.end(), std::not_fn(isPlain), '?');
    return name;
}

std::string nameOf(SdfProto::ServiceEventId event) {
    const std::string& name = SdfProto::ServiceEventId_Name(event);
    return name.empty() ? "event " + std::to_string(event) : name;
}

// A message that has been sent, in short.
std::string whatOf(const std::vector<uint8_t>& bytes) {
    std::string size = std::to_string(bytes.size()) + " bytes";
    SdfProto::ClientMsg message;
    if (!message.ParseFromArray(bytes.data(), static_cast<int>(bytes.size()))) return size;
    const std::string& name = SdfProto::ClientEventId_Name(message.event_id());
    return name.empty() ? size : name + " of " + size;
}

std::string whyNotDelivered(const ndk::ScopedAStatus& status) {
    std::string why = status.getDescription();
    if (status.getStatus() != STATUS_FAILED_TRANSACTION) return why;
    return "too much; all that is on its way to a client may have 512 KiB (" + why + ")";
}

// Returns what is wrong with a request that has been read; empty if nothing is. handler: of its
// kind, null for an unknown one.
std::string wrongBody(const SdfProto::ServiceMsg& request, const RequestHandler* handler) {
    if (handler == nullptr || request.data().msg_type_case() == handler->body) return "";
    const bool wanted = handler->body != SdfProto::ServiceData::MSG_TYPE_NOT_SET;
    return nameOf(request.event_id()) + (wanted ? " without its body" : " with a body");
}

bool isDisable(const SdfProto::ServiceMsg& request) {
    return request.event_id() == SdfProto::ENABLE && !request.data().enable_msg().enable();
}

ndk::ScopedAStatus refusedByRule() {
    return ndk::ScopedAStatus::fromExceptionCodeWithMessage(EX_ILLEGAL_STATE, "refused by a rule");
}

}  // namespace

ServiceLogic::ServiceLogic(Config config, ClientTable& clients, Timeline& timeline,
                           std::shared_ptr<MessageLog> log)
    : mConfig(std::move(config)),
      mClients(clients),
      mTimeline(timeline),
      mLog(std::move(log)),
      mRules(mConfig.rules) {}

ndk::ScopedAStatus ServiceLogic::admit(const Caller& caller,
                                       const std::shared_ptr<Client::Callback>& callback) {
    if (callback == nullptr) {
        constexpr char kWrong[] = "no callback object";
        mLog->notice(withPid("refused a registration,", caller.pid) + ": " + kWrong);
        return ndk::ScopedAStatus::fromExceptionCodeWithMessage(EX_NULL_POINTER, kWrong);
    }
    const Reaction reaction = reactionTo(caller, "register");
    if (reaction.diesBefore()) mConfig.die();
    if (reaction.refuses()) return refusedByRule();
    // Before the client is in the table, where it can die.
    mLog->client(withPid("registered", caller.pid) + " uid=" + std::to_string(caller.uid));
    const auto client = mClients.add({caller.pid, caller.uid, callback});
    if (client == nullptr) {
        mLog->client(withPid("died", caller.pid));
        return ndk::ScopedAStatus::fromStatus(STATUS_DEAD_OBJECT);
    }
    // A registration does not say which feature it is for.
    sendAll(client, static_cast<int32_t>(LumSdkType::SDF), reaction.messages({}, 0));
    if (reaction.diesAfter()) mConfig.die();
    return ndk::ScopedAStatus::ok();
}

ndk::ScopedAStatus ServiceLogic::take(const Caller& caller, int32_t type,
                                      const std::vector<uint8_t>& blob) {
    mLog->message({Direction::kReceived, caller.pid, caller.uid, type, blob});
    SdfProto::ServiceMsg request;
    const RequestHandler* handler = nullptr;
    std::string wrong;
    if (request.ParseFromArray(blob.data(), static_cast<int>(blob.size()))) {
        handler = findHandler(request.event_id());
        wrong = wrongBody(request, handler);
    } else {
        wrong = std::to_string(blob.size()) + " bytes that are no ServiceMsg";
    }
    if (wrong.empty()) return carryOut(caller, type, request, handler);
    mClients.speaker(caller.pid, type);
    mLog->notice(withPid("refused a message,", caller.pid) + ": " + wrong);
    return ndk::ScopedAStatus::fromExceptionCodeWithMessage(EX_ILLEGAL_ARGUMENT, wrong.c_str());
}

void ServiceLogic::died(const Client& client) {
    mLog->client(withPid("died", client.pid));
    forget(&client);
}

size_t ServiceLogic::filters() const {
    size_t count = 0;
    for (const auto& [key, place] : mPlaces) count += place.state->filters().all().size();
    return count;
}

Json ServiceLogic::describe() const {
    Json clients = Json::array();
    for (const ClientTable::ClientPtr& client : mClients.all()) {
        Json features = Json::array();
        for (auto place = mPlaces.lower_bound({client.get(), INT32_MIN});
             place != mPlaces.end() && place->first.first == client.get(); ++place) {
            Json feature{{"type", place->first.second}};
            feature.update(place->second.state->describe());
            features.push_back(std::move(feature));
        }
        clients.push_back({
            {"pid", client->pid},
            {"uid", client->uid},
            {"name", nameOfProcess(client->pid)},
            {"features", std::move(features)},
        });
    }
    return {{"pid", getpid()}, {"clients", std::move(clients)}};
}

ndk::ScopedAStatus ServiceLogic::carryOut(const Caller& caller, int32_t type,
                                          const SdfProto::ServiceMsg& request,
                                          const RequestHandler* handler) {
    const Reaction reaction = reactionTo(caller, kindOf(request));
    if (reaction.diesBefore()) mConfig.die();
    const Answered answered = reaction.refuses() ? Answered{mClients.speaker(caller.pid, type), {}}
                                                 : answer(caller, type, request, handler);
    if (answered.client != nullptr) {
        sendAll(answered.client, type, reaction.messages(answered.answers, request.unique_id()));
    }
    if (reaction.diesAfter()) mConfig.die();
    return reaction.refuses() ? refusedByRule() : ndk::ScopedAStatus::ok();
}

ServiceLogic::Answered ServiceLogic::answer(const Caller& caller, int32_t type,
                                            const SdfProto::ServiceMsg& request,
                                            const RequestHandler* handler) {
    if (handler != nullptr && isDisable(request)) return {leave(caller, type), {}};
    ClientTable::ClientPtr client = mClients.speaker(caller.pid, type);
    if (handler == nullptr) {
        mLog->notice(withPid("ignored a request,", caller.pid) + ": " + nameOf(request.event_id()) +
                     " is not known here");
        return {client, {}};
    }
    if (client == nullptr) {
        mLog->notice(withPid("no callback registered,", caller.pid) + ": " +
                     nameOf(request.event_id()) + " is not answered");
        return {nullptr, {}};
    }
    Answers answers = handler->handle(stateOf(client, type), request);
    return {std::move(client), std::move(answers)};
}

ClientTable::ClientPtr ServiceLogic::leave(const Caller& caller, int32_t type) {
    const ClientTable::Leaver leaver = mClients.leave(caller.pid, type);
    if (leaver.client == nullptr) return nullptr;
    if (leaver.goes) {
        mLog->client(withPid("left", caller.pid));
        forget(leaver.client.get());
    } else {
        mPlaces.erase({leaver.client.get(), type});
    }
    return leaver.client;
}

Reaction ServiceLogic::reactionTo(const Caller& caller, const std::string& kind) {
    std::vector<const Rule*> rules = mRules.apply(kind);
    for (const Rule* const rule : rules) {
        mLog->client(withPid("rule", caller.pid) + " " + kind + ": " + rule->text);
    }
    return Reaction(std::move(rules));
}

FeatureState& ServiceLogic::stateOf(const ClientTable::ClientPtr& client, int32_t type) {
    Place& place = mPlaces[{client.get(), type}];
    if (place.state != nullptr) return *place.state;
    place.client = client;
    const auto sendNow = [this, who = client.get(), type](const SdfProto::ClientMsg& message) {
        (void)send(*who, type, Outgoing(message).bytes());
    };
    const auto notice = [this, pid = client->pid](const std::string& text) {
        mLog->notice(withPid("a request changes nothing,", pid) + ": " + text);
    };
    place.state = std::make_unique<FeatureState>(
        client->uid, FeatureState::Surroundings{mConfig.policy, mTimeline, sendNow, notice});
    return *place.state;
}

void ServiceLogic::forget(const Client* client) {
    const auto first = mPlaces.lower_bound({client, INT32_MIN});
    const auto last = mPlaces.upper_bound({client, INT32_MAX});
    mPlaces.erase(first, last);
}

void ServiceLogic::sendAll(const ClientTable::ClientPtr& client, int32_t type,
                           const std::vector<Outgoing>& messages) {
    std::map<std::chrono::milliseconds, Blobs> byDelay;
    for (const Outgoing& message : messages) byDelay[message.delay].push_back(message.bytes());
    for (auto& [delay, blobs] : byDelay) {
        if (delay.count() == 0) {
            sendUntilRefused(*client, type, blobs);
            continue;
        }
        const std::weak_ptr<const Client> later = client;
        mTimeline.after(delay, [this, later, type, blobs = std::move(blobs)] {
            // It may have left or died meanwhile.
            const ClientTable::ClientPtr still = later.lock();
            if (still != nullptr) sendUntilRefused(*still, type, blobs);
        });
    }
}

void ServiceLogic::sendUntilRefused(const Client& client, int32_t type, const Blobs& blobs) {
    for (const std::vector<uint8_t>& bytes : blobs) {
        // What one message could not reach, the next will not.
        if (!send(client, type, bytes)) return;
    }
}

bool ServiceLogic::send(const Client& client, int32_t type, const std::vector<uint8_t>& bytes) {
    // First, so that what a client does upon a message is printed after it.
    mLog->message({Direction::kSent, client.pid, client.uid, type, bytes});
    const ndk::ScopedAStatus status =
        client.callback->sendBlob(static_cast<LumSdkType>(type), bytes);
    if (!status.isOk()) {
        mLog->notice(withPid("not delivered,", client.pid) + ": " + whatOf(bytes) + ": " +
                     whyNotDelivered(status));
    }
    return status.isOk();
}
