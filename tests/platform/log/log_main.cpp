// SPDX-License-Identifier: Apache-2.0
// Logs a few lines, each of its own sort, for the test of the debug log.

#include <android/log.h>

#include <cerrno>
#include <cstdio>
#include <string>
#include <thread>

int main() {
    errno = 77;
    __android_log_print(ANDROID_LOG_DEBUG, nullptr, "no tag, number %d", 42);
    __android_log_print(ANDROID_LOG_VERBOSE, "tag", "verbose");
    __android_log_print(ANDROID_LOG_INFO, "", "empty tag");
    __android_log_print(ANDROID_LOG_ERROR, "tag", "error");
    __android_log_print(99, nullptr, "%s", "a priority that is none");
    printf("errno %d\n", errno);
    fflush(stdout);
    std::thread([] { __android_log_print(ANDROID_LOG_WARN, nullptr, "other thread"); }).join();
    __android_log_print(ANDROID_LOG_DEBUG, nullptr, "%s", std::string(10000, 'x').c_str());
    return 0;
}
