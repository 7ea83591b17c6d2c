// SPDX-License-Identifier: Apache-2.0
// lum_sdf_emulator: a stand-in for the device's data service, a process of its own that client
// libraries find under the service's name. Its help says how it is used.

#include <android/binder_manager.h>
#include <android/binder_process.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <sstream>
#include <string>
#include <system_error>
#include <thread>

#include "tools/LimitedCall.h"
#include "tools/emulator/BinderService.h"
#include "tools/emulator/ClientTable.h"
#include "tools/emulator/CommandLine.h"
#include "tools/emulator/HeapCount.h"
#include "tools/emulator/LineWriter.h"
#include "tools/emulator/MessageLog.h"
#include "tools/emulator/ProcessStats.h"
#include "tools/emulator/StateText.h"
#include "tools/place/Place.h"

namespace {

// A standard stream that is closed leaves its number to whatever is opened next, a record for one,
// and lines for it would land there.
void holdStandardStreams() {
    for (int fd = 0; fd >= 0 && fd <= STDERR_FILENO;) {
        fd = fcntl(fd, F_GETFD) >= 0 ? fd + 1 : open("/dev/null", O_RDWR);
    }
}

// Blocks the signals that the main thread waits for; threads made later inherit that.
// Returns a descriptor to read them from.
int takeSignals() {
    (void)signal(SIGPIPE, SIG_IGN);  // nobody may be reading what is printed
    sigset_t waited;
    sigemptyset(&waited);
    sigaddset(&waited, SIGTERM);
    sigaddset(&waited, SIGINT);
    sigaddset(&waited, SIGUSR1);
    sigaddset(&waited, SIGUSR2);
    pthread_sigmask(SIG_BLOCK, &waited, nullptr);
    return signalfd(-1, &waited, SFD_CLOEXEC);
}

// Whether a process is dead. One that hangs does not answer.
bool isDead(const ndk::SpAIBinder& object) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    return callUntil(end, [object] { return AIBinder_ping(object.get()); }) == STATUS_DEAD_OBJECT;
}

// A name that is served would be taken over, which whoever started another emulator before has
// hardly meant. A service manager may be the last to hear that the one who had it has died.
bool nameIsTaken() {
    const ndk::SpAIBinder holder(AServiceManager_checkService(BinderService::descriptor));
    return holder.get() != nullptr && !isDead(holder);
}

bool registerService(const std::shared_ptr<BinderService>& service) {
    if (nameIsTaken()) {
        fprintf(stderr, "lum_sdf_emulator: cannot serve %s: another process serves it\n",
                BinderService::descriptor);
        return false;
    }
    const binder_exception_t refused =
        AServiceManager_addService(service->asBinder().get(), BinderService::descriptor);
    if (refused == EX_NONE) return true;
    fprintf(stderr, "lum_sdf_emulator: cannot serve %s: %s\n", BinderService::descriptor,
            reasonOf(refused));
    return false;
}

// To be asked before anything else is opened, which could take that number.
bool canSayReady(int readyFd) {
    if (readyFd < 0 || fcntl(readyFd, F_GETFD) >= 0) return true;
    fprintf(stderr, "lum_sdf_emulator: cannot write to descriptor %d: %s\n", readyFd,
            strerror(errno));
    return false;
}

// The descriptor is the starter's way to wait; whether it still waits does not matter here. Returns
// false, and leaves the descriptor, when the line cannot be printed: some wait for that line.
bool sayReady(MessageLog& log, int readyFd) {
    const std::string line =
        std::string("ready: ") + BinderService::descriptor + " pid=" + std::to_string(getpid());
    log.say(line);
    if (log.printFailed()) return false;
    if (readyFd >= 0) (void)LineWriter(readyFd, true).write(line);
    return true;
}

// Counting takes a descriptor; when none is left, it says so instead, and the service goes on.
void sayStats(MessageLog& log, const ClientTable& clients, const ServiceLogic& work) try {
    const size_t filters = work.filters();
    const int64_t blocks = heapBlocks();  // before the line makes more
    const size_t descriptors = openDescriptors();
    log.say("stats: clients=" + std::to_string(clients.all().size()) + " descriptors=" +
            std::to_string(descriptors) + " threads=" + std::to_string(runningThreads()) +
            " heap_blocks=" + std::to_string(blocks) + " filters=" + std::to_string(filters));
} catch (const std::system_error& error) {
    log.notice(std::string("no stats: ") + error.what());
}

void sayState(MessageLog& log, const ServiceLogic& work) {
    const nlohmann::ordered_json state = work.describe();
    std::istringstream text(asText(state));
    for (std::string line; std::getline(text, line);) log.say(line);
    log.say("state: clients=" + std::to_string(state["clients"].size()));
}

// Reads on until there is nothing more to come. Returns false when the input has ended.
bool inputGoesOn() {
    char ignored[4096];
    const ssize_t length = read(STDIN_FILENO, ignored, sizeof ignored);
    return length > 0 || (length < 0 && (errno == EINTR || errno == EAGAIN));
}

// Runs until something asks for the end. Waits for nothing else, so that it always hears of that.
void waitForEnd(int signals, bool untilEof, MessageLog& log, const ClientTable& clients,
                BinderService& service) {
    pollfd waited[] = {{signals, POLLIN, 0}, {untilEof ? STDIN_FILENO : -1, POLLIN, 0}};
    for (;;) {
        if (poll(waited, 2, -1) < 0) continue;
        if (waited[1].revents != 0 && !inputGoesOn()) return;
        if ((waited[0].revents & POLLIN) == 0) continue;
        signalfd_siginfo got{};
        if (read(signals, &got, sizeof got) != sizeof got) continue;
        if (got.ssi_signo == SIGUSR1) {
            service.inspect([&](const ServiceLogic& work) { sayStats(log, clients, work); });
        } else if (got.ssi_signo == SIGUSR2) {
            service.inspect([&](const ServiceLogic& work) { sayState(log, work); });
        } else {
            return;
        }
    }
}

int statusOf(const MessageLog& log) {
    return log.failed() ? 1 : 0;
}

// Lets the process end as it should a few seconds from now, whatever its threads are at: a flood
// whose messages are printed for a slow reader takes hours.
void limitEnd(const MessageLog& log) {
    constexpr unsigned int kLimitSeconds = 5;
    (void)signal(
        SIGALRM, log.failed() ? [](int) { _exit(1); } : [](int) { _exit(0); });
    (void)alarm(kLimitSeconds);
}

// As a service that crashes: nothing is put in order, nobody is notified.
void dieAtOnce() {
    (void)kill(getpid(), SIGKILL);
    for (;;) pause();
}

int serve(const Options& options) {
    if (!canSayReady(options.readyFd)) return 1;
    holdStandardStreams();
    const int signals = takeSignals();
    if (signals < 0) {
        fprintf(stderr, "lum_sdf_emulator: no signal descriptor: %s\n", strerror(errno));
        return 1;
    }
    const auto log = std::make_shared<MessageLog>(options.print);
    if (!options.record.empty() && !log->recordTo(options.record)) {
        fprintf(stderr, "lum_sdf_emulator: cannot record to %s: %s\n", options.record.c_str(),
                strerror(errno));
        return 1;
    }
    ClientTable& clients = ClientTable::instance();
    const auto service = ndk::SharedRefBase::make<BinderService>(
        ServiceLogic::Config{options.policy, options.rules, dieAtOnce}, clients, log);
    // Before the service is registered: the calls for that try again to make a thread that could
    // not be made. On a thread that ends, since it gets another name: the process keeps its own in
    // process lists.
    std::thread(ABinderProcess_startThreadPool).join();
    if (!registerService(service)) return 1;
    if (sayReady(*log, options.readyFd)) {
        waitForEnd(signals, options.untilEof, *log, clients, *service);
    }
    limitEnd(*log);
    service->stop();
    return statusOf(*log);
}

}  // namespace

int main(int argc, char** argv) try {
    int status = 0;
    const std::optional<Options> options = parseCommandLine(argc, argv, &status);
    if (!options) return status;
    // Before any other thread could read the environment.
    if (options->debugLog) setenv("LUM_DEBUG_LOG", "1", 1);
    return serve(*options);
} catch (const std::exception& error) {
    fprintf(stderr, "lum_sdf_emulator: %s\n", error.what());
    return 1;
}
