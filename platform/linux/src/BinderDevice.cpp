// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/src/BinderDevice.h"

#include <cstdlib>
#include <string_view>

namespace {

const char* deviceSet() {
    const char* const device = getenv("LUM_BINDER");
    return device == nullptr ? "" : device;
}

}  // namespace

const std::string& binderDevice() {
    static const auto* const sDevice = new std::string(deviceSet());
    return *sDevice;
}

Partition partitionAt(std::string_view device) {
    constexpr std::string_view kVendors = "vndbinder";
    const bool endsSo = device.size() >= kVendors.size() &&
                        device.substr(device.size() - kVendors.size()) == kVendors;
    return device.empty() || endsSo ? kVendorPartition : kSystemPartition;
}

Partition binderPartition() {
    static const Partition sPartition = partitionAt(deviceSet());
    return sPartition;
}
