// SPDX-License-Identifier: Apache-2.0
// A client that does not clean up. Exits with 0 when all went as an application would want.
//
// usage: careless_client return             main returns with the client up and requests under way
//        careless_client exit-in-callback   exit() is called from inside a callback
//        careless_client exit-connecting    main returns while the library looks for the service
//        careless_client no-descriptors     the library ends the process for want of descriptors,
//        and
//                                           an exit handler calls it

#include <lum_sdf_sdk.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>

#include "tests/stress/ClientEvents.h"
#include "tests/support/DescriptorLimit.h"

int main(int argc, char** argv) {
    const std::string mode = argc > 1 ? argv[1] : "";
    if (mode == "return") {
        if (createSdfClient(onStatus) != 0 || !waitForStatus(SDF_V2_SERVICE_UP)) return 1;
        for (int i = 0; i < 100; ++i) {
            sdfSetLatencyLvl(SDF_SLOT_ID_FIRST, SDF_LATENCY_LVL_1, SDF_LATENCY_LVL_1, false,
                             onLevels);
        }
        return 0;
    }
    if (mode == "exit-in-callback") {
        setEventHook([](const ClientEvent&) { exit(0); });
        if (createSdfClient(onStatus) != 0) return 1;
        // Far longer than it takes; the callback ends the process.
        std::this_thread::sleep_for(std::chrono::seconds(60));
        return 1;
    }
    if (mode == "exit-connecting") return createSdfClient(onStatus) == 0 ? 0 : 1;
    if (mode == "no-descriptors") {
        atexit([] { printf("destroy at exit: %lld\n", destroySdfClient()); });
        const DescriptorLimit limit(0);
        return createSdfClient(onStatus) == 0 ? 0 : 1;
    }
    return 2;
}
