// SPDX-License-Identifier: Apache-2.0
// Loads the library named on the command line, brings a client up, unloads the library and waits
// for the report that the service has died. Exits with 0 when it has come.

#include <dlfcn.h>

#include <cstdio>

#include "tests/stress/ClientEvents.h"

int main(int argc, char** argv) {
    if (argc != 2) return 2;
    void* library = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) {
        fprintf(stderr, "%s\n", dlerror());
        return 1;
    }
    using Create = long long (*)(void (*)(int));
    const auto create = reinterpret_cast<Create>(dlsym(library, "createSdfClient"));
    if (create == nullptr || create(onStatus) != 0 || !waitForStatus(SDF_V2_SERVICE_UP)) return 1;
    if (dlclose(library) != 0) return 1;
    puts("unloaded");
    fflush(stdout);
    return waitForStatus(SDF_V2_SERVICE_DOWN) ? 0 : 1;
}
