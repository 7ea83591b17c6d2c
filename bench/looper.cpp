// SPDX-License-Identifier: Apache-2.0
// The same as post.cpp with the platform's own loop, whose headers have names of this tree's.
#include <utils/Looper.h>

#include "flood.h"

namespace {

// A message carries a number and no value.
class LooperHandler : public android::MessageHandler {
  public:
    void handleMessage(const android::Message& /*message*/) override { ++mHandled; }
    int64_t mHandled = 0;
};

void looperPost(benchmark::State& state) {
    const android::sp<android::Looper> looper = new android::Looper(false);
    const android::sp<LooperHandler> handler = new LooperHandler;
    flood(
        state, handler->mHandled,
        [&](const Value& /*value*/) { looper->sendMessage(handler, android::Message(1)); },
        [&] { looper->pollOnce(-1); });
}
LUM_FLOOD(looperPost, "looper:post");

}  // namespace
