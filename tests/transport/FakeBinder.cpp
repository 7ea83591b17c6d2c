// SPDX-License-Identifier: Apache-2.0
#include "tests/transport/FakeBinder.h"

#include <android/binder_manager.h>
#include <android/binder_process.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

#include "tests/support/Eventually.h"

using aidl::vendor::orn::data::lumservice::ILumServiceCallback;
using aidl::vendor::orn::data::lumservice::LumSdkType;

namespace {

struct State : FakeBinder::Seen {
    ndk::SpAIBinder service;
    int refusedLinks = 0;
    std::function<void()> onSleep;
    std::vector<FakeBinder::Link> linked;  // and not unlinked
    int recipients = 0;                    // alive
};
std::mutex gLock;
State gState;

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
    const std::lock_guard<std::mutex> guard(gLock);
    gState = {};
}

FakeBinder::~FakeBinder() {
    EXPECT_TRUE(eventually([] {
        const std::lock_guard<std::mutex> guard(gLock);
        return gState.recipients == 0;
    }));
    serve(nullptr);
}

void FakeBinder::serve(const std::shared_ptr<ndk::ICInterface>& service) {
    // What was served goes after the lock.
    ndk::SpAIBinder binder = service ? service->asBinder() : ndk::SpAIBinder();
    const std::lock_guard<std::mutex> guard(gLock);
    std::swap(gState.service, binder);
}

void FakeBinder::refuseLinks(int count) {
    const std::lock_guard<std::mutex> guard(gLock);
    gState.refusedLinks = count;
}

void FakeBinder::onSleep(std::function<void()> hook) {
    const std::lock_guard<std::mutex> guard(gLock);
    gState.onSleep = std::move(hook);
}

FakeBinder::Seen FakeBinder::seen() {
    const std::lock_guard<std::mutex> guard(gLock);
    return static_cast<const Seen&>(gState);
}

#pragma GCC visibility push(default)
extern "C" {

AIBinder* AServiceManager_waitForService(const char* instance) {
    const std::lock_guard<std::mutex> guard(gLock);
    gState.lookups.emplace_back(instance);
    AIBinder* binder = gState.service.get();
    if (binder != nullptr) AIBinder_incStrong(binder);  // the caller's
    return binder;
}

void ABinderProcess_startThreadPool(void) {
    const std::lock_guard<std::mutex> guard(gLock);
    ++gState.poolStarts;
}

AIBinder_DeathRecipient* AIBinder_DeathRecipient_new(AIBinder_DeathRecipient_onBinderDied) {
    const std::lock_guard<std::mutex> guard(gLock);
    gState.deathCalls.emplace_back("new");
    ++gState.recipients;
    // Never looked into, but a leak of it is noticed.
    return reinterpret_cast<AIBinder_DeathRecipient*>(new char);
}

void AIBinder_DeathRecipient_delete(AIBinder_DeathRecipient* recipient) {
    if (recipient == nullptr) return;
    const std::lock_guard<std::mutex> guard(gLock);
    gState.deathCalls.emplace_back("delete");
    --gState.recipients;
    delete reinterpret_cast<char*>(recipient);
}

binder_status_t AIBinder_linkToDeath(AIBinder* binder, AIBinder_DeathRecipient* recipient,
                                     void* cookie) {
    const std::lock_guard<std::mutex> guard(gLock);
    if (gState.refusedLinks > 0) {
        --gState.refusedLinks;
        return STATUS_DEAD_OBJECT;
    }
    gState.deathCalls.emplace_back("link");
    gState.links.push_back({binder, recipient, cookie});
    gState.linked.push_back({binder, recipient, cookie});
    return STATUS_OK;
}

binder_status_t AIBinder_unlinkToDeath(AIBinder* binder, AIBinder_DeathRecipient* recipient,
                                       void* cookie) {
    const FakeBinder::Link link{binder, recipient, cookie};
    const std::lock_guard<std::mutex> guard(gLock);
    gState.unlinks.push_back(link);
    const auto linked = std::find(gState.linked.begin(), gState.linked.end(), link);
    if (linked == gState.linked.end()) {
        gState.deathCalls.emplace_back("unlink nothing");
        return STATUS_NAME_NOT_FOUND;
    }
    gState.deathCalls.emplace_back("unlink");
    gState.linked.erase(linked);
    return STATUS_OK;
}

int usleep(useconds_t microseconds) {
    std::function<void()> hook;
    {
        const std::lock_guard<std::mutex> guard(gLock);
        gState.sleeps.push_back(microseconds);
        hook = gState.onSleep;
    }
    if (hook) hook();
    return 0;
}

}  // extern "C"
#pragma GCC visibility pop
