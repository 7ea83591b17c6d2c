// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <aidl/vendor/orn/data/lumservice/BnLumService.h>

#include <functional>
#include <memory>
#include <vector>

#include "tools/emulator/ClientTable.h"
#include "tools/emulator/MessageLog.h"
#include "tools/emulator/ServiceLogic.h"
#include "tools/emulator/ServiceThread.h"

// The binder object that clients call. The binder runtime calls it on pool threads, several at
// once; ServiceLogic does the work on one thread, and each call waits for its end.
class BinderService : public aidl::vendor::orn::data::lumservice::BnLumService {
  public:
    using Callback = aidl::vendor::orn::data::lumservice::ILumServiceCallback;
    using LumSdkType = aidl::vendor::orn::data::lumservice::LumSdkType;

    // clients: lives as long as the process.
    BinderService(ServiceLogic::Config config, ClientTable& clients,
                  std::shared_ptr<MessageLog> log);

    // Keeps the callback object until its client leaves or dies. callback: null, as the generated
    // code hands it over for a null reference and for an object of another interface, is refused
    // with EX_NULL_POINTER.
    ndk::ScopedAStatus registerBlobCallback(const std::shared_ptr<Callback>& callback) override;

    // Carries out one request; its answers are sent, with the type it came with, before this
    // returns. Refuses what is not a request, or carries the body of another one, with
    // EX_ILLEGAL_ARGUMENT. Requests of kinds it does not know are accepted and not answered.
    ndk::ScopedAStatus sendBlob(LumSdkType type, const std::vector<uint8_t>& blob) override;

    // Writes what is kept to fd, as asText() makes it, or with the argument --json as one object on
    // one line. Says so when there are other arguments, and writes nothing else.
    // Returns STATUS_OK; STATUS_TIMED_OUT if the reader stops reading; or another error.
    binder_status_t dump(int fd, const char** args, uint32_t numArgs) override;

    // Has somebody look at what is kept, on the thread that does the work, when it gets to that.
    // look: must not throw; is dropped once the work has ended. Any thread.
    void inspect(std::function<void(const ServiceLogic&)> look);

    // Ends the work: what clients ask for from now on fails. To be called before the end of the
    // process, which takes away what the work needs.
    void stop();

  private:
    struct Work;

    const std::shared_ptr<Work> mWork;  // death notifications may outlive this object
};
