// SPDX-License-Identifier: Apache-2.0
#include "api/Sdf.h"

#include <cstdlib>
#include <new>
#include <utility>

#include "api/ClientSdfUtils.h"
#include "api/SdfRequest.h"
#include "utils/Mutex.h"
#include "utils/NoDestroy.h"

// The life of the client object, and what every request needs.

using lum::utils::MutexLock;
using lum::utils::RecursiveMutex;

namespace {

NoDestroy<std::shared_ptr<Sdf>> gInstance;

// Keeps obtaining the transport and releasing it apart, as the transport demands, also for calls
// that come from callbacks on any thread.
struct Lifecycle {
    // Not held across a callback, nor while a destroy waits for the SDK thread. Recursive, because
    // without descriptors the event manager ends the process under it, and what the application
    // does at its exit may come here again.
    RecursiveMutex lock;
    // The client object that is being destroyed. While there is one no transport is obtained.
    const Sdf* leaving LUM_GUARDED_BY(lock) = nullptr;
};
NoDestroy<Lifecycle> gLifecycleStorage;
Lifecycle& gLifecycle = gLifecycleStorage.value;

// The request to serve this client, or its last one, to serve it no longer.
std::shared_ptr<SdkClientEvent> enableEvent(bool enable) {
    sdf::Message message(SdfProto::ENABLE);
    message.data().mutable_enable_msg()->set_enable(enable);
    return message.event(!enable);
}

bool contains(const std::vector<unsigned int>& ids, unsigned int id) {
    return std::find(ids.begin(), ids.end(), id) != ids.end();
}

// This thread is reporting to the application that there is no transport, or not even a client.
thread_local bool tReporting = false;

// Sets a flag for as long as it lives.
class Raised {
  public:
    explicit Raised(bool& flag) : mFlag(flag) { mFlag = true; }
    ~Raised() { mFlag = false; }
    Raised(const Raised&) = delete;
    Raised& operator=(const Raised&) = delete;

  private:
    bool& mFlag;
};

// Reports that there is no transport, or not even a client, unless this thread is just doing that:
// an application that creates or destroys again from inside that callback would get here without
// end.
template <typename Report>
void reportOnce(const Report& report) {
    if (tReporting) return;
    const Raised raised(tReporting);
    report();
}

// Puts `cb` into its slot and `client` into mInstance, and gives `client` a transport with the
// enable request as its first event, or as one more event if it has a transport. False when there
// is no transport.
template <typename Callback>
bool connect(const std::shared_ptr<Sdf>& client, Callback Sdf::*slot, Callback cb)
    LUM_REQUIRES(gLifecycle.lock) {
    std::shared_ptr<SdkClientEvent> event = enableEvent(true);
    SdkClientBase::Listener listener = [client](SdkClientBase::SdkStatus status,
                                                const std::vector<uint8_t>& bytes) {
        client->blobListener(status, bytes);
    };
    client->replaceSlot(slot, cb);
    Sdf::setCurrent(client);
    return gLifecycle.leaving == nullptr &&
           client->obtainTransport(LUM_SDK_CLIENT_SDF, std::move(listener), std::move(event));
}

// The client object to use from now on: the present one, or a new one. Null when there is no
// memory.
std::shared_ptr<Sdf> presentOrNew() LUM_REQUIRES(gLifecycle.lock) {
    std::shared_ptr<Sdf> present = Sdf::current();
    if (present && present.get() != gLifecycle.leaving) return present;
    try {
        return std::make_shared<Sdf>();
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

// createSdfClient() and lum_sdf_enable() with a callback for one slot. False when there is no
// client object.
template <typename Callback>
bool enable(Callback Sdf::*slot, Callback cb) {
    std::shared_ptr<Sdf> client;
    bool obtained = false;
    {
        const MutexLock lock(gLifecycle.lock);
        client = presentOrNew();
        if (!client) return false;
        obtained = connect(client, slot, cb);
    }
    if (!obtained) {
        reportOnce([&client] {
            SdkBase::reportNoTransport(client->readSlot<SdfStatusV2Cb>(&Sdf::mBaseStatusCbV2),
                                       client->readSlot<SdfLegacyStatusCb>(&Sdf::mLegacyStatusCb));
        });
    }
    return true;
}

// What a destroy finds.
enum class Leave {
    kNothing,      // no client object, or one that another destroy has taken over
    kNoTransport,  // a client object without a transport
    kPosted,       // the disable request is queued, and the object is this destroy's to take down
};

// Empties the slot and posts the disable request.
template <typename Callback>
Leave postDisable(const std::shared_ptr<Sdf>& client, Callback Sdf::*slot)
    LUM_REQUIRES(gLifecycle.lock) {
    if (!client || client.get() == gLifecycle.leaving) return Leave::kNothing;
    const std::shared_ptr<SdkClientBase> transport = client->transport();
    if (!transport) return Leave::kNoTransport;
    std::shared_ptr<SdkClientEvent> event = enableEvent(false);
    client->replaceSlot<Callback>(slot, nullptr);
    transport->postEvent(std::move(event));
    gLifecycle.leaving = client.get();
    return Leave::kPosted;
}

// destroySdfClient() and lum_sdf_disable(); the slot is that of the one called. False when no
// client has been destroyed.
template <typename Callback>
bool disable(Callback Sdf::*slot) {
    std::shared_ptr<Sdf> client;
    Leave found = Leave::kNothing;
    {
        const MutexLock lock(gLifecycle.lock);
        client = Sdf::current();
        found = postDisable(client, slot);
    }
    if (found == Leave::kNoTransport) {
        reportOnce([&client] { client->handleSdfStatusInd(SDF_STATUS_INTERNAL_ERROR); });
    }
    if (found != Leave::kPosted) return false;
    client->destroySdkInstance(LUM_SDK_CLIENT_SDF);
    const MutexLock lock(gLifecycle.lock);
    gLifecycle.leaving = nullptr;
    // A callback that ran meanwhile may have made a new client, which stays.
    if (client->isCurrent()) Sdf::setCurrent(nullptr);
    return true;
}

}  // namespace

std::shared_ptr<Sdf>& Sdf::mInstance = gInstance.value;
std::atomic<const Sdf*> Sdf::sCurrent{nullptr};

Sdf::~Sdf() {
    destroySdkInstance(LUM_SDK_CLIENT_SDF);
}

void Sdf::setCurrent(const std::shared_ptr<Sdf>& client) {
    lum::utils::exchangeShared(mInstance, client);
    sCurrent.store(client.get(), std::memory_order_release);
}

void Sdf::handleSdfStatusInd(status_e status) {
    if (!isCurrent()) return;
    mServiceUp.store(status == SDF_STATUS_SERVICE_UP, std::memory_order_release);
    if (const auto cb = readSlot<SdfLegacyStatusCb>(&Sdf::mLegacyStatusCb)) cb(status);
    if (!isCurrent()) return;
    if (const auto cb = readSlot(&Sdf::mStatusCbV2)) cb(ClientSdfUtils::statusToStatusV2(status));
}

unsigned int Sdf::getNextUniqueId() {
    const MutexLock lock(mRecordLock);
    return drawId();
}

unsigned int Sdf::drawId() {
    // The space first: an id that could not be kept must not be drawn. What stands there meanwhile
    // takes 0, which is no id.
    mUsedIds.push_back(0);
    unsigned int id = 0;
    do id = static_cast<unsigned int>(rand());
    while (isIdTaken(id));
    mUsedIds.back() = id;
    return id;
}

bool Sdf::isIdTaken(unsigned int id) const {
    return contains(mUsedIds, id) || contains(mFilterIds, id);
}

void Sdf::settleAdd(unsigned int id, bool lives) {
    const MutexLock lock(mRecordLock);
    // First, because memory may run out here.
    if (lives && contains(mUsedIds, id)) mFilterIds.push_back(id);
    mFilterCbs.erase(id);
    removeFirst(mUsedIds, id);
}

bool Sdf::isFilterIdValid(const unsigned int& id) const {
    const MutexLock lock(mRecordLock);
    return contains(mFilterIds, id);
}

bool Sdf::hasFilters() const {
    const MutexLock lock(mRecordLock);
    return !mFilterIds.empty();
}

void Sdf::endFilter(unsigned int id) {
    const MutexLock lock(mRecordLock);
    if (removeFirst(mFilterIds, id)) mFilterCbs.erase(id);
}

bool Sdf::removeFirst(std::vector<unsigned int>& ids, unsigned int id) {
    const auto found = std::find(ids.begin(), ids.end(), id);
    if (found == ids.end()) return false;
    ids.erase(found);
    return true;
}

long long createSdfClient(SdfStatusV2Cb cb) {
    if (cb == nullptr) return SDF_V2_INVALID_ARG;
    return sdf::withoutExceptions(SDF_V2_INTERNAL_ERROR, [cb]() -> long long {
        return enable(&Sdf::mStatusCbV2, cb) ? SDF_V2_SUCCESS : SDF_V2_INTERNAL_ERROR;
    });
}

long long destroySdfClient() {
    return sdf::withoutExceptions(SDF_V2_INTERNAL_ERROR, []() -> long long {
        return disable(&Sdf::mStatusCbV2) ? SDF_V2_SUCCESS : SDF_V2_INVALID_OPERATION;
    });
}

long long lum_sdf_enable(SdfLegacyStatusCb cb) {
    if (cb == nullptr) return 0;
    return sdf::withoutExceptions(0, [cb]() -> long long {
        if (enable<SdfLegacyStatusCb>(&Sdf::mLegacyStatusCb, cb)) return 1;
        reportOnce([cb] { cb(SDF_STATUS_INTERNAL_ERROR); });
        return 0;
    });
}

long long lum_sdf_disable() {
    return sdf::withoutExceptions(
        0, []() -> long long { return disable<SdfLegacyStatusCb>(&Sdf::mLegacyStatusCb) ? 1 : 0; });
}
