// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <string>

#include "platform/linux/src/KernelLink.h"
#include "platform/linux/src/Link.h"
#include "platform/linux/src/ServiceManagerProxy.h"

// Service names as the platform's service manager keeps them, over the kernel's driver.
class KernelRegistry final : public ServiceRegistry {
  public:
    explicit KernelRegistry(const std::string& device)
        : mLink(std::make_shared<KernelLink>(device)), mManager(mLink, device) {}

    const std::shared_ptr<KernelLink>& link() const { return mLink; }

    // Refuses with what the service manager answers, with EX_TRANSACTION_FAILED when there is none,
    // and with EX_UNSUPPORTED_OPERATION, which none answers, when there is no driver.
    binder_exception_t add(LocalBinder& object, const std::string& name) override;
    BinderRef find(const std::string& name) override;
    // Returns null only if the service manager refuses, or is missing. May throw std::bad_alloc.
    BinderRef waitFor(const std::string& name) override;
    ndk::ScopedAStatus mayFind(const std::string& name) override;
    void startThreadPool() override { mLink->startThreadPool(); }

  private:
    const std::shared_ptr<KernelLink> mLink;
    ServiceManagerProxy mManager;
};
