// SPDX-License-Identifier: Apache-2.0
#include <android/binder_auto_utils.h>
#include <android/binder_manager.h>
#include <lum/service_manager.h>

#include <string>

#include "platform/linux/src/Binder.h"
#include "platform/linux/src/CallOut.h"
#include "platform/linux/src/LateCommand.h"
#include "platform/linux/src/Link.h"
#include "platform/linux/src/ServiceName.h"
#include "utils/Log.h"

binder_exception_t AServiceManager_addService(AIBinder* binder, const char* instance) {
    if (binder == nullptr || instance == nullptr) return EX_ILLEGAL_ARGUMENT;
    LocalBinder* const local = binder->asLocal();
    if (local == nullptr) {
        LUM_LOGE("binder: %s cannot be served with an object of another process", instance);
        return EX_ILLEGAL_ARGUMENT;
    }
    return withoutThrowing(
        [&]() -> binder_exception_t {
            const std::string name = instance;
            if (!isServiceName(name)) {
                LUM_LOGE("binder: \"%s\" cannot be a service's name", instance);
                return EX_ILLEGAL_ARGUMENT;
            }
            LateCommand::runQueued();
            return ServiceRegistry::instance().add(*local, name);
        },
        EX_TRANSACTION_FAILED);
}

namespace {

// how: the registry's function for it.
AIBinder* lookUp(const char* instance, BinderRef (ServiceRegistry::*how)(const std::string&)) {
    if (instance == nullptr) return nullptr;
    return withoutThrowing(
        [&]() -> AIBinder* {
            const std::string name = instance;
            if (!isServiceName(name)) return nullptr;
            LateCommand::runQueued();
            return (ServiceRegistry::instance().*how)(name).release();
        },
        nullptr);
}

}  // namespace

AIBinder* AServiceManager_checkService(const char* instance) {
    return lookUp(instance, &ServiceRegistry::find);
}

AIBinder* AServiceManager_waitForService(const char* instance) {
    return lookUp(instance, &ServiceRegistry::waitFor);
}

AStatus* LumServiceManager_mayFind(const char* instance) {
    return withoutThrowing(
        [&]() -> AStatus* {
            const std::string name = instance;
            LateCommand::runQueued();
            return ServiceRegistry::instance().mayFind(name).release();
        },
        nullptr);
}
