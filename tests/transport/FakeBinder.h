// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <aidl/vendor/orn/data/lumservice/BnLumService.h>
#include <android/binder_ibinder.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

// The platform as SdkClient sees it, under a test's control. FakeBinder.cpp defines
// AServiceManager_waitForService, ABinderProcess_startThreadPool, the functions of death recipients
// and usleep in the test program, where they go before the real ones.

// A data service in this process.
class FakeService : public aidl::vendor::orn::data::lumservice::BnLumService {
  public:
    struct Message {
        int32_t type;
        std::vector<uint8_t> blob;
    };

    ndk::ScopedAStatus registerBlobCallback(
        const std::shared_ptr<aidl::vendor::orn::data::lumservice::ILumServiceCallback>& callback)
        override;
    ndk::ScopedAStatus sendBlob(aidl::vendor::orn::data::lumservice::LumSdkType type,
                                const std::vector<uint8_t>& blob) override;

    std::shared_ptr<aidl::vendor::orn::data::lumservice::ILumServiceCallback> callback() const;
    // The callback object may keep this service: in one process, that is a circle to be broken.
    void dropCallback();
    std::vector<Message> messages() const;
    std::vector<std::vector<uint8_t>> blobs() const;

    // Set before the service is used.
    bool mRefuseCallback = false;
    bool mRefuseBlobs = false;
    std::function<void(const Message&)> mOnBlob;  // runs before the message is recorded

  private:
    mutable std::mutex mLock;
    std::shared_ptr<aidl::vendor::orn::data::lumservice::ILumServiceCallback> mCallback;
    std::vector<Message> mMessages;
};

// One per test at a time: what the functions above find, and what they were asked.
class FakeBinder {
  public:
    struct Link {
        AIBinder* binder;
        AIBinder_DeathRecipient* recipient;
        void* cookie;

        bool operator==(const Link& other) const {
            return binder == other.binder && recipient == other.recipient && cookie == other.cookie;
        }
    };
    struct Seen {
        std::vector<std::string> lookups;
        std::vector<unsigned> sleeps;  // microseconds
        std::vector<Link> links;
        std::vector<Link> unlinks;
        // Every "new", "link", "unlink" (of what was linked, in contrast to "unlink nothing") and
        // "delete" of a death recipient.
        std::vector<std::string> deathCalls;
        int poolStarts = 0;
    };

    FakeBinder();
    // Waits until all death recipients have been deleted: objects may go on threads of their own.
    ~FakeBinder();
    FakeBinder(const FakeBinder&) = delete;
    FakeBinder& operator=(const FakeBinder&) = delete;

    // What the next look-ups find; null for nobody.
    static void serve(const std::shared_ptr<ndk::ICInterface>& service);
    // The next `count` links are refused as if the service had just died.
    static void refuseLinks(int count);
    // Runs inside each usleep(), which does not sleep.
    static void onSleep(std::function<void()> hook);

    static Seen seen();
};
