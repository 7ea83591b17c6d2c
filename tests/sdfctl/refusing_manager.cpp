// SPDX-License-Identifier: Apache-2.0
//
// sdfctl_refusing_manager: a service manager that lets nobody do anything, as that of a device does
// where the policy has no rule: who looks a name up finds nobody, everything else is refused.
//
// Writes a line when it can be called, and ends with its standard input.

#include <android/binder_auto_utils.h>
#include <android/binder_parcel.h>
#include <lum/service_manager.h>
#include <unistd.h>

#include <cstdio>

#include "platform/linux/src/KernelRegistry.h"
#include "platform/linux/src/ServiceManagerInterface.h"

namespace {

binder_status_t refuse(AIBinder*, transaction_code_t code, const AParcel*, AParcel* out) {
    const bool isLookUp = code == kGetService || code == kCheckService;
    const auto status =
        isLookUp ? ndk::ScopedAStatus::ok()
                 : ndk::ScopedAStatus::fromExceptionCodeWithMessage(EX_SECURITY, "denied");
    const binder_status_t written = AParcel_writeStatusHeader(out, status.get());
    return written == STATUS_OK && isLookUp ? AParcel_writeStrongBinder(out, nullptr) : written;
}

}  // namespace

int main() {
    KernelRegistry registry(LumServiceManager_device());
    AIBinder_Class* const clazz = AIBinder_Class_define(
        kServiceManager, [](void* data) { return data; }, [](void*) {}, refuse);
    if (registry.link()->setContextManager(*AIBinder_new(clazz, nullptr)) != 0) return 1;
    registry.startThreadPool();
    puts("ready");
    fflush(stdout);
    char ignored = 0;
    while (read(STDIN_FILENO, &ignored, 1) > 0) {
    }
    _exit(0);
}
