// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/src/KernelRegistry.h"

// That there is no driver is logged already, when it is opened.

binder_exception_t KernelRegistry::add(LocalBinder& object, const std::string& name) {
    return mLink->isOpen() ? mManager.add(object, name).getExceptionCode()
                           : EX_UNSUPPORTED_OPERATION;
}

BinderRef KernelRegistry::find(const std::string& name) {
    BinderRef found;
    if (mLink->isOpen()) mManager.find(name, &found);
    return found;
}

BinderRef KernelRegistry::waitFor(const std::string& name) {
    return mLink->isOpen() ? mManager.waitFor(name) : nullptr;
}

ndk::ScopedAStatus KernelRegistry::mayFind(const std::string& name) {
    return mLink->isOpen() ? mManager.mayFind(name)
                           : ndk::ScopedAStatus::fromExceptionCode(EX_UNSUPPORTED_OPERATION);
}
