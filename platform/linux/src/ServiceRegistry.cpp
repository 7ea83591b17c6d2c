// SPDX-License-Identifier: Apache-2.0
#include <lum/service_manager.h>

#include "platform/linux/src/KernelRegistry.h"
#include "platform/linux/src/Link.h"
#include "platform/linux/src/LocalRegistry.h"

ServiceRegistry& ServiceRegistry::instance() {
    const char* const device = LumServiceManager_device();
    static ServiceRegistry& sRegistry = *device == '\0'
                                            ? static_cast<ServiceRegistry&>(*new LocalRegistry())
                                            : *new KernelRegistry(device);
    return sRegistry;
}
