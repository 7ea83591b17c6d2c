// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <lum_sdf_sdk.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <utility>
#include <vector>

#include "proto/SdfProto.pb.h"
#include "transport/SdkBase.h"
#include "utils/Mutex.h"
#include "utils/SharedPointer.h"

// The client object behind the C interface, one per process: the application's callbacks, and the
// record by which replies find the callback that awaits them.
//
// Threads: requests come on application threads, blobListener() on the transport's. The record (the
// maps, vectors and callback slots) is locked only when built with LUM_SDF_GUARDED, but for reading
// a slot, and never across a callback. An object that is no longer, or not yet, mInstance reports
// nothing.
class Sdf : public SdkBase {
#if LUM_SDF_GUARDED
    using RecordMutex = lum::utils::Mutex;
    static constexpr int kSlotRead = __ATOMIC_ACQUIRE;
    static constexpr int kSlotWrite = __ATOMIC_RELEASE;
#else
    struct NoMutex {
        void lock() {}
        void unlock() {}
    };
    using RecordMutex = lum::utils::BasicMutex<NoMutex>;
    static constexpr int kSlotRead = __ATOMIC_RELAXED;
    static constexpr int kSlotWrite = __ATOMIC_RELAXED;
#endif

  public:
    Sdf() = default;
    // Releases the transport if it is still held. What is still awaited is not called.
    ~Sdf() override;
    Sdf(const Sdf&) = delete;
    Sdf& operator=(const Sdf&) = delete;

    // The transport's listener: dispatches what the service sent, and reports a refused message or
    // the loss of the service. Other statuses are ignored. Bytes that do not parse are dispatched
    // as far as they were read. Caller must hold this object, as the transport's listener does.
    void blobListener(SdkClientBase::SdkStatus status, const std::vector<uint8_t>& bytes) override;

    // Notes whether the service is up (SDF_STATUS_SERVICE_UP) or not (all else), and calls both
    // status callbacks; the second one only if the first left this client in place. Caller must
    // hold this object.
    void handleSdfStatusInd(status_e status);

    // A transaction id that is neither 0, nor pending, nor a live filter's; pending from now on.
    // The C library's rand(), never seeded.
    unsigned int getNextUniqueId();

    // Draws an id and records the callback that awaits the reply to it. An entry that is there
    // already stays. Throws std::bad_alloc, with nothing recorded.
    // `callbacks`: &Sdf::mLatencyCbs or &Sdf::mFilterCbs.
    template <typename Callback>
    unsigned int recordRequest(std::map<unsigned int, Callback> Sdf::*callbacks, Callback cb) {
        const lum::utils::MutexLock lock(mRecordLock);
        const unsigned int id = drawId();
        try {
            (this->*callbacks).emplace(id, cb);
        } catch (...) {
            mUsedIds.pop_back();
            throw;
        }
        return id;
    }

    // The end of a request: its callback is no longer awaited, its id may be drawn again.
    template <typename Callback>
    void forgetRequest(std::map<unsigned int, Callback> Sdf::*callbacks, unsigned int id) {
        const lum::utils::MutexLock lock(mRecordLock);
        (this->*callbacks).erase(id);
        removeFirst(mUsedIds, id);
    }

    // The callback that awaits the reply to `id`, or null.
    template <typename Callback>
    Callback findRequest(std::map<unsigned int, Callback> Sdf::*callbacks, unsigned int id) const {
        const lum::utils::MutexLock lock(mRecordLock);
        const auto found = (this->*callbacks).find(id);
        return found == (this->*callbacks).end() ? nullptr : found->second;
    }

    // The end of a request to add a filter: its callback is no longer awaited; if the request was
    // pending, it is no more, and its id is a live filter's from now on if `lives`. Throws
    // std::bad_alloc, with nothing changed.
    void settleAdd(unsigned int id, bool lives);

    // Whether the service has confirmed this filter.
    bool isFilterIdValid(const unsigned int& id) const;

    // Whether it has confirmed any.
    bool hasFilters() const;

    // The filter is no longer a live one, if it was; the order of the others stays.
    void removeFilterId(const unsigned int& id) {
        removeFilterId(id, [] {});
    }
    // The same, and for all, after post() has asked the service to delete them. The record stays
    // locked until then: what is added behind that request, maybe under the same id, must not be
    // forgotten with it. They throw what post() throws, with nothing changed.
    template <typename Post>
    void removeFilterId(const unsigned int& id, const Post& post) {
        const lum::utils::MutexLock lock(mRecordLock);
        post();
        removeFirst(mFilterIds, id);
    }
    template <typename Post>
    void removeAllFilterIds(const Post& post) {
        const lum::utils::MutexLock lock(mRecordLock);
        post();
        mFilterIds.clear();
    }

    // The service has ended the filter: if it was a live one, it is no more, and no callback awaits
    // it.
    void endFilter(unsigned int id);

    // One of the callback slots, to read or to replace (returning the old callback). Read without
    // the lock, for each entry of a message. A slot is read and written whole also where the record
    // is not locked: an application may create, destroy and register while a callback is being
    // delivered.
    template <typename Callback>
    Callback readSlot(Callback Sdf::*slot) const {
        return __atomic_load_n(&(this->*slot), kSlotRead);
    }
    template <typename Callback>
    Callback replaceSlot(Callback Sdf::*slot, Callback cb) {
        const lum::utils::MutexLock lock(mRecordLock);
        const Callback before = readSlot(slot);
        __atomic_store_n(&(this->*slot), cb, kSlotWrite);
        return before;
    }

    // The client object of the process, if there is one.
    static std::shared_ptr<Sdf> current() {
        return lum::utils::loadShared(mInstance);
    }
    // The same, and its transport, if it has one.
    static std::pair<std::shared_ptr<Sdf>, std::shared_ptr<SdkClientBase>> currentWithTransport() {
        const lum::utils::MutexLock lock(lum::utils::gSharedPointerLock.value);
        return {mInstance, mInstance ? mInstance->mSdkClient : nullptr};
    }
    // Puts another one, or none, in its place. One thread at a time: create and destroy have a
    // lock.
    static void setCurrent(const std::shared_ptr<Sdf>& client);
    // Without the lock that current() takes: dispatch asks after each entry of a message.
    bool isCurrent() const {
        return sCurrent.load(std::memory_order_acquire) == this;
    }

    // Never destroyed: the transport's threads may look at it while the process exits. Read as
    // above, and replaced by setCurrent().
    static std::shared_ptr<Sdf>& mInstance;

    // Drawn and not yet answered, and confirmed by the service.
    std::vector<unsigned int> mUsedIds LUM_GUARDED_BY(mRecordLock);
    std::vector<unsigned int> mFilterIds LUM_GUARDED_BY(mRecordLock);
    void (*mStatusCbV2)(int) = nullptr;
    SdfFilterStatusCb mFilterStatusCb = nullptr;
    SdfGetFiltersCb mGetFiltersCb = nullptr;
    SdfPriorityQueueReportCb mPriorityQueueReportsCb = nullptr;
    SdfPriorityQueueReportCb mGetPriorityQueueReportCb = nullptr;
    SdfAutoFilterInfoCb mAutoFilterInfoCb = nullptr;
    std::map<unsigned int, SdfEffectiveLevelsCb> mLatencyCbs LUM_GUARDED_BY(mRecordLock);
    std::map<unsigned int, SdfFilterStatusCb> mFilterCbs LUM_GUARDED_BY(mRecordLock);
    std::atomic<bool> mServiceUp{false};  // stored with release order

  private:
    static std::atomic<const Sdf*> sCurrent;  // what mInstance points to

    mutable RecordMutex mRecordLock;

    // Leaves the id at the end of mUsedIds.
    unsigned int drawId() LUM_REQUIRES(mRecordLock);
    bool isIdTaken(unsigned int id) const LUM_REQUIRES(mRecordLock);
    // False if it is not there.
    static bool removeFirst(std::vector<unsigned int>& ids, unsigned int id);

    void dispatch(const SdfProto::ClientMsg& message);
    void onStatusInd(const SdfProto::StatusInd& body);
    void onEffectiveLevels(unsigned int id, const SdfProto::EffectiveLevelsCb& body);
    void onFilterStatus(const SdfProto::FilterStatusIndication& body);
    void onAddFilter(const SdfProto::AddFilterCb& body);
    void onGetFilters(const SdfProto::GetFilterCb& body);
    void onPriorityQueueReport(const SdfProto::PriorityQueueReportCb& body);
    void onAutoFilterInfo(const SdfProto::AutoFilterInfoInd& body) const;
};
