// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <android/binder_ibinder.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

class LocalBinder;
class RemoteBinder;

// What AIBinder_Class_define and its setters were given. Never ended.
struct AIBinder_Class {
    std::string descriptor;
    AIBinder_Class_onCreate onCreate = nullptr;
    AIBinder_Class_onDestroy onDestroy = nullptr;
    AIBinder_Class_onTransact onTransact = nullptr;
    AIBinder_onDump onDump = nullptr;
    const char* const* functionNames = nullptr;
    size_t functionCount = 0;
};

// A binder object, one of this process or a proxy. Counted twice: strong references keep it in use,
// weak ones keep only its memory, and all strong ones together count as one weak one.
struct AIBinder {
  public:
    AIBinder(const AIBinder&) = delete;
    AIBinder& operator=(const AIBinder&) = delete;

    // The object as what it is; null if it is the other kind.
    virtual LocalBinder* asLocal() { return nullptr; }
    virtual RemoteBinder* asRemote() { return nullptr; }

    void incStrong() { mStrong.fetch_add(1, std::memory_order_relaxed); }
    // Adds a strong reference unless the last one is gone already; returns whether it did.
    bool attemptIncStrong();
    // Runs the object's end on this thread when it was the last one: call it with nothing locked.
    void decStrong();
    void incWeak() { mWeak.fetch_add(1, std::memory_order_relaxed); }
    void decWeak();
    int32_t strongCount() const { return mStrong.load(std::memory_order_relaxed); }

    // The interface this object is used through, null while there is none.
    const AIBinder_Class* clazz() const { return mClass.load(std::memory_order_acquire); }
    // As AIBinder_associateClass. May block on the object's process.
    bool associateClass(const AIBinder_Class* clazz);

  protected:
    explicit AIBinder(const AIBinder_Class* clazz) : mClass(clazz) {}
    virtual ~AIBinder() = default;

    // The last strong reference is gone. Runs once, with nothing locked.
    virtual void onLastStrong() = 0;
    // Asks whether the object is of the interface `descriptor`; logs and returns false if not.
    virtual bool isOfInterface(const std::string& descriptor) = 0;

  private:
    std::atomic<int32_t> mStrong{1};
    std::atomic<int32_t> mWeak{1};
    std::atomic<const AIBinder_Class*> mClass;
};

// The word for an object's stability in a parcel (Stability.h): that which a proxy was received
// with, otherwise ours. binder: not null.
int32_t binderStability(AIBinder* binder);
// An object has come with that word. Returns false if no object can have it, or this one has
// another. binder: not null.
bool takeStability(AIBinder* binder, int32_t word);

struct DecStrong {
    void operator()(AIBinder* binder) const { binder->decStrong(); }
};
// Owns one strong reference.
using BinderRef = std::unique_ptr<AIBinder, DecStrong>;

// Adds a strong reference and owns it. binder: not null, and held by somebody.
inline BinderRef refTo(AIBinder* binder) {
    binder->incStrong();
    return BinderRef(binder);
}

// The codes every object answers, besides those of its interface.
constexpr transaction_code_t kPingTransaction = 0x5f504e47;       // "_PNG"
constexpr transaction_code_t kInterfaceTransaction = 0x5f4e5446;  // "_NTF"
// A descriptor to write to, and arguments: their number, and each as a text.
constexpr transaction_code_t kDumpTransaction = 0x5f444d50;  // "_DMP"
