// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <android/binder_auto_utils.h>
#include <android/binder_ibinder.h>
#include <android/binder_manager.h>
#include <android/binder_parcel.h>
#include <android/binder_parcel_utils.h>
#include <android/binder_process.h>
#include <android/binder_stability.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

// What the tests of the binder layer and the process they call have in common.

constexpr char kPeerDescriptor[] = "lum.test.IPeer";

// The methods of the peer's object. In and out are int32 unless said otherwise.
enum PeerCode : transaction_code_t {
    kAdd = 1,          // two numbers; their sum
    kNote,             // a number, kept in a list; meant for one-way calls
    kNoted,            // out: how many are kept, and 1 if they are 0, 1, 2... in order
    kCallBack,         // an object and a number: the object's kAdd of number and 1; out: its sum
    kKeep,             // an object, or null, kept in place of the one before
    kGetKept,          // out: the kept object
    kMakeObject,       // out: a new object of the peer, with an interface of its own
    kObjectsEnded,     // out: how many of those have ended
    kIsOwnObject,      // an object; out: 1 if it is one that kMakeObject returned, 2 if the service
    kHold,             // does not return before kLetGo
    kLetGo,            // lets every kHold go that is waiting
    kHolding,          // out: how many kHold are waiting now
    kWho,              // out: the caller's uid and pid, as the peer sees them
    kNoteWho,          // the same, kept; meant for one-way calls
    kGetNotedWho,      // out: what kNoteWho kept
    kBig,              // a number and a byte array; out: a byte array of that many bytes
    kRelay,            // a text "name/name/...": calls kRelay of the first name with the rest;
                       // out: how many names that were
    kOnewayAddToKept,  // a number: from a one-way call, kAdd of it and 1 on the kept object, and
                       // the result sent to it by a one-way kNote
    kPassOn,           // a name and an object: hands it to that service's kKeep; out: the status
    kReturn,           // a number: returns it as its status
    kServe,            // a name: serves the peer's object under that, too; out: what came of it
};

// Makes a class whose objects answer nothing of their own.
// onDestroy: called with what an object was made with.
inline AIBinder_Class* plainClass(
    const char* descriptor, AIBinder_Class_onDestroy onDestroy = [](void*) {}) {
    return AIBinder_Class_define(
        descriptor, [](void* args) { return args; }, onDestroy,
        [](AIBinder*, transaction_code_t, const AParcel*, AParcel*) -> binder_status_t {
            return STATUS_UNKNOWN_TRANSACTION;
        });
}

// Makes an interface whose objects do as `handler` says. userData: a PeerHandler, deleted with the
// object.
using PeerHandler =
    std::function<binder_status_t(transaction_code_t code, const AParcel* in, AParcel* out)>;
inline AIBinder_Class* peerClass() {
    static AIBinder_Class* const clazz = AIBinder_Class_define(
        kPeerDescriptor, [](void* args) { return args; },
        [](void* userData) { delete static_cast<PeerHandler*>(userData); },
        [](AIBinder* binder, transaction_code_t code, const AParcel* in, AParcel* out) {
            return (*static_cast<PeerHandler*>(AIBinder_getUserData(binder)))(code, in, out);
        });
    return clazz;
}
inline ndk::SpAIBinder makePeerObject(PeerHandler handler) {
    return ndk::SpAIBinder(AIBinder_new(peerClass(), new PeerHandler(std::move(handler))));
}

using Fill = std::function<void(AParcel*)>;
using Take = std::function<void(const AParcel*)>;

// Calls a method of an object that is, or becomes, one of kPeerDescriptor.
// fill: writes the arguments; take: reads the reply.
// Returns the transaction's status.
inline binder_status_t callPeer(const ndk::SpAIBinder& binder, transaction_code_t code,
                                const Fill& fill = nullptr, const Take& take = nullptr,
                                binder_flags_t flags = 0) {
    if (AIBinder_getClass(binder.get()) == nullptr &&
        !AIBinder_associateClass(binder.get(), peerClass())) {
        return STATUS_DEAD_OBJECT;
    }
    ndk::ScopedAParcel in;
    ndk::ScopedAParcel out;
    const binder_status_t status = AIBinder_prepareTransaction(binder.get(), in.getR());
    if (status != STATUS_OK) return status;
    if (fill != nullptr) fill(in.get());
    AParcel* const parcel = in.release();
    AParcel* handedOver = parcel;
    const binder_status_t called =
        AIBinder_transact(binder.get(), code, &handedOver, out.getR(), flags);
    if (called == STATUS_OK && take != nullptr) take(out.get());
    return called;
}

// Calls a method without waiting for it.
inline binder_status_t callOneway(const ndk::SpAIBinder& binder, transaction_code_t code,
                                  const Fill& fill = nullptr) {
    return callPeer(binder, code, fill, nullptr, FLAG_ONEWAY);
}

inline void put(AParcel* in, int32_t value) {
    AParcel_writeInt32(in, value);
}
inline void put(AParcel* in, const std::string& text) {
    ndk::AParcel_writeVector(in, std::vector<uint8_t>(text.begin(), text.end()));
}
inline void put(AParcel* in, const ndk::SpAIBinder& binder) {
    AParcel_writeStrongBinder(in, binder.get());
}
inline void put(AParcel* in, const std::vector<int8_t>& bytes) {
    ndk::AParcel_writeVector(in, bytes);
}

inline void get(const AParcel* out, int32_t* value) {
    AParcel_readInt32(out, value);
}
inline void get(const AParcel* out, ndk::SpAIBinder* binder) {
    AParcel_readStrongBinder(out, binder->getR());
}
inline void get(const AParcel* out, std::vector<int8_t>* bytes) {
    ndk::AParcel_readVector(out, bytes);
}
inline void get(const AParcel* out, std::string* text) {
    std::vector<uint8_t> bytes;
    ndk::AParcel_readVector(out, &bytes);
    text->assign(bytes.begin(), bytes.end());
}

// Writes these values, which are of the kinds above.
template <typename... Values>
Fill args(const Values&... values) {
    return [=](AParcel* in) { (put(in, values), ...); };
}
// Reads a reply into these.
template <typename... Values>
Take into(Values*... values) {
    return [=](const AParcel* out) { (get(out, values), ...); };
}
