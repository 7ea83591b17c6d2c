// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <aidl/vendor/orn/data/lumservice/BnLumServiceCallback.h>
#include <aidl/vendor/orn/data/lumservice/ILumService.h>

#include <condition_variable>
#include <cstdint>
#include <iosfwd>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

// A client that speaks to the service itself, without the library.

using aidl::vendor::orn::data::lumservice::ILumService;
using aidl::vendor::orn::data::lumservice::LumSdkType;

// Messages worked out by hand.
constexpr char kEnable[] = "1A 04 0A 02 08 01";     // data { enable_msg { enable: true } }
constexpr char kDisable[] = "1A 02 0A 00";          // data { enable_msg { } }
constexpr char kServiceUp[] = "1A 04 0A 02 08 06";  // data { status_msg { status: SERVICE_UP } }
// Levels L2 and L4 for the first slot, unique_id 7, and the answer to that.
constexpr char kSetLevels[] = "08 01 10 07 1A 08 1A 06 08 01 10 01 18 03";
constexpr char kLevels[] = "08 01 10 07 1A 06 12 04 08 01 10 03";

constexpr int32_t kSdf = 5;  // the feature that these messages belong to

// What a callback object has received. Outlives it.
class Inbox {
  public:
    struct Blob {
        int32_t type;
        std::string hex;  // as toHex() gives it

        bool operator==(const Blob& other) const { return type == other.type && hex == other.hex; }
    };

    void put(Blob blob);
    void close();

    // Waits until this many blobs have come, 30 s at most, and returns what has come.
    std::vector<Blob> waitFor(size_t count) const;
    // Waits until the callback object has ended; false when 30 s passed first.
    bool waitForEnd() const;

  private:
    mutable std::mutex mLock;
    mutable std::condition_variable mChanged;
    std::vector<Blob> mBlobs;
    bool mEnded = false;
};

// For GoogleTest's failure messages.
void PrintTo(const Inbox::Blob& blob, std::ostream* out);

class RecordingCallback : public aidl::vendor::orn::data::lumservice::BnLumServiceCallback {
  public:
    explicit RecordingCallback(std::shared_ptr<Inbox> inbox) : mInbox(std::move(inbox)) {}
    ~RecordingCallback() override { mInbox->close(); }

    ndk::ScopedAStatus sendBlob(LumSdkType type, const std::vector<uint8_t>& blob) override;

  private:
    const std::shared_ptr<Inbox> mInbox;
};

// One registered callback object and the service it is registered with.
class EmulatorClient {
  public:
    // Starts the thread pool, finds the service and registers. Throws std::runtime_error if that
    // fails.
    EmulatorClient();

    // Sends a request, given as fromHex() takes it, as the feature `type`.
    ndk::ScopedAStatus send(const std::string& hex, int32_t type = kSdf) const;

    // Registers the same object again.
    ndk::ScopedAStatus registerAgain() const { return mService->registerBlobCallback(mCallback); }
    // Lets the callback object go; the service may still hold it.
    void drop() { mCallback.reset(); }

    Inbox& inbox() const { return *mInbox; }
    ILumService& service() const { return *mService; }

  private:
    const std::shared_ptr<Inbox> mInbox = std::make_shared<Inbox>();
    std::shared_ptr<RecordingCallback> mCallback;
    std::shared_ptr<ILumService> mService;
};

// The service, or null if there is none. Starts the thread pool.
std::shared_ptr<ILumService> findService();
