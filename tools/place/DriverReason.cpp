// SPDX-License-Identifier: Apache-2.0
#include "tools/place/DriverReason.h"

const char* driverReasonOf(binder_exception_t refused) {
    switch (refused) {
        case EX_SECURITY:
            return "the service manager refuses it: another user has the name, or the system's "
                   "policy does not let this process have it";
        case EX_TRANSACTION_FAILED:
            return "no service manager can be asked (\"sdfctl doctor\" says why)";
        case EX_UNSUPPORTED_OPERATION:
            return "the binder device cannot be used (\"sdfctl doctor\" says why)";
        default: return "the service manager does not accept it";
    }
}
