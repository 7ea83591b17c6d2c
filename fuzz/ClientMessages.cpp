// SPDX-License-Identifier: Apache-2.0
// Messages of the service, well-formed or not, to a client that has all callbacks set and much
// under way; its callbacks call back. The library and a model of it agree.
#include "fuzz/ClientInStep.h"
#include "fuzz/Messages.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    Input input(bytes, size);
    ClientInStep client(input);
    client.startUpWithAll();
    while (client.canGoOn()) {
        client.message(makeMessage(input, [&client] { return client.anyId(); }));
    }
    return 0;
}
