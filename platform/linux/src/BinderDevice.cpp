// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/src/BinderDevice.h"

#include <linux/android/binder.h>

#include <cstdlib>

const std::string& binderDevice() {
    static const auto* const sDevice = [] {
        const char* const device = getenv("LUM_BINDER");
        return new std::string(device == nullptr ? "" : device);
    }();
    return *sDevice;
}

uint32_t partitionAt(const std::string& device) {
    const std::string name = device.substr(device.rfind('/') + 1);
    return name.empty() || name == "vndbinder" ? B_PACK_CHARS('V', 'N', 'D', 'R')
                                               : B_PACK_CHARS('S', 'Y', 'S', 'T');
}

uint32_t binderPartition() {
    static const uint32_t sPartition = partitionAt(binderDevice());
    return sPartition;
}
