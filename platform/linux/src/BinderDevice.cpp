// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/src/BinderDevice.h"

#include <lum/service_manager.h>

#include <climits>
#include <cstdio>
#include <cstdlib>

namespace {

struct Device {
    // The program may change the environment. A path that is cut off is still too long to be
    // opened.
    char path[PATH_MAX + 1];
    Partition partition;
};

Device readDevice() {
    Device device{};
    const char* const set = getenv("LUM_BINDER");
    if (set != nullptr) snprintf(device.path, sizeof device.path, "%s", set);
    device.partition = partitionAt(device.path);
    return device;
}

const Device& device() {
    static const Device sDevice = readDevice();
    return sDevice;
}

}  // namespace

const char* LumServiceManager_device() {
    return device().path;
}

Partition partitionAt(std::string_view device) {
    constexpr std::string_view kVendors = "vndbinder";
    const bool endsSo = device.size() >= kVendors.size() &&
                        device.substr(device.size() - kVendors.size()) == kVendors;
    return device.empty() || endsSo ? kVendorPartition : kSystemPartition;
}

Partition binderPartition() {
    return device().partition;
}
