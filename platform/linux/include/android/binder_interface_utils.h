// SPDX-License-Identifier: Apache-2.0
#pragma once

// What classes of interfaces are built from: counted objects, stubs (the side that is called) and
// proxies (the side that calls).

#include <android/binder_auto_utils.h>
#include <android/binder_ibinder.h>

#include <cstdlib>
#include <memory>
#include <mutex>
#include <utility>

namespace ndk {

// An object that is always owned by shared pointers and can hand out further ones to itself. Made
// with SharedRefBase::make, never on the stack and never with new.
class SharedRefBase {
  public:
    SharedRefBase() = default;
    virtual ~SharedRefBase() = default;
    SharedRefBase(const SharedRefBase&) = delete;
    SharedRefBase& operator=(const SharedRefBase&) = delete;

    // Returns a shared pointer to this; empty once the last one is gone. The very first call makes
    // the owner; from then on it may be called on any thread.
    std::shared_ptr<SharedRefBase> ref() {
        std::shared_ptr<SharedRefBase> self = mThis.lock();
        std::call_once(mFlagThis, [&]() { mThis = self = std::shared_ptr<SharedRefBase>(this); });
        return self;
    }

    // As ref, typed. CHILD: what this object is.
    template <class CHILD>
    std::shared_ptr<CHILD> ref() {
        return std::static_pointer_cast<CHILD>(ref());
    }

    // Makes a T from args and returns its first owner.
    template <class T, class... Args>
    static std::shared_ptr<T> make(Args&&... args) {
        T* t = new T(std::forward<Args>(args)...);
        // NOLINTNEXTLINE(clang-analyzer-cplusplus.NewDeleteLeaks): the first ref() makes the owner
        return t->template ref<T>();
    }

    // NOLINTNEXTLINE(misc-new-delete-overloads): its counterpart is hidden below on purpose
    static void operator delete(void* p) { ::operator delete(p); }

  private:
    // Only make gets here.
    static void* operator new(std::size_t size) { return ::operator new(size); }

    std::once_flag mFlagThis;
    std::weak_ptr<SharedRefBase> mThis;
};

// Base of every interface. The virtual operations stand in the order in which they are called
// through their table: add none.
class ICInterface : public SharedRefBase {
  public:
    // Returns the binder object behind this interface, held.
    virtual SpAIBinder asBinder() = 0;

    // Returns whether the implementation is in another process.
    virtual bool isRemote() = 0;

    // Writes a description to fd, which belongs to the caller. args: numArgs texts.
    // Returns STATUS_OK or an error.
    virtual inline binder_status_t dump(int fd, const char** args, uint32_t numArgs);

    // Carries out a shell command. Nothing on Linux asks for it: it keeps its place in the table.
    // in, out, err: belong to the caller; argv: argc texts. Returns STATUS_OK or an error.
    virtual inline binder_status_t handleShellCommand(int in, int out, int err, const char** argv,
                                                      uint32_t argc);

    // Returns the interface that a local object of a class made by defineClass was made from; null
    // for a proxy. binder: not null.
    static inline std::shared_ptr<ICInterface> asInterface(AIBinder* binder);

    // Defines the class of an interface whose objects are made from stubs.
    // interfaceDescriptor: its name, copied; onTransact: carries out calls.
    // Returns the class, never ended; null when there is no memory.
    static inline AIBinder_Class* defineClass(const char* interfaceDescriptor,
                                              AIBinder_Class_onTransact onTransact);

#if !defined(__ANDROID_API__) || __ANDROID_API__ >= 36
    // As above, with the names of its methods. Since API level 36.
    // codeToFunction: functionCount texts, the first for FIRST_CALL_TRANSACTION; must live as long
    // as the process.
    static inline AIBinder_Class* defineClass(const char* interfaceDescriptor,
                                              AIBinder_Class_onTransact onTransact,
                                              const char** codeToFunction,
                                              std::size_t functionCount);
#endif

  private:
    // User data of a stub's binder object: keeps the stub alive.
    struct Data {
        std::shared_ptr<ICInterface> interface;

        static std::shared_ptr<ICInterface> getInterface(AIBinder* binder) {
            const auto* const data = static_cast<const Data*>(AIBinder_getUserData(binder));
            // A proxy has none.
            return data == nullptr ? nullptr : data->interface;
        }

        static void* onCreate(void* args) {
            return new Data{static_cast<ICInterface*>(args)->ref<ICInterface>()};
        }

        static void onDestroy(void* userData) { delete static_cast<Data*>(userData); }

        static binder_status_t onDump(AIBinder* binder, int fd, const char** args,
                                      uint32_t numArgs) {
            return getInterface(binder)->dump(fd, args, numArgs);
        }
    };
};

// Base of the stub of INTERFACE: what a class derives from to be called.
template <typename INTERFACE>
class BnCInterface : public INTERFACE {
  public:
    // Returns the binder object of this stub, made when it is needed; empty when there is no
    // memory. Any thread. The binder object keeps the stub alive, not the other way round.
    SpAIBinder asBinder() override;

    // Returns false.
    bool isRemote() override { return false; }

  protected:
    // Makes the binder object. Called by asBinder only, one call at a time.
    virtual SpAIBinder createBinder() = 0;

  private:
    std::mutex mMutex;                // guards mWeakBinder
    ScopedAIBinder_Weak mWeakBinder;  // weak, for the binder object owns this
};

// Base of the proxy of INTERFACE: what calls a binder object.
template <typename INTERFACE>
class BpCInterface : public INTERFACE {
  public:
    // binder: not empty; kept as long as the proxy lives.
    explicit BpCInterface(const SpAIBinder& binder) : mBinder(binder) {}

    SpAIBinder asBinder() override { return mBinder; }

    // Returns whether the implementation is in another process.
    bool isRemote() override { return AIBinder_isRemote(mBinder.get()); }

    // Has the implementation describe itself.
    binder_status_t dump(int fd, const char** args, uint32_t numArgs) override {
        return AIBinder_dump(mBinder.get(), fd, args, numArgs);
    }

  private:
    SpAIBinder mBinder;
};

binder_status_t ICInterface::dump(int /*fd*/, const char** /*args*/, uint32_t /*numArgs*/) {
    return STATUS_OK;
}

binder_status_t ICInterface::handleShellCommand(int /*in*/, int /*out*/, int /*err*/,
                                                const char** /*argv*/, uint32_t /*argc*/) {
    return STATUS_OK;
}

std::shared_ptr<ICInterface> ICInterface::asInterface(AIBinder* binder) {
    return Data::getInterface(binder);
}

AIBinder_Class* ICInterface::defineClass(const char* interfaceDescriptor,
                                         AIBinder_Class_onTransact onTransact) {
    AIBinder_Class* clazz =
        AIBinder_Class_define(interfaceDescriptor, Data::onCreate, Data::onDestroy, onTransact);
    if (clazz != nullptr) AIBinder_Class_setOnDump(clazz, Data::onDump);
    return clazz;
}

#if !defined(__ANDROID_API__) || __ANDROID_API__ >= 36
AIBinder_Class* ICInterface::defineClass(const char* interfaceDescriptor,
                                         AIBinder_Class_onTransact onTransact,
                                         const char** codeToFunction, std::size_t functionCount) {
    AIBinder_Class* clazz = defineClass(interfaceDescriptor, onTransact);
    if (clazz != nullptr && codeToFunction != nullptr) {
        AIBinder_Class_setTransactionCodeToFunctionNameMap(clazz, codeToFunction, functionCount);
    }
    return clazz;
}
#endif

template <typename INTERFACE>
SpAIBinder BnCInterface<INTERFACE>::asBinder() {
    const std::lock_guard<std::mutex> lock(mMutex);
    SpAIBinder binder = mWeakBinder.promote();
    if (binder.get() == nullptr) {
        binder = createBinder();
        mWeakBinder.set(AIBinder_Weak_new(binder.get()));
        // Not to be found again, it would not stay the only one.
        if (mWeakBinder.get() == nullptr) return nullptr;
    }
    return binder;
}

}  // namespace ndk
