// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>

#include "platform/linux/src/Link.h"
#include "platform/linux/src/RemoteBinder.h"

// A link over which nothing is called.
class NoLink final : public Link {
    binder_status_t transact(uint32_t /*handle*/, transaction_code_t /*code*/,
                             const AParcel& /*in*/, binder_flags_t /*flags*/,
                             std::unique_ptr<AParcel>* /*out*/) override {
        return STATUS_INVALID_OPERATION;
    }
    void releaseProxy(RemoteBinder& /*proxy*/) noexcept override {}
    bool isAlive() override { return true; }
    binder_status_t watchDeath(uint32_t /*handle*/,
                               std::unique_ptr<LateCommand>* /*late*/) override {
        return STATUS_INVALID_OPERATION;
    }
    void unwatchDeath(uint32_t /*handle*/) noexcept override {}
};
