// SPDX-License-Identifier: Apache-2.0
// The owners of binder objects, and the classes that interfaces are built from.
#include <android/binder_auto_utils.h>
#include <android/binder_interface_utils.h>
#include <android/binder_to_string.h>
#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "tests/platform/CountedObject.h"
#include "tests/platform/NoLink.h"
#include "tests/platform/Threads.h"

namespace {

using ndk::ScopedAIBinder_Weak;
using ndk::SharedRefBase;
using ndk::SpAIBinder;

int32_t references(const SpAIBinder& binder) {
    return AIBinder_debugGetRefCount(binder.get());
}

TEST(SpAIBinder, CopiesHaveReferencesOfTheirOwn) {
    int ended = 0;
    SpAIBinder first = makeCounted(&ended);
    EXPECT_EQ(1, references(first));
    SpAIBinder second = first;
    EXPECT_EQ(2, references(first));
    first = second;
    const SpAIBinder& self = first;
    first = self;
    EXPECT_EQ(2, references(first));
    EXPECT_TRUE(first == second);
    EXPECT_FALSE(first != second);
    EXPECT_TRUE(first != makeCounted(&ended));
    EXPECT_EQ(1, ended);
    first.set(nullptr);
    EXPECT_EQ(1, references(second));
    second = nullptr;
    EXPECT_EQ(2, ended);
}

TEST(SpAIBinder, MovesTheReference) {
    int ended = 0;
    int otherEnded = 0;
    SpAIBinder first = makeCounted(&ended);
    SpAIBinder second(std::move(first));
    // NOLINTNEXTLINE(bugprone-use-after-move,clang-analyzer-cplusplus.Move): what is tested
    EXPECT_EQ(nullptr, first.get());
    EXPECT_EQ(1, references(second));
    SpAIBinder third = makeCounted(&otherEnded);
    third = std::move(second);
    EXPECT_EQ(1, otherEnded);
    EXPECT_EQ(1, references(third));
    EXPECT_EQ(0, ended);
}

TEST(SpAIBinder, ReleaseHandsTheReferenceOverAndGetREndsIt) {
    int ended = 0;
    SpAIBinder binder = makeCounted(&ended);
    AIBinder* const released = binder.release();
    EXPECT_EQ(nullptr, binder.get());
    binder.set(released);
    EXPECT_EQ(1, references(binder));
    EXPECT_EQ(nullptr, *binder.getR());
    EXPECT_EQ(1, ended);
}

TEST(ScopedAIBinderWeak, PromotesWhileTheObjectLives) {
    int ended = 0;
    SpAIBinder binder = makeCounted(&ended);
    const ScopedAIBinder_Weak weak(AIBinder_Weak_new(binder.get()));
    EXPECT_EQ(1, references(binder));
    EXPECT_EQ(binder, weak.promote());
    binder.set(nullptr);
    EXPECT_EQ(1, ended);
    EXPECT_EQ(nullptr, weak.promote().get());
    EXPECT_EQ(nullptr, ScopedAIBinder_Weak().promote().get());
}

// ---- Counted objects

class Thing : public SharedRefBase {
  public:
    explicit Thing(int* ended, bool fail = false) : mEnded(ended) {
        if (fail) throw std::runtime_error("refused");
    }
    ~Thing() override { ++*mEnded; }

  private:
    int* mEnded;
};

TEST(SharedRefBase, LastOwnerEndsIt) {
    int ended = 0;
    auto first = SharedRefBase::make<Thing>(&ended);
    EXPECT_EQ(1, first.use_count());
    std::shared_ptr<Thing> second = first->ref<Thing>();
    EXPECT_EQ(first, second);
    EXPECT_EQ(2, first.use_count());
    first.reset();
    EXPECT_EQ(0, ended);
    second.reset();
    EXPECT_EQ(1, ended);
}

TEST(SharedRefBase, ConstructorThatThrowsLeavesNothing) {
    int ended = 0;
    EXPECT_THROW(SharedRefBase::make<Thing>(&ended, true), std::runtime_error);
    EXPECT_EQ(0, ended);
}

// ---- Interfaces

class Interface : public ndk::ICInterface {
  public:
    virtual int call() = 0;
};

AIBinder_Class* interfaceClass() {
    static const char* names[] = {"call"};
    static AIBinder_Class* const clazz = ndk::ICInterface::defineClass(
        "test.Interface",
        [](AIBinder* binder, transaction_code_t code, const AParcel* /*in*/,
           AParcel* out) -> binder_status_t {
            if (code != FIRST_CALL_TRANSACTION) return STATUS_UNKNOWN_TRANSACTION;
            const auto self =
                std::static_pointer_cast<Interface>(ndk::ICInterface::asInterface(binder));
            return AParcel_writeInt32(out, self->call());
        },
        names, 1);
    return clazz;
}

class Stub : public ndk::BnCInterface<Interface> {
  public:
    int call() override { return 42; }

    int mCreated = 0;

  protected:
    SpAIBinder createBinder() override {
        ++mCreated;
        return SpAIBinder(AIBinder_new(interfaceClass(), static_cast<ICInterface*>(this)));
    }
};

class Proxy : public ndk::BpCInterface<Interface> {
  public:
    using BpCInterface::BpCInterface;
    int call() override {
        ndk::ScopedAParcel in;
        ndk::ScopedAParcel out;
        int32_t result = -1;
        if (AIBinder_prepareTransaction(asBinder().get(), in.getR()) == STATUS_OK &&
            AIBinder_transact(asBinder().get(), FIRST_CALL_TRANSACTION, in.getR(), out.getR(), 0) ==
                STATUS_OK) {
            AParcel_readInt32(out.get(), &result);
        }
        return result;
    }
};

TEST(Stub, HasOneBinderObjectAsLongAsSomebodyHoldsIt) {
    const auto stub = SharedRefBase::make<Stub>();
    SpAIBinder first = stub->asBinder();
    EXPECT_EQ(first, stub->asBinder());
    EXPECT_EQ(1, stub->mCreated);
    first.set(nullptr);
    EXPECT_NE(nullptr, stub->asBinder().get());
    EXPECT_EQ(2, stub->mCreated);
}

TEST(Stub, IsKeptByItsBinderObject) {
    auto stub = SharedRefBase::make<Stub>();
    const std::weak_ptr<Stub> kept = stub;
    SpAIBinder binder = stub->asBinder();
    stub.reset();
    EXPECT_EQ(42, Proxy(binder).call());
    EXPECT_FALSE(kept.expired());
    binder.set(nullptr);
    EXPECT_TRUE(kept.expired());
}

TEST(Stub, IsFoundThroughItsBinderObjectAndNotThroughAProxy) {
    const auto stub = SharedRefBase::make<Stub>();
    EXPECT_EQ(stub, ndk::ICInterface::asInterface(stub->asBinder().get()));
    const SpAIBinder proxy(new RemoteBinder(std::make_shared<NoLink>(), 77));
    EXPECT_EQ(nullptr, ndk::ICInterface::asInterface(proxy.get()));
    EXPECT_TRUE(Proxy(proxy).isRemote());
}

TEST(Stub, OfThisProcessIsNotRemoteAndDescribesItselfAsNothing) {
    const auto stub = SharedRefBase::make<Stub>();
    EXPECT_FALSE(stub->isRemote());
    EXPECT_EQ(STATUS_OK, stub->dump(1, nullptr, 0));
    EXPECT_EQ(STATUS_OK, stub->handleShellCommand(0, 1, 2, nullptr, 0));
    EXPECT_EQ(STATUS_OK, Proxy(stub->asBinder()).dump(1, nullptr, 0));
    EXPECT_FALSE(Proxy(stub->asBinder()).isRemote());
}

TEST(Stub, ManyThreadsGetTheSameBinderObject) {
    const auto stub = SharedRefBase::make<Stub>();
    std::vector<SpAIBinder> binders(8);
    Threads(8, [&](int i) { binders[static_cast<size_t>(i)] = stub->asBinder(); }).join();
    EXPECT_EQ(std::vector<SpAIBinder>(binders.size(), stub->asBinder()), binders);
    EXPECT_EQ(1, stub->mCreated);
}

TEST(InterfaceClass, KnowsDescriptorAndNames) {
    EXPECT_STREQ("test.Interface", AIBinder_Class_getDescriptor(interfaceClass()));
    EXPECT_STREQ("call", AIBinder_Class_getFunctionName(interfaceClass(), 1));
    EXPECT_EQ(nullptr, AIBinder_Class_getFunctionName(interfaceClass(), 0));
    EXPECT_EQ(nullptr, AIBinder_Class_getFunctionName(interfaceClass(), 2));
    EXPECT_EQ(nullptr, AIBinder_Class_getFunctionName(countedClass(), 1));
}

// ---- Text for people

enum class Colour : int32_t { RED };
std::string toString(Colour /*colour*/) {
    return "RED";
}
struct Shape {
    std::string toString() const { return "Shape{}"; }
};

TEST(ToString, WritesWhatInterfacesCarry) {
    using android::internal::ToString;
    EXPECT_EQ("-5", ToString(int32_t{-5}));
    EXPECT_EQ("9223372036854775807", ToString(INT64_MAX));
    EXPECT_EQ("200", ToString(uint8_t{200}));
    EXPECT_EQ("true", ToString(true));
    EXPECT_EQ("RED", ToString(Colour::RED));
    EXPECT_EQ("Shape{}", ToString(Shape()));
    EXPECT_EQ("[]", ToString(std::vector<int32_t>()));
    EXPECT_EQ("[1, 2, 3]", ToString(std::vector<int32_t>{1, 2, 3}));
    EXPECT_EQ("[true, false]", ToString(std::vector<bool>{true, false}));
    EXPECT_EQ("(null)", ToString(std::shared_ptr<Interface>()));
    EXPECT_EQ("(interface)", ToString(std::shared_ptr<Interface>(SharedRefBase::make<Stub>())));
}

}  // namespace
