// SPDX-License-Identifier: Apache-2.0
// The end of a service's socket. The test has the clients accepted.
#include <gtest/gtest.h>
#include <sys/epoll.h>
#include <sys/socket.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/linux/src/ServiceListener.h"
#include "tests/platform/PeerInterface.h"
#include "tests/platform/RawPeer.h"
#include "tests/support/LogCapture.h"
#include "tests/support/TestDirectory.h"
#include "tests/utils/SystemCalls.h"

namespace {

TEST(ServiceListenerTest, ClientThatConnectedInTimeIsServedThoughTheSocketRetiresMeanwhile) {
    const TestDirectory directory;
    const std::string path = directory.path() + "/name.service";
    UniqueFd socket = socketAt(path, bind);
    ASSERT_EQ(listen(socket.get(), 1), 0);
    const auto listener = std::make_shared<ServiceListener>(
        "name", path, std::move(socket), UniqueFd(), BinderRef(makePeerObject(nullptr).release()));
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
    expectBytes(client, hello());
    EXPECT_EQ(log.lines(), std::vector<LogLine>{});
}

}  // namespace
