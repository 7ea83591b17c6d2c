// SPDX-License-Identifier: Apache-2.0
//
// Asks for latency levels and prints those in force. Exits with status 0 if they are those asked
// for.
#include <lum_sdf_sdk.h>

#include <chrono>
#include <future>
#include <iostream>
#include <utility>

namespace {

using Levels = std::pair<SdfLatencyLvl, SdfLatencyLvl>;

std::promise<Levels> gAnswer;

void onLevels(long long, SdfLatencyLvl first, SdfLatencyLvl second) {
    gAnswer.set_value({first, second});
}

void onStatus(int status) {
    if (status != SDF_V2_SERVICE_UP) return;
    sdfSetLatencyLvl(SDF_SLOT_ID_SECOND, SDF_LATENCY_LVL_3, SDF_LATENCY_LVL_4, true, onLevels);
}

}  // namespace

int main() {
    createSdfClient(onStatus);
    std::future<Levels> answer = gAnswer.get_future();
    if (answer.wait_for(std::chrono::seconds(30)) != std::future_status::ready) return 1;
    const Levels levels = answer.get();
    destroySdfClient();
    std::cout << levels.first << ' ' << levels.second << '\n';
    return levels == Levels(SDF_LATENCY_LVL_3, SDF_LATENCY_LVL_4) ? 0 : 1;
}
