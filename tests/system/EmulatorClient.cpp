// SPDX-License-Identifier: Apache-2.0
#include "tests/system/EmulatorClient.h"

#include <android/binder_manager.h>
#include <android/binder_process.h>

#include <chrono>
#include <ostream>
#include <stdexcept>

#include "tests/support/Hex.h"

namespace {
constexpr std::chrono::seconds kLimit{30};
}

void PrintTo(const Inbox::Blob& blob, std::ostream* out) {
    *out << "{" << blob.type << ", " << blob.hex << "}";
}

void Inbox::put(Blob blob) {
    const std::lock_guard<std::mutex> guard(mLock);
    mBlobs.push_back(std::move(blob));
    mChanged.notify_all();
}

void Inbox::close() {
    const std::lock_guard<std::mutex> guard(mLock);
    mEnded = true;
    mChanged.notify_all();
}

std::vector<Inbox::Blob> Inbox::waitFor(size_t count) const {
    std::unique_lock<std::mutex> guard(mLock);
    mChanged.wait_for(guard, kLimit, [&] { return mBlobs.size() >= count; });
    return mBlobs;
}

bool Inbox::waitForEnd() const {
    std::unique_lock<std::mutex> guard(mLock);
    return mChanged.wait_for(guard, kLimit, [&] { return mEnded; });
}

ndk::ScopedAStatus RecordingCallback::sendBlob(LumSdkType type, const std::vector<uint8_t>& blob) {
    mInbox->put({static_cast<int32_t>(type), toHex(blob)});
    return ndk::ScopedAStatus::ok();
}

EmulatorClient::EmulatorClient()
    : mCallback(ndk::SharedRefBase::make<RecordingCallback>(mInbox)), mService(findService()) {
    if (mService == nullptr) throw std::runtime_error("no service");
    if (!registerAgain().isOk()) throw std::runtime_error("not registered");
}

ndk::ScopedAStatus EmulatorClient::send(const std::string& hex, int32_t type) const {
    return mService->sendBlob(static_cast<LumSdkType>(type), fromHex(hex));
}

std::shared_ptr<ILumService> findService() {
    ABinderProcess_startThreadPool();
    return ILumService::fromBinder(
        ndk::SpAIBinder(AServiceManager_checkService(ILumService::descriptor)));
}
