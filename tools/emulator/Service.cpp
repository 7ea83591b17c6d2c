// SPDX-License-Identifier: Apache-2.0
#include "tools/emulator/Service.h"

#include <android/binder_ibinder.h>

#include <string>
#include <utility>

namespace {

std::string withPid(const char* what, pid_t pid) {
    return std::string(what) + " pid=" + std::to_string(pid);
}

std::string nameOf(SdfProto::ServiceEventId event) {
    const std::string& name = SdfProto::ServiceEventId_Name(event);
    return name.empty() ? "event " + std::to_string(event) : name;
}

}  // namespace

Service::Service(ClientTable& clients, std::shared_ptr<MessageLog> log)
    : mClients(clients), mLog(std::move(log)) {
    mClients.onDied(
        [log = mLog](const Client& client) { log->client(withPid("died", client.pid)); });
}

ndk::ScopedAStatus Service::registerBlobCallback(const std::shared_ptr<Callback>& callback) {
    const pid_t pid = AIBinder_getCallingPid();
    const uid_t uid = AIBinder_getCallingUid();
    // Before the client is in the table, where it can die.
    mLog->client(withPid("registered", pid) + " uid=" + std::to_string(uid));
    if (mClients.add({pid, uid, callback})) return ndk::ScopedAStatus::ok();
    mLog->client(withPid("died", pid));
    return ndk::ScopedAStatus::fromStatus(STATUS_DEAD_OBJECT);
}

ndk::ScopedAStatus Service::sendBlob(LumSdkType type, const std::vector<uint8_t>& blob) {
    const pid_t pid = AIBinder_getCallingPid();
    const auto typeNumber = static_cast<int32_t>(type);
    mLog->message({Direction::kReceived, pid, AIBinder_getCallingUid(), typeNumber, blob});

    SdfProto::ServiceMsg request;
    const RequestHandler* handler = nullptr;
    const std::string wrong = check(blob, &request, &handler);
    if (!wrong.empty()) {
        mClients.speaker(pid, typeNumber);
        mLog->notice(withPid("refused a message,", pid) + ": " + wrong);
        return ndk::ScopedAStatus::fromExceptionCodeWithMessage(EX_ILLEGAL_ARGUMENT, wrong.c_str());
    }
    if (handler == nullptr) {
        mClients.speaker(pid, typeNumber);
        mLog->notice(withPid("ignored a request,", pid) + ": " + nameOf(request.event_id()) +
                     " is not known here");
        return ndk::ScopedAStatus::ok();
    }
    carryOut(*handler, request, pid, type);
    return ndk::ScopedAStatus::ok();
}

std::string Service::check(const std::vector<uint8_t>& blob, SdfProto::ServiceMsg* request,
                           const RequestHandler** handler) {
    if (!request->ParseFromArray(blob.data(), static_cast<int>(blob.size()))) {
        return std::to_string(blob.size()) + " bytes that are no ServiceMsg";
    }
    *handler = findHandler(request->event_id());
    if (*handler != nullptr && request->data().msg_type_case() != (*handler)->body) {
        return nameOf(request->event_id()) + " without its body";
    }
    return "";
}

void Service::carryOut(const RequestHandler& handler, const SdfProto::ServiceMsg& request,
                       pid_t pid, LumSdkType type) {
    Outcome outcome;
    handler.handle(request, &outcome);
    if (outcome.leaves) {
        if (mClients.leave(pid, static_cast<int32_t>(type)) != nullptr) {
            mLog->client(withPid("left", pid));
        }
        return;
    }
    const ClientTable::ClientPtr client = mClients.speaker(pid, static_cast<int32_t>(type));
    if (client == nullptr) {
        mLog->notice(withPid("no callback registered,", pid) + ": " + nameOf(request.event_id()) +
                     " is not answered");
        return;
    }
    for (const SdfProto::ClientMsg& answer : outcome.answers) send(*client, type, answer);
}

void Service::send(const Client& client, LumSdkType type, const SdfProto::ClientMsg& answer) {
    std::vector<uint8_t> bytes(answer.ByteSizeLong());
    answer.SerializeToArray(bytes.data(), static_cast<int>(bytes.size()));
    // First, so that what a client does upon a message is printed after it.
    mLog->message({Direction::kSent, client.pid, client.uid, static_cast<int32_t>(type), bytes});
    const ndk::ScopedAStatus status = client.callback->sendBlob(type, bytes);
    if (!status.isOk()) {
        mLog->notice(withPid("not delivered,", client.pid) + ": " + status.getDescription());
    }
}
