// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/src/BinderDevice.h"

#include <linux/android/binder.h>

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

uint32_t partitionAt(std::string_view device) {
    constexpr std::string_view kVendors = "vndbinder";
    const bool endsSo = device.size() >= kVendors.size() &&
                        device.substr(device.size() - kVendors.size()) == kVendors;
    return device.empty() || endsSo ? B_PACK_CHARS('V', 'N', 'D', 'R')
                                    : B_PACK_CHARS('S', 'Y', 'S', 'T');
}

uint32_t binderPartition() {
    static const uint32_t sPartition = partitionAt(deviceSet());
    return sPartition;
}
