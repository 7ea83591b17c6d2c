// SPDX-License-Identifier: Apache-2.0
#include "tests/api/FakeTransport.h"

#include <utility>

#include "tests/support/Hex.h"
#include "transport/SdkClient.h"
#include "utils/SharedPointer.h"

std::vector<std::shared_ptr<SdkClientEvent>> FakeTransport::take() {
    loopManager.wake();  // so that it returns also when nothing was posted
    loopManager.processEvents(&loopTimer);
    return std::exchange(mTaken, {});
}

std::vector<std::string> FakeTransport::takeText() {
    std::vector<std::string> texts;
    for (const auto& event : take()) {
        std::string text = std::to_string(event->mType) + ": " + toHex(event->mBlob);
        if (event->mRelease) text += " release";
        if (event->mKind != SdkClientEvent::kRequest) text += " not a request";
        texts.push_back(text);
    }
    return texts;
}

FakeSdkClient& FakeSdkClient::get() {
    static auto* const fake = new FakeSdkClient;
    return *fake;
}

std::shared_ptr<SdkClient> SdkClient::getInstance(LumSdkClientType type, Listener listener,
                                                  std::shared_ptr<SdkClientEvent> event,
                                                  std::shared_ptr<SdkClientBase>* published) {
    FakeSdkClient& fake = FakeSdkClient::get();
    const std::shared_ptr<FakeTransport> transport = fake.transport;
    if (!transport || !event) return nullptr;
    transport->postEvent(std::move(event));
    fake.obtained.push_back(type);
    fake.listener.swap(listener);
    lum::utils::exchangeShared<SdkClientBase>(*published, transport);
    if (fake.duringGet) fake.duringGet();
    // Only ever compared with null.
    return {transport, reinterpret_cast<SdkClient*>(transport.get())};
}

void SdkClient::destroyInstance(LumSdkClientType type) {
    FakeSdkClient& fake = FakeSdkClient::get();
    fake.destroyed.push_back(type);
    if (fake.duringDestroy) fake.duringDestroy();
    SdkClientBase::Listener dropped;
    fake.listener.swap(dropped);
}
