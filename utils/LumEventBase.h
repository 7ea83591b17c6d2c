// SPDX-License-Identifier: Apache-2.0
#pragma once

// Base of what typed event queues carry.
class LumEventBase {
  public:
    virtual ~LumEventBase() = default;

    // Whether the event may be posted and handled on different threads. Nothing consults it yet.
    virtual bool isMultiThreadEvent() { return true; }
};

namespace lum::utils {
using ::LumEventBase;
}  // namespace lum::utils
