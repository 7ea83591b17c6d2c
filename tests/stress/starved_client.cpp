// SPDX-License-Identifier: Apache-2.0
// A client on a machine that refuses it things.
//
// usage: starved_client descriptors COUNT   only COUNT more descriptors can be opened
//        starved_client atexit              as descriptors 0, with an exit handler that destroys
//
// Prints what happened, and exits with 0 unless the library did what it must not. Waiting for the
// service does not take its time: usleep() returns at once.

#include <android/log.h>
#include <lum_sdf_sdk.h>
#include <unistd.h>

#include <condition_variable>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <string>

#include "tests/stress/ClientEvents.h"
#include "tests/support/DescriptorLimit.h"

namespace {

constexpr int kAttempts = 6;

std::mutex gLock;
std::condition_variable gChanged;
int gFailedAttempts = 0;
bool gAnswered = false;

// Until the service is up or the library has given up looking for it.
bool waitForOutcome() {
    std::unique_lock<std::mutex> guard(gLock);
    return gChanged.wait_for(guard, std::chrono::seconds(30),
                             [] { return gAnswered || gFailedAttempts == kAttempts; });
}

int fail(const char* what) {
    printf("failed: %s\n", what);
    return 1;
}

int run() {
    setEventHook([](const ClientEvent& event) {
        const std::lock_guard<std::mutex> guard(gLock);
        gAnswered = gAnswered || event.status == SDF_V2_SERVICE_UP;
        gChanged.notify_all();
    });
    if (createSdfClient(onStatus) != 0) return fail("create");
    const long long answer =
        sdfSetLatencyLvl(SDF_SLOT_ID_FIRST, SDF_LATENCY_LVL_1, SDF_LATENCY_LVL_1, false, onLevels);
    if (answer == SDF_V2_INVALID_OPERATION) {
        printf("no transport\n");
        return destroySdfClient() == SDF_V2_INVALID_OPERATION ? 0 : fail("destroy");
    }
    if (!waitForOutcome()) return fail("neither up nor given up");
    {
        const std::lock_guard<std::mutex> guard(gLock);
        printf(gAnswered ? "up after %d failed attempts\n" : "no service after %d attempts\n",
               gFailedAttempts);
    }
    return destroySdfClient() == 0 ? 0 : fail("destroy");
}

}  // namespace

extern "C" {

__attribute__((visibility("default"))) int usleep(useconds_t /*microseconds*/) {
    const std::lock_guard<std::mutex> guard(gLock);
    ++gFailedAttempts;
    gChanged.notify_all();
    return 0;
}

// Warnings and errors go to standard output, for the test to read.
__attribute__((visibility("default"))) int __android_log_print(int priority, const char* /*tag*/,
                                                               const char* format, ...) {
    if (priority < ANDROID_LOG_WARN) return 0;
    va_list arguments;
    va_start(arguments, format);
    std::string line = std::string("log: ") + format + "\n";
    vprintf(line.c_str(), arguments);
    va_end(arguments);
    fflush(stdout);
    return 1;
}

}  // extern "C"

int main(int argc, char** argv) {
    setvbuf(stdout, nullptr, _IOLBF, 0);
    const std::string mode = argc > 1 ? argv[1] : "";
    if (mode == "descriptors" && argc == 3) {
        const DescriptorLimit limit(atoi(argv[2]));
        return run();
    }
    if (mode == "atexit") {
        atexit([] { printf("destroy at exit: %lld\n", destroySdfClient()); });
        const DescriptorLimit limit(0);
        return run();
    }
    fprintf(stderr, "usage: starved_client descriptors COUNT | atexit\n");
    return 2;
}
