// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/src/Status.h"

#include <cstdlib>
#include <cstring>
#include <new>
#include <string>
#include <utility>

#include "utils/NoDestroy.h"

struct AStatus {
    binder_exception_t exception = EX_NONE;
    // The service's own number, or a low-level code, as the exception says.
    int32_t number = 0;
    std::string message;
};

namespace {

// Handed out where a status is needed and there is no memory; never ended.
struct OutOfMemory : AStatus {
    OutOfMemory() noexcept : AStatus{EX_TRANSACTION_FAILED, STATUS_NO_MEMORY, {}} {}
};
NoDestroy<AStatus> gOk;
NoDestroy<OutOfMemory> gOutOfMemory;

AStatus* make(binder_exception_t exception, int32_t number, const char* message) noexcept {
    try {
        return new AStatus{exception, number, message};
    } catch (const std::bad_alloc&) {
        return &gOutOfMemory.value;
    }
}

// Returns the name of a code, null for a code nobody knows.
const char* statusName(binder_status_t status) {
    switch (status) {
        case STATUS_OK: return "STATUS_OK";
        case STATUS_UNKNOWN_ERROR: return "STATUS_UNKNOWN_ERROR";
        case STATUS_NO_MEMORY: return "STATUS_NO_MEMORY";
        case STATUS_INVALID_OPERATION: return "STATUS_INVALID_OPERATION";
        case STATUS_BAD_VALUE: return "STATUS_BAD_VALUE";
        case STATUS_BAD_TYPE: return "STATUS_BAD_TYPE";
        case STATUS_NAME_NOT_FOUND: return "STATUS_NAME_NOT_FOUND";
        case STATUS_PERMISSION_DENIED: return "STATUS_PERMISSION_DENIED";
        case STATUS_NO_INIT: return "STATUS_NO_INIT";
        case STATUS_ALREADY_EXISTS: return "STATUS_ALREADY_EXISTS";
        case STATUS_DEAD_OBJECT: return "STATUS_DEAD_OBJECT";
        case STATUS_FAILED_TRANSACTION: return "STATUS_FAILED_TRANSACTION";
        case STATUS_BAD_INDEX: return "STATUS_BAD_INDEX";
        case STATUS_NOT_ENOUGH_DATA: return "STATUS_NOT_ENOUGH_DATA";
        case STATUS_WOULD_BLOCK: return "STATUS_WOULD_BLOCK";
        case STATUS_TIMED_OUT: return "STATUS_TIMED_OUT";
        case STATUS_UNKNOWN_TRANSACTION: return "STATUS_UNKNOWN_TRANSACTION";
        case STATUS_FDS_NOT_ALLOWED: return "STATUS_FDS_NOT_ALLOWED";
        case STATUS_UNEXPECTED_NULL: return "STATUS_UNEXPECTED_NULL";
        default: return nullptr;
    }
}

const char* exceptionName(binder_exception_t exception) {
    switch (exception) {
        case EX_NONE: return "EX_NONE";
        case EX_SECURITY: return "EX_SECURITY";
        case EX_BAD_PARCELABLE: return "EX_BAD_PARCELABLE";
        case EX_ILLEGAL_ARGUMENT: return "EX_ILLEGAL_ARGUMENT";
        case EX_NULL_POINTER: return "EX_NULL_POINTER";
        case EX_ILLEGAL_STATE: return "EX_ILLEGAL_STATE";
        case EX_NETWORK_MAIN_THREAD: return "EX_NETWORK_MAIN_THREAD";
        case EX_UNSUPPORTED_OPERATION: return "EX_UNSUPPORTED_OPERATION";
        case EX_SERVICE_SPECIFIC: return "EX_SERVICE_SPECIFIC";
        case EX_PARCELABLE: return "EX_PARCELABLE";
        case EX_TRANSACTION_FAILED: return "EX_TRANSACTION_FAILED";
        default: return nullptr;
    }
}

std::string describe(const AStatus& status) {
    if (status.exception == EX_NONE) return "No error";
    std::string text = "Status(" + std::to_string(status.exception) + ", " +
                       exceptionName(status.exception) + "): '";
    if (status.exception == EX_SERVICE_SPECIFIC) {
        text += std::to_string(status.number) + ": ";
    } else if (status.exception == EX_TRANSACTION_FAILED) {
        text += std::string(statusName(status.number)) + ": ";
    }
    return text + status.message + "'";
}

}  // namespace

binder_status_t knownStatus(binder_status_t status) noexcept {
    return statusName(status) == nullptr ? STATUS_UNKNOWN_ERROR : status;
}

AStatus* AStatus_newOk() {
    return &gOk.value;
}

AStatus* AStatus_fromExceptionCode(binder_exception_t exception) {
    return AStatus_fromExceptionCodeWithMessage(exception, "");
}

AStatus* AStatus_fromExceptionCodeWithMessage(binder_exception_t exception, const char* message) {
    if (exception == EX_NONE) return AStatus_newOk();
    if (exception == EX_TRANSACTION_FAILED || exceptionName(exception) == nullptr)
        return make(EX_TRANSACTION_FAILED, STATUS_FAILED_TRANSACTION, message);
    return make(exception, 0, message);
}

AStatus* AStatus_fromServiceSpecificError(int32_t serviceSpecific) {
    return make(EX_SERVICE_SPECIFIC, serviceSpecific, "");
}

AStatus* AStatus_fromServiceSpecificErrorWithMessage(int32_t serviceSpecific, const char* message) {
    return make(EX_SERVICE_SPECIFIC, serviceSpecific, message);
}

AStatus* AStatus_fromStatus(binder_status_t status) {
    if (status == STATUS_OK) return AStatus_newOk();
    return make(EX_TRANSACTION_FAILED, knownStatus(status), "");
}

bool AStatus_isOk(const AStatus* status) {
    return status->exception == EX_NONE;
}

binder_exception_t AStatus_getExceptionCode(const AStatus* status) {
    return status->exception;
}

int32_t AStatus_getServiceSpecificError(const AStatus* status) {
    return status->exception == EX_SERVICE_SPECIFIC ? status->number : 0;
}

binder_status_t AStatus_getStatus(const AStatus* status) {
    return status->exception == EX_TRANSACTION_FAILED ? status->number : STATUS_OK;
}

const char* AStatus_getMessage(const AStatus* status) {
    return status->message.c_str();
}

const char* AStatus_getDescription(const AStatus* status) {
    try {
        return strdup(describe(*status).c_str());
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

void AStatus_deleteDescription(const char* description) {
    free(const_cast<char*>(description));
}

void AStatus_delete(AStatus* status) {
    if (status != &gOk.value && status != &gOutOfMemory.value) delete status;
}
