// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/log/DebugLog.h"

#include <android/log.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

// Asked once, with the first line: later the application may be changing its environment.
bool switchedOn() {
    static const bool on = [] {
        const char* const value = getenv("LUM_DEBUG_LOG");
        return value != nullptr && strcmp(value, "1") == 0;
    }();
    return on;
}

char letterOf(int priority) {
    constexpr char kLetters[] = "??VDIWEF";
    const bool known = priority >= ANDROID_LOG_VERBOSE && priority <= ANDROID_LOG_FATAL;
    return known ? kLetters[priority] : '?';
}

// One line, built in place: what does not fit is left out.
class Line {
  public:
    __attribute__((format(printf, 2, 3))) void add(const char* fmt, ...) {
        va_list args;
        va_start(args, fmt);
        vadd(fmt, args);
        va_end(args);
    }

    __attribute__((format(printf, 2, 0))) void vadd(const char* fmt, va_list args) {
        const size_t left = sizeof mText - mLength;
        const int length = vsnprintf(mText + mLength, left, fmt, args);
        if (length > 0) mLength += std::min(static_cast<size_t>(length), left - 1);
    }

    void addTime() {
        timespec now{};
        clock_gettime(CLOCK_REALTIME, &now);
        tm local{};
        localtime_r(&now.tv_sec, &local);
        mLength += strftime(mText + mLength, sizeof mText - mLength, "%Y-%m-%d %H:%M:%S", &local);
        add(".%06ld", now.tv_nsec / 1000);
    }

    // Returns the line's length, or minus the error number, as liblog does.
    int write() {
        mText[mLength++] = '\n';
        ssize_t written = 0;
        do {
            written = ::write(STDERR_FILENO, mText, mLength);
        } while (written < 0 && errno == EINTR);
        return written < 0 ? -errno : static_cast<int>(written);
    }

  private:
    char mText[kLongestLine];
    size_t mLength = 0;  // below the size: the end of the text is kept for the newline
};

int writeLine(int priority, const char* tag, const char* fmt, va_list args) {
    Line line;
    line.addTime();
    line.add(" %5d %5ld %c ", getpid(), syscall(SYS_gettid), letterOf(priority));
    if (tag != nullptr && *tag != '\0') line.add("%s: ", tag);
    line.vadd(fmt, args);
    return line.write();
}

}  // namespace

extern "C" __attribute__((visibility("default"))) int __android_log_print(int priority,
                                                                          const char* tag,
                                                                          const char* fmt, ...) {
    const int error = errno;
    va_list args;
    va_start(args, fmt);
    const int result = switchedOn() ? writeLine(priority, tag, fmt, args)
                                    : __android_log_vprint(priority, tag, fmt, args);
    va_end(args);
    errno = error;
    return result;
}
