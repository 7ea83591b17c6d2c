// SPDX-License-Identifier: Apache-2.0
// lum_sdf_emulator: a stand-in for the device's data service, a process of its own that client
// libraries find under the service's name. Its help says how it is used.

#include <android/binder_manager.h>
#include <android/binder_process.h>
#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <system_error>

#include "tools/emulator/ClientTable.h"
#include "tools/emulator/HeapCount.h"
#include "tools/emulator/MessageLog.h"
#include "tools/emulator/ProcessStats.h"
#include "tools/emulator/Service.h"

namespace {

constexpr char kAbout[] =
    R"(Stands in for the device's data service: serves clients of the library liblum_sdf_sdk.

It registers the name vendor.orn.data.lumservice.ILumService, keeps the callback object of each
client until that client disables or dies, answers
  enable             with the status indication "service up",
  set latency level  with the levels asked for, as those in force,
prints every other request as "notice: ignored a request" and does not answer it. What is not a
request at all is refused, so that the client learns of it.)";

constexpr char kFooter[] =
    R"(Ready: when clients can find the service it prints one line to standard output,
  ready: vendor.orn.data.lumservice.ILumService pid=NNN
Notices about odd requests follow there, one a line, after "notice: ".

Signals:
  SIGTERM, SIGINT  end the service; exit status 0
  SIGUSR1          prints one line to standard output,
                     stats: clients=N descriptors=N threads=N heap_blocks=N
                   where heap_blocks is the exact number of blocks that operator new has handed
                   out and not got back

Environment:
  LUM_BINDER_DIR   the folder in which services and clients meet. Two emulators can run at once
                   in two folders. Default: $XDG_RUNTIME_DIR/lum-binder, or /tmp/lum-binder-UID
  LUM_DEBUG_LOG=1  as --debug-log

Exit status: 0 when ended by a signal or by --until-eof; 1 when it cannot serve (the name is taken,
or the folder cannot be used); another one when the command line is wrong.)";

struct Options {
    bool print = false;
    bool debugLog = false;
    bool untilEof = false;
    int readyFd = -1;
    std::string record;
};

void describe(CLI::App& app, Options& options) {
    app.footer(kFooter);
    app.add_flag("--print", options.print,
                 "Print each message received and sent, and each client that comes and goes, one "
                 "line each");
    app.add_option("--record", options.record,
                   "Append each message received and sent to this file, one JSON object a line: "
                   "time, direction, pid, uid, type, hex, event, text")
        ->type_name("FILE");
    app.add_option("--ready-fd", options.readyFd,
                   "Write the line that says it is ready to this descriptor too, and close it")
        ->type_name("N")
        ->check(CLI::NonNegativeNumber);
    app.add_flag("--until-eof", options.untilEof,
                 "End when standard input ends, for starters that must not leave it behind");
    app.add_flag("--debug-log", options.debugLog,
                 "Show every line of the platform log on standard error, debug lines included");
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
    pthread_sigmask(SIG_BLOCK, &waited, nullptr);
    return signalfd(-1, &waited, SFD_CLOEXEC);
}

const char* reasonOf(binder_exception_t refused) {
    if (refused == EX_SECURITY) return "the socket folder is not safe to use";
    if (refused == EX_ILLEGAL_ARGUMENT) return "the socket folder's path is too long";
    return "another process serves it, or the socket folder cannot be used";
}

bool registerService(const std::shared_ptr<Service>& service) {
    const binder_exception_t refused =
        AServiceManager_addService(service->asBinder().get(), Service::descriptor);
    if (refused == EX_NONE) return true;
    fprintf(stderr, "lum_sdf_emulator: cannot serve %s: %s\n", Service::descriptor,
            reasonOf(refused));
    return false;
}

// The descriptor is the starter's way to wait; whether it still waits does not matter here.
void tellReady(MessageLog& log, int readyFd) {
    const std::string line =
        std::string("ready: ") + Service::descriptor + " pid=" + std::to_string(getpid());
    log.say(line);
    if (readyFd >= 0) (void)LineWriter(readyFd, true).write(line);
}

// Counting takes a descriptor; when none is left, that is told instead, and the service goes on.
void tellStats(MessageLog& log, const ClientTable& clients) try {
    const int64_t blocks = heapBlocks();  // before the line makes more
    const size_t descriptors = openDescriptors();
    log.say("stats: clients=" + std::to_string(clients.size()) + " descriptors=" +
            std::to_string(descriptors) + " threads=" + std::to_string(runningThreads()) +
            " heap_blocks=" + std::to_string(blocks));
} catch (const std::system_error& error) {
    log.notice(std::string("no stats: ") + error.what());
}

// Reads on until there is nothing more to come. Returns false when the input has ended.
bool inputGoesOn() {
    char ignored[4096];
    const ssize_t length = read(STDIN_FILENO, ignored, sizeof ignored);
    return length > 0 || (length < 0 && (errno == EINTR || errno == EAGAIN));
}

// Runs until something asks for the end.
void waitForEnd(int signals, bool untilEof, MessageLog& log, const ClientTable& clients) {
    pollfd waited[] = {{signals, POLLIN, 0}, {untilEof ? STDIN_FILENO : -1, POLLIN, 0}};
    for (;;) {
        if (poll(waited, 2, -1) < 0) continue;
        if (waited[1].revents != 0 && !inputGoesOn()) return;
        if ((waited[0].revents & POLLIN) == 0) continue;
        signalfd_siginfo got{};
        if (read(signals, &got, sizeof got) != sizeof got) continue;
        if (got.ssi_signo != SIGUSR1) return;
        tellStats(log, clients);
    }
}

int serve(const Options& options) {
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
    const auto service = ndk::SharedRefBase::make<Service>(clients, log);
    if (!registerService(service)) return 1;
    ABinderProcess_startThreadPool();
    tellReady(*log, options.readyFd);
    waitForEnd(signals, options.untilEof, *log, clients);
    return 0;
}

}  // namespace

int main(int argc, char** argv) try {
    CLI::App app(kAbout, "lum_sdf_emulator");
    Options options;
    describe(app, options);
    CLI11_PARSE(app, argc, argv);
    // Before any other thread could read the environment.
    if (options.debugLog) setenv("LUM_DEBUG_LOG", "1", 1);
    return serve(options);
} catch (const std::exception& error) {
    fprintf(stderr, "lum_sdf_emulator: %s\n", error.what());
    return 1;
}
