// SPDX-License-Identifier: Apache-2.0
#include "tools/emulator/MessageLog.h"

#include <fcntl.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <nlohmann/json.hpp>

namespace {

const char* nameOf(Direction direction) {
    return direction == Direction::kReceived ? "received" : "sent";
}

// Clients send one kind of message, services the other.
const char* typeNameOf(Direction direction) {
    return direction == Direction::kReceived ? "SdfProto.ServiceMsg" : "SdfProto.ClientMsg";
}

std::string hexOf(const std::vector<uint8_t>& bytes, const char* separator) {
    constexpr char kDigits[] = "0123456789abcdef";
    std::string hex;
    for (const uint8_t byte : bytes) {
        if (!hex.empty()) hex += separator;
        hex += kDigits[byte >> 4U];
        hex += kDigits[byte & 15U];
    }
    return hex;
}

std::string timeNow() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    tm utc{};
    gmtime_r(&now.tv_sec, &utc);
    char seconds[32];
    strftime(seconds, sizeof seconds, "%Y-%m-%dT%H:%M:%S", &utc);
    char fraction[32];
    snprintf(fraction, sizeof fraction, ".%06ldZ", now.tv_nsec / 1000);
    return std::string(seconds) + fraction;
}

// errno: why a write failed. The reader of a pipe may stop or go; everything else is reported once.
void noteFailure(const char* what, std::atomic<bool>& failed) {
    if (errno == EAGAIN || errno == EPIPE || failed.exchange(true)) return;
    fprintf(stderr, "lum_sdf_emulator: cannot %s: %s\n", what, strerror(errno));
}

}  // namespace

bool MessageLog::recordTo(const std::string& path) {
    // A named pipe without a reader is an error; opening it would wait for one.
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | O_NONBLOCK, 0644);
    if (fd < 0) return false;
    mRecord = std::make_unique<LineWriter>(fd, true);
    return true;
}

void MessageLog::message(const Message& message) {
    if (!mPrint && !mRecord) return;
    const ReadableMessage readable = mText.read(typeNameOf(message.direction), message.bytes);
    if (mPrint) print(message, readable);
    if (mRecord) record(message, readable);
}

void MessageLog::client(const std::string& line) {
    if (mPrint) say(line);
}

void MessageLog::notice(const std::string& line) {
    say("notice: " + line);
}

void MessageLog::say(const std::string& line) {
    // Nobody may be reading; the service goes on without.
    const lum::utils::MutexLock guard(mLock);
    const std::string missing = "notice: lines that could not be printed: ";
    if (mMissing > 0 && mOutput.write(missing + std::to_string(mMissing))) mMissing = 0;
    if (mMissing == 0 && mOutput.write(line)) return;
    noteFailure("print", mPrintFailed);
    ++mMissing;
}

void MessageLog::print(const Message& message, const ReadableMessage& readable) {
    std::string line = nameOf(message.direction);
    line += " pid=" + std::to_string(message.pid);
    line += " type=" + std::to_string(message.type) + " ";
    if (readable.parsed) {
        line += readable.event + ": " + readable.text;
    } else {
        line += "unreadable: " + hexOf(message.bytes, " ");
    }
    say(line);
}

void MessageLog::record(const Message& message, const ReadableMessage& readable) {
    nlohmann::ordered_json entry;
    entry["time"] = timeNow();
    entry["direction"] = nameOf(message.direction);
    entry["pid"] = message.pid;
    entry["uid"] = message.uid;
    entry["type"] = message.type;
    entry["hex"] = hexOf(message.bytes, "");
    if (readable.parsed) {
        entry["event"] = readable.event;
        entry["text"] = readable.text;
    } else {
        entry["event"] = nullptr;
        entry["text"] = nullptr;
    }
    if (mRecord->write(entry.dump())) return;
    const std::string why = strerror(errno);
    noteFailure("record", mRecordFailed);
    notice("cannot record: " + why);
}
