// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <aidl/vendor/orn/data/lumservice/LumSdkType.h>
#include <android/binder_auto_utils.h>

#include <functional>
#include <map>
#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <utility>
#include <vector>

#include "tools/emulator/ClientTable.h"
#include "tools/emulator/FeatureState.h"
#include "tools/emulator/Filters.h"
#include "tools/emulator/MessageLog.h"
#include "tools/emulator/Reaction.h"
#include "tools/emulator/RequestHandlers.h"
#include "tools/emulator/Rule.h"
#include "tools/emulator/Timeline.h"

// Who speaks to the service.
struct Caller {
    pid_t pid;
    uid_t uid;
};

// What the emulated service does: carries out requests by the rules, answers, and acts of its own.
// Keeps a FeatureState for each feature of each client. Belongs to the thread of its timeline, on
// which all is called.
class ServiceLogic {
  public:
    // How the service dies when a rule says so. Does not return.
    using Die = std::function<void()>;

    struct Config {
        Policy policy;
        std::vector<Rule> rules;
        Die die;
    };

    // clients, timeline: used as long as this object lives.
    ServiceLogic(Config config, ClientTable& clients, Timeline& timeline,
                 std::shared_ptr<MessageLog> log);

    // Adds a client. Fails with EX_NULL_POINTER if callback is null.
    ndk::ScopedAStatus admit(const Caller& caller,
                             const std::shared_ptr<Client::Callback>& callback);

    // Carries out one request; what is not late of its answers is sent before this returns, with
    // the type it came with.
    ndk::ScopedAStatus take(const Caller& caller, int32_t type, const std::vector<uint8_t>& blob);

    // A client that is no longer in the table has died: what is kept for it goes.
    void died(const Client& client);

    // How many filters are kept for all clients.
    size_t filters() const;
    // The clients, in order of registration, with all that is kept for each; docs/emulator.md says
    // how. To be shown as it is, or as asText() makes it.
    nlohmann::ordered_json describe() const;

  private:
    // A feature of a client. The place keeps the client alive, so that no other has its address.
    using Key = std::pair<const Client*, int32_t>;

    // Messages as they go over the wire.
    using Blobs = std::vector<std::vector<uint8_t>>;

    struct Place {
        ClientTable::ClientPtr client;
        std::unique_ptr<FeatureState> state;
    };

    struct Answered {
        ClientTable::ClientPtr client;  // null if the process has registered none
        Answers answers;
    };

    ndk::ScopedAStatus carryOut(const Caller& caller, int32_t type,
                                const SdfProto::ServiceMsg& request, const RequestHandler* handler);
    // Carries a request out, by no rules. handler: null for an unknown kind.
    Answered answer(const Caller& caller, int32_t type, const SdfProto::ServiceMsg& request,
                    const RequestHandler* handler);
    ClientTable::ClientPtr leave(const Caller& caller, int32_t type);
    Reaction reactionTo(const Caller& caller, const std::string& kind);
    FeatureState& stateOf(const ClientTable::ClientPtr& client, int32_t type);
    void forget(const Client* client);

    void sendAll(const ClientTable::ClientPtr& client, int32_t type,
                 const std::vector<Outgoing>& messages);
    // Sends in order, as far as they reach the client.
    void sendUntilRefused(const Client& client, int32_t type, const Blobs& blobs);
    bool send(const Client& client, int32_t type, const std::vector<uint8_t>& bytes);

    const Config mConfig;
    ClientTable& mClients;
    Timeline& mTimeline;
    const std::shared_ptr<MessageLog> mLog;
    RuleBook mRules;
    std::map<Key, Place> mPlaces;
};
