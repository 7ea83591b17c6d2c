// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <iosfwd>
#include <string>
#include <vector>

// Stands in for the platform log in a test program: LogCapture.cpp defines __android_log_print
// itself, which goes before liblog's also for calls made inside shared libraries.

struct LogLine {
    int priority;      // as in android/log.h: 3 debug, 5 warning, 6 error
    bool nullTag;      // true when the caller passed no tag
    std::string text;  // the formatted message

    bool operator==(const LogLine& other) const {
        return priority == other.priority && nullTag == other.nullTag && text == other.text;
    }
};

// For GoogleTest's failure messages.
void PrintTo(const LogLine& line, std::ostream* out);

inline LogLine logD(std::string text) {
    return {3, true, std::move(text)};
}
inline LogLine logW(std::string text) {
    return {5, true, std::move(text)};
}
inline LogLine logE(std::string text) {
    return {6, true, std::move(text)};
}

// Records every line logged in this process, by any thread, while it lives. One at a time.
class LogCapture {
  public:
    // onLine: called with each line, on the thread that logs it; must not log.
    explicit LogCapture(std::function<void(const LogLine&)> onLine = nullptr);
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::vector<LogLine> lines() const;  // all lines so far, in order
    std::vector<LogLine> take();         // the same, and forgets them
    size_t count(const LogLine& line) const;
    bool has(const LogLine& line) const { return count(line) != 0; }
    // Waits until the line has been logged at least `times` times; false when `limit` passed first.
    bool waitFor(const LogLine& line, size_t times = 1,
                 std::chrono::seconds limit = std::chrono::seconds(30)) const;
};

// The text printf would make, for expected lines with addresses in them.
std::string format(const char* fmt, ...) __attribute__((format(printf, 1, 2)));
