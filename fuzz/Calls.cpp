// SPDX-License-Identifier: Apache-2.0
// Every function with any arguments, messages of the service, refusals, deaths, in any order, also
// from inside callbacks; from nothing, or from a client that awaits everything: the library and a
// model of it agree.
#include "fuzz/ClientInStep.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    Input input(bytes, size);
    ClientInStep client(input);
    if (input.flag()) client.startUpWithAll();
    while (client.canGoOn()) client.anyStep();
    return 0;
}
