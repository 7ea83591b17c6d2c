// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>

#include "platform/linux/src/Link.h"
#include "platform/linux/src/LocalLink.h"

class ServiceListener;

// Service names as files of one folder. A name is a socket, to which clients connect, and a lock
// file beside it, locked for as long as the serving process lives: the kernel unlocks it however
// the process ends. A socket whose name is not locked is a dead process's and is replaced.
//
// The folder is $LUM_BINDER_DIR, or else lum-binder in $XDG_RUNTIME_DIR, or else
// /tmp/lum-binder-<uid>. It is made when missing, and refused unless it belongs to this user and is
// closed to all others.
class LocalRegistry final : public ServiceRegistry {
  public:
    // Refuses with EX_ILLEGAL_ARGUMENT a name that is too long for a socket, with
    // EX_SECURITY a folder that is not safe, with EX_ILLEGAL_STATE a name that another process
    // serves, and whenever the system refuses something. A name of this process gets a new object,
    // for those who connect from then on.
    binder_exception_t add(LocalBinder& object, const std::string& name) override;

    // Keeps the connection to each service, and uses it again for as long as it lives.
    BinderRef find(const std::string& name) override;

  private:
    static std::shared_ptr<LocalLink> connect(const std::string& name);

    std::mutex mLock;
    std::unordered_map<std::string, std::shared_ptr<ServiceListener>> mServed;
    std::unordered_map<std::string, std::weak_ptr<LocalLink>> mConnections;
};
