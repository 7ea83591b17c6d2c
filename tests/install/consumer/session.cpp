// SPDX-License-Identifier: Apache-2.0
//
// Wants latency levels and prints those in force. Exits with status 0 if they are those asked for.
#include <chrono>
#include <iostream>
#include <lum_sdf_session.hpp>

int main() {
    bool right = false;
    lum::sdf::Session session;
    session.setLevels(SDF_SLOT_ID_SECOND, SDF_LATENCY_LVL_3, SDF_LATENCY_LVL_4, true,
                      [&](int error, SdfLatencyLvl first, SdfLatencyLvl second) {
                          right = error == 0 && first == SDF_LATENCY_LVL_3 &&
                                  second == SDF_LATENCY_LVL_4;
                          std::cout << first << ' ' << second << '\n';
                          session.stop();
                      });
    session.run();
    session.close(std::chrono::seconds(30));
    return right ? 0 : 1;
}
