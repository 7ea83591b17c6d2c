// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <android/log.h>

// The library logs with the platform's default tag. Macros, so that the compiler checks each format
// against its arguments.
#define LUM_LOGD(...) __android_log_print(ANDROID_LOG_DEBUG, nullptr, __VA_ARGS__)
#define LUM_LOGW(...) __android_log_print(ANDROID_LOG_WARN, nullptr, __VA_ARGS__)
#define LUM_LOGE(...) __android_log_print(ANDROID_LOG_ERROR, nullptr, __VA_ARGS__)
