// SPDX-License-Identifier: Apache-2.0
// A request over sd-bus, one thread on each side: through the daemon, and over a socket of their
// own.
#include <sys/socket.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "bench/requests.h"

namespace {

constexpr char kName[] = "lum.Bench";
constexpr char kPath[] = "/lum/Bench";
constexpr uint64_t kForever = UINT64_MAX;

void check(int result) {
    if (result < 0) abort();
}

[[noreturn]] void serve(sd_bus* bus) {
    check(sd_bus_add_object(
        bus, nullptr, kPath,
        [](sd_bus_message* call, void* /*data*/, sd_bus_error* /*error*/) {
            uint32_t slot = 0;
            uint32_t first = 0;
            uint32_t second = 0;
            if (sd_bus_message_read(call, "uuu", &slot, &first, &second) < 0) return 0;
            return sd_bus_reply_method_return(call, "uu", first, second);
        },
        nullptr));
    Helper::report(0);
    for (;;) {
        if (sd_bus_process(bus, nullptr) == 0) check(sd_bus_wait(bus, kForever));
    }
}

sd_bus* overDaemon(const std::string& address) {
    sd_bus* bus = nullptr;
    check(sd_bus_new(&bus));
    check(sd_bus_set_address(bus, address.c_str()));
    check(sd_bus_set_bus_client(bus, 1));
    check(sd_bus_start(bus));
    return bus;
}

void serveOverDaemon(const std::string& address) {
    sd_bus* const bus = overDaemon(address);
    check(sd_bus_request_name(bus, kName, 0));
    serve(bus);
}

void serveDirectly(const std::string& /*argument*/) {
    sd_bus* bus = nullptr;
    check(sd_bus_new(&bus));
    check(sd_bus_set_fd(bus, Helper::kGiven, Helper::kGiven));
    check(sd_bus_set_server(bus, 1, SD_ID128_MAKE(1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1)));
    check(sd_bus_start(bus));
    serve(bus);
}
const bool gRoles =
    Helper::addRole("sd-bus", serveOverDaemon) && Helper::addRole("sd-bus direct", serveDirectly);

class Client {
  public:
    explicit Client(sd_bus* bus) : mBus(bus) {}
    ~Client() { sd_bus_close_unref(mBus); }
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    void send() {
        check(sd_bus_call_method_async(
            mBus, nullptr, kName, kPath, kName, "Set",
            [](sd_bus_message* reply, void* self, sd_bus_error* /*error*/) {
                if (sd_bus_message_is_method_error(reply, nullptr) != 0) abort();
                ++static_cast<Client*>(self)->mAnswered;
                return 0;
            },
            this, "uuu", 1, 2, 3));
    }
    void wait(int count) {
        while (mAnswered < count) {
            const int result = sd_bus_process(mBus, nullptr);
            check(result);
            if (result == 0) check(sd_bus_wait(mBus, kForever));
        }
        mAnswered = 0;
    }

  private:
    sd_bus* const mBus;
    int mAnswered = 0;
};

// Its address.
std::string daemonAddress() {
    return "unix:path=" + socketDirectory() + "/bus";
}

class OverDaemon {
  public:
    std::vector<pid_t> others() const { return {mDaemon.pid(), mService.pid()}; }
    void send() { mClient.send(); }
    void wait(int count) { mClient.wait(count); }

  private:
    const Helper mDaemon{std::vector<std::string>{
        "dbus-daemon", "--session", "--nofork", "--nopidfile", "--address=" + daemonAddress(),
        "--print-address=" + std::to_string(Helper::kReport)}};
    const Helper mService{"sd-bus", daemonAddress()};
    Client mClient{overDaemon(daemonAddress())};
};
const bool gOverDaemon = registerRequests<OverDaemon>("sd-bus", {1, 64});

class Connection {
  public:
    Connection() {
        if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, mSockets.data()) !=
            0) {
            abort();
        }
    }
    ~Connection() { close(mSockets[1]); }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    // Owns its end.
    sd_bus* client() const {
        sd_bus* bus = nullptr;
        check(sd_bus_new(&bus));
        check(sd_bus_set_fd(bus, mSockets[0], mSockets[0]));
        check(sd_bus_start(bus));
        return bus;
    }
    int service() const { return mSockets[1]; }

  private:
    std::array<int, 2> mSockets{};
};

class Direct {
  public:
    std::vector<pid_t> others() const { return {mService.pid()}; }
    void send() { mClient.send(); }
    void wait(int count) { mClient.wait(count); }

  private:
    const Connection mConnection;
    const Helper mService{"sd-bus direct", "", mConnection.service()};
    Client mClient{mConnection.client()};
};
const bool gDirect = registerRequests<Direct>("sd-bus direct", {1, 64});

}  // namespace
