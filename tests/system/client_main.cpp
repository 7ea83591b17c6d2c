// SPDX-License-Identifier: Apache-2.0
// emulator_client: a client in a process of its own. Registers and says "registered"; then, for
// each line of its input, "TYPE NUMBER HEX...", sends that request as the feature TYPE, waits until
// NUMBER messages have come in all, and says "got" and the last of them.

#include <iostream>
#include <sstream>
#include <string>

#include "tests/system/EmulatorClient.h"

int main() {
    const EmulatorClient client;
    std::cout << "registered" << std::endl;
    for (std::string line; std::getline(std::cin, line);) {
        std::istringstream words(line);
        int32_t type = 0;
        size_t number = 0;
        std::string hex;
        words >> type >> number;
        std::getline(words, hex);
        if (!client.send(hex, type).isOk()) {
            std::cout << "refused" << std::endl;
            continue;
        }
        const std::vector<Inbox::Blob> blobs = client.inbox().waitFor(number);
        std::cout << "got " << (blobs.empty() ? "nothing" : blobs.back().hex) << std::endl;
    }
    return 0;
}
