// SPDX-License-Identifier: Apache-2.0
// The end of a service's socket. The test plays the part of the I/O thread.
#include <android/binder_ibinder.h>
#include <gtest/gtest.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/linux/src/ServiceListener.h"
#include "tests/platform/RawPeer.h"
#include "tests/support/LogCapture.h"
#include "tests/support/TestDirectory.h"
#include "tests/utils/SystemCalls.h"

namespace {

BinderRef newObject() {
    static AIBinder_Class* const sClass = AIBinder_Class_define(
        "test.IThing", [](void* data) { return data; }, [](void*) {},
        [](AIBinder*, transaction_code_t, const AParcel*, AParcel*) -> binder_status_t {
            return STATUS_UNKNOWN_TRANSACTION;
        });
    return BinderRef(AIBinder_new(sClass, nullptr));
}

TEST(ServiceListenerTest, ClientThatConnectedInTimeIsServedThoughTheSocketRetiresMeanwhile) {
    const TestDirectory directory;
    const std::string path = directory.path() + "/name.service";
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    memcpy(address.sun_path, path.c_str(), path.size());
    UniqueFd socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    ASSERT_EQ(bind(socket.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    ASSERT_EQ(listen(socket.get(), 1), 0);
    const auto listener =
        std::make_shared<ServiceListener>("name", path, std::move(socket), UniqueFd(), newObject());
    const UniqueFd client = connectTo(directory.path(), "name");
    const LogCapture log;
    {
        bool retired = false;
        const BeforeEachLock meanwhile([&] {
            if (!std::exchange(retired, true)) listener->retire();
        });
        listener->onReady(EPOLLIN);
    }
    EXPECT_TRUE(sendAll(client, hello()));
    EXPECT_EQ(receive(client, hello().size()), hello());
    EXPECT_EQ(log.lines(), std::vector<LogLine>{});
}

}  // namespace
