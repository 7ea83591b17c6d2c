// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <android/binder_auto_utils.h>

#include <memory>
#include <string>

#include "platform/linux/src/Binder.h"
#include "platform/linux/src/Link.h"

// The platform's service manager, the object that every process reaches as handle 0, as its
// versions 11 to 15 understand calls. Where a status is returned it is what the service manager
// answers, or STATUS_DEAD_OBJECT when there is none; one that is not OK has been logged. Each
// function may throw std::bad_alloc, also when it is the answer that finds no memory.
class ServiceManagerProxy {
  public:
    // device: at which the link reaches it.
    ServiceManagerProxy(std::shared_ptr<Link> link, std::string device)
        : mLink(std::move(link)), mDevice(std::move(device)) {}

    ndk::ScopedAStatus add(LocalBinder& object, const std::string& name);
    // found: set to the object; null if nobody serves the name, or this process may not know.
    ndk::ScopedAStatus find(const std::string& name, BinderRef* found);
    // OK if this process may look the name up, whether or not anybody serves it.
    ndk::ScopedAStatus mayFind(const std::string& name);
    // Waits until somebody serves the name; the service manager starts a service that runs on
    // demand. Returns null only if the service manager refuses, or is missing.
    BinderRef waitFor(const std::string& name);

  private:
    // name: what the call is about, for the log. reply: set to what follows the status.
    ndk::ScopedAStatus call(transaction_code_t code, const AParcel& in, const std::string& name,
                            std::unique_ptr<AParcel>* reply);
    // code: kGetService or kCheckService.
    ndk::ScopedAStatus lookUp(transaction_code_t code, const std::string& name, BinderRef* found);
    // To be called before an object is sent, unless lookUp() was: version 12 takes one only with
    // its own form of the word for stability, which the answer to a look-up shows.
    ndk::ScopedAStatus learnStability(const std::string& name);
    ndk::ScopedAStatus setNotified(transaction_code_t code, const std::string& name,
                                   AIBinder* callback);
    ndk::ScopedAStatus startNotifications(const std::string& name, AIBinder* callback);
    // Keeps what is found already, whatever comes of it.
    void endNotifications(const std::string& name, AIBinder* callback) noexcept;

    const std::shared_ptr<Link> mLink;
    const std::string mDevice;
};
