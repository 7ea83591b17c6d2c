// SPDX-License-Identifier: Apache-2.0
// lum_servicemanager: keeps the names of services for processes that reach each other over the
// kernel's binder driver, on machines without Android's.

#include <lum/service_manager.h>
#include <lum_sdf_sdk.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "platform/linux/src/KernelRegistry.h"
#include "tools/servicemanager/ServiceManager.h"

namespace {

constexpr char kHelp[] =
    R"(usage: lum_servicemanager [--help | --version]

Keeps the names of services for processes that reach each other over the kernel's
binder driver, until it is killed. Prints "ready" when it does.

environment:
  LUM_BINDER    the driver's device, for example /dev/vndbinder

A process that dies loses its names. Nobody may give a name that another user has
to an object. Where Android runs, its own service manager does this.

Exit status: 1 when it cannot serve; 2 when the command line is wrong.
)";

int fail(const char* what) {
    fprintf(stderr, "lum_servicemanager: %s\n", what);
    return 1;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 2 && (strcmp(argv[1], "--help") == 0 || strcmp(argv[1], "-h") == 0)) {
        fputs(kHelp, stdout);
        return 0;
    }
    if (argc == 2 && strcmp(argv[1], "--version") == 0) {
        puts("lum_servicemanager (lum SDF) " LUM_SDF_SDK_VERSION);
        return 0;
    }
    if (argc != 1) {
        fputs(kHelp, stderr);
        return 2;
    }
    const char* const device = LumServiceManager_device();
    if (*device == '\0') {
        return fail("set LUM_BINDER to the driver's device, for example /dev/vndbinder");
    }
    // Never ends: a driver is open as long as the process.
    static KernelRegistry& registry = *new KernelRegistry(device);
    KernelLink& link = *registry.link();
    if (!link.isOpen()) return fail("cannot use the driver's device; the log says why");
    static const auto& manager = *new ServiceManager();
    const int error = link.setContextManager(*manager.object().get());
    if (error == EBUSY) return fail("another process is the service manager of this device");
    if (error == EPERM) {
        return fail(
            "the driver keeps this device for the user who was its service manager first: run this "
            "as that user, or make the device anew");
    }
    if (error != 0) {
        fprintf(stderr, "lum_servicemanager: the driver refuses (%s)\n", strerror(error));
        return 1;
    }
    puts("ready");
    fflush(stdout);
    // Nothing that it does waits for anybody, so that one thread is enough.
    link.serve(BC_ENTER_LOOPER);
    return fail("cannot use the driver's device any more; the log says why");
}
