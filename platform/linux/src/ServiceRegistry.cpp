// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/src/BinderDevice.h"
#include "platform/linux/src/KernelRegistry.h"
#include "platform/linux/src/Link.h"
#include "platform/linux/src/LocalRegistry.h"

ServiceRegistry& ServiceRegistry::instance() {
    static ServiceRegistry& sRegistry = binderDevice().empty()
                                            ? static_cast<ServiceRegistry&>(*new LocalRegistry())
                                            : *new KernelRegistry(binderDevice());
    return sRegistry;
}
