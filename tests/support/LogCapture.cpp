// SPDX-License-Identifier: Apache-2.0
#include "tests/support/LogCapture.h"

#include <android/log.h>

#include <algorithm>
#include <condition_variable>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <ostream>
#include <utility>

#include "utils/NoDestroy.h"

namespace {

struct Record {
    std::mutex lock;
    std::condition_variable grown;
    bool recording = false;
    std::function<void(const LogLine&)> onLine;
    std::vector<LogLine> lines;
};

// Never destroyed: threads may log while the process exits.
NoDestroy<Record> gRecord;

std::string vformat(const char* fmt, va_list args) {
    va_list again;
    va_copy(again, args);
    const int length = vsnprintf(nullptr, 0, fmt, again);
    va_end(again);
    if (length < 0) abort();
    std::string text(static_cast<size_t>(length) + 1, '\0');
    vsnprintf(&text[0], text.size(), fmt, args);
    text.pop_back();
    return text;
}

}  // namespace

extern "C" __attribute__((visibility("default"))) int __android_log_print(int priority,
                                                                          const char* tag,
                                                                          const char* fmt, ...) {
    Record& record = gRecord.value;
    const std::lock_guard<std::mutex> guard(record.lock);
    if (!record.recording) return 0;
    va_list args;
    va_start(args, fmt);
    record.lines.push_back({priority, tag == nullptr, vformat(fmt, args)});
    va_end(args);
    if (record.onLine) record.onLine(record.lines.back());
    record.grown.notify_all();
    return 1;
}

void PrintTo(const LogLine& line, std::ostream* out) {
    *out << "{" << line.priority << (line.nullTag ? "" : ", tagged") << ", \"" << line.text
         << "\"}";
}

LogCapture::LogCapture(std::function<void(const LogLine&)> onLine) {
    const std::lock_guard<std::mutex> guard(gRecord.value.lock);
    gRecord.value.recording = true;
    gRecord.value.onLine = std::move(onLine);
}

LogCapture::~LogCapture() {
    const std::lock_guard<std::mutex> guard(gRecord.value.lock);
    gRecord.value.recording = false;
    gRecord.value.onLine = nullptr;
    gRecord.value.lines.clear();
}

std::vector<LogLine> LogCapture::lines() const {
    const std::lock_guard<std::mutex> guard(gRecord.value.lock);
    return gRecord.value.lines;
}

std::vector<LogLine> LogCapture::take() {
    const std::lock_guard<std::mutex> guard(gRecord.value.lock);
    std::vector<LogLine> taken;
    taken.swap(gRecord.value.lines);
    return taken;
}

size_t LogCapture::count(const LogLine& line) const {
    const std::lock_guard<std::mutex> guard(gRecord.value.lock);
    const auto& lines = gRecord.value.lines;
    return static_cast<size_t>(std::count(lines.begin(), lines.end(), line));
}

bool LogCapture::waitFor(const LogLine& line, size_t times, std::chrono::seconds limit) const {
    std::unique_lock<std::mutex> guard(gRecord.value.lock);
    const auto& lines = gRecord.value.lines;
    return gRecord.value.grown.wait_for(guard, limit, [&] {
        return static_cast<size_t>(std::count(lines.begin(), lines.end(), line)) >= times;
    });
}

std::string format(const char* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    std::string text = vformat(fmt, args);
    va_end(args);
    return text;
}
