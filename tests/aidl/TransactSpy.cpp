// SPDX-License-Identifier: Apache-2.0
#include "tests/aidl/TransactSpy.h"

#include <android/binder_parcel.h>
#include <dlfcn.h>

#include <cstdlib>
#include <utility>

#include "platform/linux/src/Parcel.h"

namespace {

TransactSpy* gSpy = nullptr;

::ndk::ScopedAParcel copyOf(const AParcel* parcel) {
    ::ndk::ScopedAParcel copy(AParcel_create());
    const int32_t size = AParcel_getDataSize(parcel);
    if (AParcel_appendFrom(parcel, copy.get(), 0, size) != STATUS_OK) abort();
    return copy;
}

}  // namespace

TransactSpy::TransactSpy() {
    gSpy = this;
}

TransactSpy::~TransactSpy() {
    gSpy = nullptr;
}

binder_status_t realTransact(AIBinder* binder, transaction_code_t code, AParcel** in, AParcel** out,
                             binder_flags_t flags) {
    static const auto real =
        reinterpret_cast<decltype(&AIBinder_transact)>(dlsym(RTLD_NEXT, "AIBinder_transact"));
    if (real == nullptr) abort();
    return real(binder, code, in, out, flags);
}

extern "C" __attribute__((visibility("default"))) binder_status_t AIBinder_transact(
    AIBinder* binder, transaction_code_t code, AParcel** in, AParcel** out, binder_flags_t flags) {
    if (gSpy == nullptr) return realTransact(binder, code, in, out, flags);
    gSpy->mCalls.push_back({binder, code, flags, copyOf(*in), (*in)->bytes()});
    if (!gSpy->mAnswer) return realTransact(binder, code, in, out, flags);
    AParcel_delete(std::exchange(*in, nullptr));
    return gSpy->mAnswer(out);
}
