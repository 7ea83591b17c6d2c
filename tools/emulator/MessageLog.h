// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "tools/emulator/LineWriter.h"
#include "tools/emulator/MessageText.h"
#include "utils/Mutex.h"

enum class Direction { kReceived, kSent };

// One message between this service and a client.
struct Message {
    Direction direction;
    pid_t pid;  // of the client
    uid_t uid;
    int32_t type;  // the feature it belongs to, as LumSdkType numbers them
    const std::vector<uint8_t>& bytes;
};

// Tells the user what goes on. Any thread.
class MessageLog {
  public:
    // print: whether to print messages, and clients that come and go, on standard output.
    explicit MessageLog(bool print) : mPrint(print), mOutput(1, false) {}

    // Appends each message to a file from now on, made if it is not there. To be called before the
    // first message. Returns false if the file cannot be opened; errno says why.
    bool recordTo(const std::string& path);

    // Prints and records a message. On standard output:
    //
    //     received pid=1234 type=5 SET_LATENCY_LEVEL: event_id: SET_LATENCY_LEVEL unique_id: 7 ...
    //     received pid=1234 type=5 unreadable: ff ff ff
    //
    // In the file, one JSON object a line, event and text null if the bytes are no message:
    //
    //     {"time":"2026-11-21T04:33:54.123456Z","direction":"received","pid":1234,"uid":1000,
    //      "type":5,"hex":"0801...","event":"SET_LATENCY_LEVEL","text":"event_id: ..."}
    void message(const Message& message);

    // A client comes or goes; printed as the messages are.
    void client(const std::string& line);

    // Something the user should know of; always printed, after "notice: ".
    void notice(const std::string& line);

    // Anything else that is asked for; always printed as it is. Lines for which there is no reader
    // are left out; the first one that can be printed again is preceded by a notice that counts
    // them.
    void say(const std::string& line);

    // Whether something that was to be printed is lost, but for want of a reader; or something that
    // was to be printed or recorded. Standard error has a line about it.
    bool printFailed() const { return mPrintFailed; }
    bool failed() const { return mPrintFailed || mRecordFailed; }

  private:
    void print(const Message& message, const ReadableMessage& readable);
    void record(const Message& message, const ReadableMessage& readable);

    const bool mPrint;
    const MessageText mText;
    std::atomic<bool> mPrintFailed{false};
    std::atomic<bool> mRecordFailed{false};
    lum::utils::Mutex mLock;
    size_t mMissing LUM_GUARDED_BY(mLock) = 0;  // lines that have been left out
    LineWriter mOutput LUM_GUARDED_BY(mLock);
    std::unique_ptr<LineWriter> mRecord;
};
