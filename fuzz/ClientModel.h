// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <lum_sdf_sdk.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "fuzz/Wire.h"
#include "proto/SdfProto.pb.h"
#include "transport/SdkClientBase.h"

// What is seen of the client library from outside, in order, as text.
class ClientObserver {
  public:
    // The application's callback is called; the text is that of tests/api/ClientFixture.h. What the
    // application calls from inside is done when this returns.
    virtual void called(const std::string& text) = 0;
    // An event is posted, as FakeTransport::takeText() shows it.
    virtual void posted(const std::string& text) = 0;

  protected:
    ~ClientObserver() = default;
};

// The callbacks that the application has, of any type, and their names.
using AnyCallback = void (*)();
const std::map<AnyCallback, std::string>& callbackNames();
template <typename Callback>
std::string nameOf(Callback cb) {
    return cb == nullptr ? "none" : callbackNames().at(reinterpret_cast<AnyCallback>(cb));
}

// The client object's record and all that changes it, written down once more as plainly as
// possible: one thread, and memory without end.
class ClientModel {
  public:
    struct Client {
        bool transport = false;
        bool up = false;
        SdfStatusV2Cb v2 = nullptr;
        SdfLegacyStatusCb legacy = nullptr;
        SdfFilterStatusCb filterStatus = nullptr;
        SdfGetFiltersCb getFilters = nullptr;
        SdfPriorityQueueReportCb reports = nullptr;
        SdfPriorityQueueReportCb getReport = nullptr;
        SdfAutoFilterInfoCb autoFilter = nullptr;
        std::vector<unsigned int> usedIds;
        std::vector<unsigned int> filterIds;
        std::map<unsigned int, SdfEffectiveLevelsCb> latencyCbs;
        std::map<unsigned int, SdfFilterStatusCb> filterCbs;
    };

    // random: what rand() returns, in order.
    ClientModel(ClientObserver& observer, std::vector<int> random)
        : mObserver(observer), mRandom(std::move(random)) {}

    // The process's client; null if there is none.
    const Client* current() const { return mCurrent.get(); }
    // Whether there is a transport to be obtained.
    void setTransport(bool there) { mTransport = there; }

    long long createSdfClient(SdfStatusV2Cb cb);
    long long destroySdfClient();
    long long lumSdfEnable(SdfLegacyStatusCb cb);
    long long lumSdfDisable();

    // A request, which is posted if its arguments are valid.
    long long request(bool valid, const wire::Request& request);
    // The same about a filter.
    long long requestOf(unsigned int filter, bool valid, const wire::Request& request);
    // The same for one that fills a callback slot.
    template <typename Callback>
    long long registration(Callback Client::*slot, Callback cb, const wire::Request& request) {
        const long long result = mayRequest(cb != nullptr);
        if (result != 0) return result;
        mCurrent.get()->*slot = cb;
        if (request.event != SdfProto::REG_AUTO_FILTER_INFO_IND) post(request);
        return 0;
    }
    long long setLatency(bool valid, const wire::Request& request, SdfEffectiveLevelsCb cb);
    long long addFilter(bool valid, const wire::Request& request, SdfFilterStatusCb cb);
    long long deleteFilter(unsigned int filter);
    long long deleteAllFilters();

    // The transport reports to the listener that it was given for its `listener`-th client.
    void report(size_t listener, SdkClientBase::SdkStatus status,
                const std::vector<uint8_t>& bytes);

  private:
    using ClientRef = std::shared_ptr<Client>;

    template <typename Callback>
    void create(Callback Client::*slot, Callback cb);
    template <typename Callback>
    bool destroy(Callback Client::*slot);
    template <typename Callback, typename First, typename... Rest>
    void call(Callback cb, First first, Rest... rest);

    // 0, or why not.
    long long mayRequest(bool valid) const;
    void post(const wire::Request& request, unsigned int id = 0, bool release = false);
    unsigned int drawId();
    void handleStatus(const ClientRef& client, int64_t status);
    void dispatch(const ClientRef& client, const SdfProto::ClientMsg& message);

    ClientObserver& mObserver;
    const std::vector<int> mRandom;
    size_t mDrawn = 0;
    bool mTransport = true;
    ClientRef mCurrent;
    ClientRef mLeaving;       // it is being destroyed
    bool mReporting = false;  // that there is no transport
    std::vector<ClientRef> mListeners;
};
