// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <string>

#include "platform/linux/src/KernelLink.h"
#include "platform/linux/src/Link.h"

// Service names as the platform's service manager keeps them, the object that every process reaches
// as handle 0.
class KernelRegistry final : public ServiceRegistry {
  public:
    explicit KernelRegistry(const std::string& device)
        : mDevice(device), mLink(std::make_shared<KernelLink>(device)) {}

    const std::shared_ptr<KernelLink>& link() const { return mLink; }

    // Refuses with what the service manager answers, with EX_ILLEGAL_STATE when there is no driver,
    // and with EX_TRANSACTION_FAILED when there is no service manager.
    binder_exception_t add(LocalBinder& object, const std::string& name) override;
    BinderRef find(const std::string& name) override;
    // Returns null only if the service manager refuses, or is missing.
    BinderRef waitFor(const std::string& name) override;
    void startThreadPool() override { mLink->startThreadPool(); }

  private:
    // Calls the service manager, which answers with a status first. name: what the call is about,
    // for the log. reply: set to what follows the status.
    binder_exception_t call(transaction_code_t code, const AParcel& in, const std::string& name,
                            std::unique_ptr<AParcel>* reply);
    // found: set to the object; null if nobody serves the name.
    binder_exception_t find(const std::string& name, BinderRef* found);
    binder_exception_t setNotified(transaction_code_t code, const std::string& name,
                                   AIBinder* callback);

    const std::string mDevice;
    const std::shared_ptr<KernelLink> mLink;
};
