// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <string>
#include <unordered_map>

#include "platform/linux/src/Link.h"
#include "platform/linux/src/LocalLink.h"
#include "platform/linux/src/ServiceListener.h"
#include "platform/linux/src/SocketDirectory.h"
#include "platform/linux/src/ThreadPool.h"
#include "utils/Mutex.h"

// Service names as links of a directory (SocketDirectory.h). Each add() makes a socket of its own,
// whose name says which object it leads to, and then turns the name to it: a name that another
// process serves is taken over in one step, and whoever does so removes the socket that it led to.
// The other process goes on, with the clients that it has. A name that leads to a dead process's
// socket is as good as free.
class LocalRegistry final : public ServiceRegistry {
  public:
    // Refuses with EX_ILLEGAL_ARGUMENT a directory whose path is too long for a socket, with
    // EX_SECURITY one that is not safe, with EX_ILLEGAL_STATE whenever the system refuses
    // something.
    binder_exception_t add(LocalBinder& object, const std::string& name) override;

    // Keeps the connection to each object, and uses it again for as long as it lives, under
    // whatever name the object is found.
    BinderRef find(const std::string& name) override;
    // Does not wait.
    BinderRef waitFor(const std::string& name) override { return find(name); }

    // Nobody refuses.
    ndk::ScopedAStatus mayFind(const std::string& /*name*/) override {
        return ndk::ScopedAStatus::ok();
    }

    void startThreadPool() override { ThreadPool::instance().start(); }

  private:
    // What this process serves under a name, or did until another process took it.
    struct Served {
        std::string socket;
        std::shared_ptr<ServiceListener> listener;
    };

    BinderRef findOwn(const std::string& name, const std::string& socket) LUM_REQUIRES(mLock);
    std::shared_ptr<LocalLink> reach(const SocketDirectory& directory, const std::string& socket)
        LUM_REQUIRES(mLock);

    lum::utils::Mutex mLock;
    // By name.
    std::unordered_map<std::string, Served> mServed LUM_GUARDED_BY(mLock);
    // By object.
    std::unordered_map<std::string, std::weak_ptr<LocalLink>> mConnections LUM_GUARDED_BY(mLock);
};
