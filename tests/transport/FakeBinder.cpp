// SPDX-License-Identifier: Apache-2.0
#include "tests/transport/FakeBinder.h"

#include <android/binder_manager.h>
#include <android/binder_process.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <utility>

#include "tests/support/Eventually.h"

using aidl::vendor::orn::data::lumservice::ILumServiceCallback;
using aidl::vendor::orn::data::lumservice::LumSdkType;

namespace {

std::atomic<FakeBinder*> gFake{nullptr};

ndk::ScopedAStatus answer(bool refuse) {
    return refuse ? ndk::ScopedAStatus::fromServiceSpecificError(1) : ndk::ScopedAStatus::ok();
}

}  // namespace

ndk::ScopedAStatus FakeService::registerBlobCallback(
    const std::shared_ptr<ILumServiceCallback>& callback) {
    const std::lock_guard<std::mutex> guard(mLock);
    if (!mRefuseCallback) mCallback = callback;
    return answer(mRefuseCallback);
}

ndk::ScopedAStatus FakeService::sendBlob(LumSdkType type, const std::vector<uint8_t>& blob) {
    Message message{static_cast<int32_t>(type), blob};
    if (mOnBlob) mOnBlob(message);
    const std::lock_guard<std::mutex> guard(mLock);
    mMessages.push_back(std::move(message));
    return answer(mRefuseBlobs);
}

std::shared_ptr<ILumServiceCallback> FakeService::callback() const {
    const std::lock_guard<std::mutex> guard(mLock);
    return mCallback;
}

void FakeService::dropCallback() {
    std::shared_ptr<ILumServiceCallback> dropped;
    const std::lock_guard<std::mutex> guard(mLock);
    dropped.swap(mCallback);
}

std::vector<FakeService::Message> FakeService::messages() const {
    const std::lock_guard<std::mutex> guard(mLock);
    return mMessages;
}

std::vector<std::vector<uint8_t>> FakeService::blobs() const {
    std::vector<std::vector<uint8_t>> blobs;
    for (const Message& message : messages()) blobs.push_back(message.blob);
    return blobs;
}

FakeBinder::FakeBinder() {
    gFake = this;
}
FakeBinder::~FakeBinder() {
    EXPECT_TRUE(eventually([this] {
        const std::lock_guard<std::mutex> guard(mLock);
        return mRecipients == 0;
    }));
    gFake = nullptr;
}

void FakeBinder::serve(const std::shared_ptr<ndk::ICInterface>& service) {
    ndk::SpAIBinder binder = service ? service->asBinder() : ndk::SpAIBinder();
    const std::lock_guard<std::mutex> guard(mLock);
    std::swap(mService, binder);
}

void FakeBinder::refuseLinks(int count) {
    const std::lock_guard<std::mutex> guard(mLock);
    mRefusedLinks = count;
}

void FakeBinder::onSleep(std::function<void()> hook) {
    const std::lock_guard<std::mutex> guard(mLock);
    mOnSleep = std::move(hook);
}

std::vector<std::string> FakeBinder::lookups() const {
    const std::lock_guard<std::mutex> guard(mLock);
    return mLookups;
}

std::vector<unsigned> FakeBinder::sleeps() const {
    const std::lock_guard<std::mutex> guard(mLock);
    return mSleeps;
}

std::vector<FakeBinder::Link> FakeBinder::links() const {
    const std::lock_guard<std::mutex> guard(mLock);
    return mLinks;
}

std::vector<FakeBinder::Link> FakeBinder::unlinks() const {
    const std::lock_guard<std::mutex> guard(mLock);
    return mUnlinks;
}

std::vector<std::string> FakeBinder::deathCalls() const {
    const std::lock_guard<std::mutex> guard(mLock);
    return mDeathCalls;
}

int FakeBinder::poolStarts() const {
    const std::lock_guard<std::mutex> guard(mLock);
    return mPoolStarts;
}

// What the functions below do, with access to the fake's record.
struct FakeBinderCalls {
    static AIBinder* waitForService(const char* name) {
        FakeBinder& fake = *gFake;
        const std::lock_guard<std::mutex> guard(fake.mLock);
        fake.mLookups.emplace_back(name);
        AIBinder* binder = fake.mService.get();
        if (binder != nullptr) AIBinder_incStrong(binder);  // the caller's
        return binder;
    }

    static void startThreadPool() {
        FakeBinder& fake = *gFake;
        const std::lock_guard<std::mutex> guard(fake.mLock);
        ++fake.mPoolStarts;
    }

    static AIBinder_DeathRecipient* newRecipient() {
        FakeBinder& fake = *gFake;
        const std::lock_guard<std::mutex> guard(fake.mLock);
        fake.mDeathCalls.emplace_back("new");
        ++fake.mRecipients;
        // Never looked into, but a leak of it is noticed.
        return reinterpret_cast<AIBinder_DeathRecipient*>(new char);
    }

    static void deleteRecipient(AIBinder_DeathRecipient* recipient) {
        if (recipient == nullptr) return;
        FakeBinder& fake = *gFake;
        const std::lock_guard<std::mutex> guard(fake.mLock);
        fake.mDeathCalls.emplace_back("delete");
        --fake.mRecipients;
        delete reinterpret_cast<char*>(recipient);
    }

    static binder_status_t link(const FakeBinder::Link& link) {
        FakeBinder& fake = *gFake;
        const std::lock_guard<std::mutex> guard(fake.mLock);
        if (fake.mRefusedLinks > 0) {
            --fake.mRefusedLinks;
            return STATUS_DEAD_OBJECT;
        }
        fake.mDeathCalls.emplace_back("link");
        fake.mLinks.push_back(link);
        fake.mLinked.push_back(link);
        return STATUS_OK;
    }

    static binder_status_t unlink(const FakeBinder::Link& link) {
        FakeBinder& fake = *gFake;
        const std::lock_guard<std::mutex> guard(fake.mLock);
        fake.mUnlinks.push_back(link);
        const auto linked = std::find(fake.mLinked.begin(), fake.mLinked.end(), link);
        if (linked == fake.mLinked.end()) {
            fake.mDeathCalls.emplace_back("unlink nothing");
            return STATUS_NAME_NOT_FOUND;
        }
        fake.mDeathCalls.emplace_back("unlink");
        fake.mLinked.erase(linked);
        return STATUS_OK;
    }

    static void sleep(unsigned microseconds) {
        FakeBinder& fake = *gFake;
        std::function<void()> hook;
        {
            const std::lock_guard<std::mutex> guard(fake.mLock);
            fake.mSleeps.push_back(microseconds);
            hook = fake.mOnSleep;
        }
        if (hook) hook();
    }
};

extern "C" {

__attribute__((visibility("default"))) AIBinder* AServiceManager_waitForService(
    const char* instance) {
    return FakeBinderCalls::waitForService(instance);
}

__attribute__((visibility("default"))) void ABinderProcess_startThreadPool(void) {
    FakeBinderCalls::startThreadPool();
}

__attribute__((visibility("default"))) AIBinder_DeathRecipient* AIBinder_DeathRecipient_new(
    AIBinder_DeathRecipient_onBinderDied /*onBinderDied*/) {
    return FakeBinderCalls::newRecipient();
}

__attribute__((visibility("default"))) void AIBinder_DeathRecipient_delete(
    AIBinder_DeathRecipient* recipient) {
    FakeBinderCalls::deleteRecipient(recipient);
}

__attribute__((visibility("default"))) binder_status_t AIBinder_linkToDeath(
    AIBinder* binder, AIBinder_DeathRecipient* recipient, void* cookie) {
    return FakeBinderCalls::link({binder, recipient, cookie});
}

__attribute__((visibility("default"))) binder_status_t AIBinder_unlinkToDeath(
    AIBinder* binder, AIBinder_DeathRecipient* recipient, void* cookie) {
    return FakeBinderCalls::unlink({binder, recipient, cookie});
}

__attribute__((visibility("default"))) int usleep(useconds_t microseconds) {
    FakeBinderCalls::sleep(microseconds);
    return 0;
}

}  // extern "C"
