// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/src/RemoteBinder.h"

#include "platform/linux/src/Parcel.h"
#include "utils/Log.h"

binder_status_t RemoteBinder::transact(transaction_code_t code, const AParcel& in,
                                       binder_flags_t flags, std::unique_ptr<AParcel>* out) {
    if (!mAlive) return STATUS_DEAD_OBJECT;
    LateCommand::runQueued();
    const binder_status_t status = mLink->transact(mHandle, code, in, flags, out);
    if (status == STATUS_DEAD_OBJECT) setDead();
    return status;
}

void RemoteBinder::onLastStrong() {
    const std::vector<DeathLink> ended = endDeathLinks(*this);
    mLink->releaseProxy(*this);
    for (const DeathLink& link : ended) reportUnlinked(link);
}

bool RemoteBinder::isOfInterface(const std::string& descriptor) {
    const AParcel nothing;
    std::unique_ptr<AParcel> reply;
    binder_status_t status = transact(kInterfaceTransaction, nothing, 0, &reply);
    std::string theirs;
    if (status == STATUS_OK) status = reply->readString(&theirs);
    if (status != STATUS_OK) {
        LUM_LOGE("binder: an object expected to be %s does not say what it is (status %d)",
                 descriptor.c_str(), status);
        return false;
    }
    if (theirs == descriptor) return true;
    LUM_LOGE("binder: an object expected to be %s is %s", descriptor.c_str(), theirs.c_str());
    return false;
}
