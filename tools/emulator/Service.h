// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <aidl/vendor/orn/data/lumservice/BnLumService.h>

#include <memory>
#include <vector>

#include "tools/emulator/ClientTable.h"
#include "tools/emulator/MessageLog.h"
#include "tools/emulator/RequestHandlers.h"

// The data service itself: takes registrations and requests, and sends the answers. The binder
// runtime calls it on threads of its pool, several at once.
class Service : public aidl::vendor::orn::data::lumservice::BnLumService {
  public:
    using Callback = aidl::vendor::orn::data::lumservice::ILumServiceCallback;
    using LumSdkType = aidl::vendor::orn::data::lumservice::LumSdkType;

    // clients, log: used as long as this object lives; clients lives as long as the process.
    Service(ClientTable& clients, std::shared_ptr<MessageLog> log);

    // Keeps the callback object until its client leaves or dies. callback: not null; the glue lets
    // no null through, and no object of another interface.
    ndk::ScopedAStatus registerBlobCallback(const std::shared_ptr<Callback>& callback) override;

    // Carries out one request; its answers are sent, with the type it came with, before this
    // returns. Refuses what is not a request, or carries the body of another one, with
    // EX_ILLEGAL_ARGUMENT. Requests of kinds it does not know are accepted and not answered.
    ndk::ScopedAStatus sendBlob(LumSdkType type, const std::vector<uint8_t>& blob) override;

  private:
    // Returns what is wrong with a request, for the user; empty if nothing is. Sets *handler to
    // null if the request is of an unknown kind.
    static std::string check(const std::vector<uint8_t>& blob, SdfProto::ServiceMsg* request,
                             const RequestHandler** handler);
    void carryOut(const RequestHandler& handler, const SdfProto::ServiceMsg& request, pid_t pid,
                  LumSdkType type);
    void send(const Client& client, LumSdkType type, const SdfProto::ClientMsg& answer);

    ClientTable& mClients;
    const std::shared_ptr<MessageLog> mLog;
};
