// SPDX-License-Identifier: Apache-2.0
#pragma once

// Owners for what the C functions hand out. Each object belongs to one thread at a time; copies of
// a SpAIBinder are independent of each other.

#include <android/binder_ibinder.h>
#include <android/binder_parcel.h>
#include <android/binder_status.h>

#include <string>

namespace ndk {

// Holds one strong reference to a binder object, or nothing.
class SpAIBinder {
  public:
    // Takes over the caller's reference. binder: may be null.
    explicit SpAIBinder(AIBinder* binder) : mBinder(binder) {}

    // Holds nothing.
    SpAIBinder() = default;
    SpAIBinder(std::nullptr_t) {}

    SpAIBinder(const SpAIBinder& other) : mBinder(other.mBinder) { AIBinder_incStrong(mBinder); }
    SpAIBinder(SpAIBinder&& other) noexcept : mBinder(other.release()) {}

    SpAIBinder& operator=(const SpAIBinder& other) {
        if (this != &other) {
            AIBinder_incStrong(other.mBinder);
            set(other.mBinder);
        }
        return *this;
    }
    SpAIBinder& operator=(SpAIBinder&& other) noexcept {
        set(other.release());
        return *this;
    }

    ~SpAIBinder() { set(nullptr); }

    // Takes over the caller's reference and gives up the one held so far. binder: may be null.
    void set(AIBinder* binder) {
        // Letting go may run code that looks at this object again.
        AIBinder* old = mBinder;
        mBinder = binder;
        AIBinder_decStrong(old);
    }

    // Returns the object, still owned by this; null for nothing.
    AIBinder* get() const { return mBinder; }

    // Gives up what is held, and returns where a function may put a new reference.
    AIBinder** getR() {
        set(nullptr);
        return &mBinder;
    }

    // Hands the reference to the caller and holds nothing.
    [[nodiscard]] AIBinder* release() {
        AIBinder* binder = mBinder;
        mBinder = nullptr;
        return binder;
    }

    // Whether both hold the same object.
    bool operator==(const SpAIBinder& other) const { return mBinder == other.mBinder; }
    bool operator!=(const SpAIBinder& other) const { return mBinder != other.mBinder; }

  private:
    AIBinder* mBinder = nullptr;
};

namespace impl {

// Owns one T, ended with Destroy, or holds the value that means nothing.
template <typename T, void (*Destroy)(T), T DEFAULT>
class ScopedAResource {
  public:
    // Takes t over.
    explicit ScopedAResource(T t = DEFAULT) : mT(t) {}
    ScopedAResource(ScopedAResource&& other) noexcept : mT(other.release()) {}
    ScopedAResource& operator=(ScopedAResource&& other) noexcept {
        set(other.release());
        return *this;
    }
    ScopedAResource(const ScopedAResource&) = delete;
    ScopedAResource& operator=(const ScopedAResource&) = delete;
    ~ScopedAResource() { set(DEFAULT); }

    // Takes t over and ends what was held.
    void set(T t) {
        T old = mT;
        mT = t;
        if (old != DEFAULT) Destroy(old);
    }

    // Returns what is held, still owned by this.
    T get() const { return mT; }

    // Returns where a function may put a new T; what is held must be nothing or have been released.
    T* getR() { return &mT; }

    // Hands what is held to the caller.
    [[nodiscard]] T release() {
        T t = mT;
        mT = DEFAULT;
        return t;
    }

  private:
    T mT;
};

}  // namespace impl

// Owns a parcel.
class ScopedAParcel : public impl::ScopedAResource<AParcel*, AParcel_delete, nullptr> {
  public:
    using ScopedAResource::ScopedAResource;
};

// Owns a death recipient.
class ScopedAIBinder_DeathRecipient
    : public impl::ScopedAResource<AIBinder_DeathRecipient*, AIBinder_DeathRecipient_delete,
                                   nullptr> {
  public:
    using ScopedAResource::ScopedAResource;
};

// Owns a weak reference.
class ScopedAIBinder_Weak
    : public impl::ScopedAResource<AIBinder_Weak*, AIBinder_Weak_delete, nullptr> {
  public:
    using ScopedAResource::ScopedAResource;

    // Returns the object, held, or nothing if it has ended.
    SpAIBinder promote() const { return SpAIBinder(AIBinder_Weak_promote(get())); }
};

// Owns a status. One that holds nothing counts as a failed transaction.
class ScopedAStatus : public impl::ScopedAResource<AStatus*, AStatus_delete, nullptr> {
  public:
    using ScopedAResource::ScopedAResource;

    // Whether there is a status and it means success.
    bool isOk() const { return get() != nullptr && AStatus_isOk(get()); }

    // As the functions AStatus_get... say.
    binder_exception_t getExceptionCode() const {
        return get() == nullptr ? EX_TRANSACTION_FAILED : AStatus_getExceptionCode(get());
    }
    int32_t getServiceSpecificError() const {
        return get() == nullptr ? 0 : AStatus_getServiceSpecificError(get());
    }
    binder_status_t getStatus() const {
        return get() == nullptr ? STATUS_UNKNOWN_ERROR : AStatus_getStatus(get());
    }
    const char* getMessage() const {
        return get() == nullptr ? "(no status)" : AStatus_getMessage(get());
    }

    // Returns code, numbers and text in one line, for logs.
    std::string getDescription() const {
        const char* description = get() == nullptr ? nullptr : AStatus_getDescription(get());
        if (description == nullptr) return "(no status)";
        std::string result(description);
        AStatus_deleteDescription(description);
        return result;
    }

    // Return a new status, as the functions AStatus_newOk and AStatus_from... say.
    static ScopedAStatus ok() { return ScopedAStatus(AStatus_newOk()); }
    static ScopedAStatus fromExceptionCode(binder_exception_t exception) {
        return ScopedAStatus(AStatus_fromExceptionCode(exception));
    }
    static ScopedAStatus fromExceptionCodeWithMessage(binder_exception_t exception,
                                                      const char* message) {
        return ScopedAStatus(AStatus_fromExceptionCodeWithMessage(exception, message));
    }
    static ScopedAStatus fromServiceSpecificError(int32_t serviceSpecific) {
        return ScopedAStatus(AStatus_fromServiceSpecificError(serviceSpecific));
    }
    static ScopedAStatus fromServiceSpecificErrorWithMessage(int32_t serviceSpecific,
                                                             const char* message) {
        return ScopedAStatus(AStatus_fromServiceSpecificErrorWithMessage(serviceSpecific, message));
    }
    static ScopedAStatus fromStatus(binder_status_t status) {
        return ScopedAStatus(AStatus_fromStatus(status));
    }
};

}  // namespace ndk
