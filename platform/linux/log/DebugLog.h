// SPDX-License-Identifier: Apache-2.0
#pragma once

// liblum_debug_log.so: shows the platform log of one process on its standard error.
//
// On Linux, liblog drops debug lines and gives lines without a tag one of its own before any logger
// sees them. This library takes the place of __android_log_print, the one logging function that the
// library, the binder runtime and the tools call:
//
//   - with LUM_DEBUG_LOG=1 in the environment, every line goes to standard error, whatever its
//     priority, in one write each, cut at kLongestLine bytes:
//
//         2026-11-21 04:33:54.123456  1234  1240 D tag: text
//
//     local time, process id, thread id, priority letter (V D I W E F, ? for others), the tag with
//     its colon only if there is one, the text;
//   - without it, or with another value, the line goes to liblog as if this library were not there.
//
// The variable is read once, with the first line. Logging leaves errno alone, in the first case.
//
// How to get it into a process
//
//   - link the target lum_debug_log before liblog, as the service emulator and the demo do: calls
//     from all shared libraries of the process come to it too; or
//   - for any other program, LD_PRELOAD=/path/to/liblum_debug_log.so LUM_DEBUG_LOG=1 program

#include <cstddef>

// Bytes of one line on standard error, the newline included.
constexpr size_t kLongestLine = 4096;
