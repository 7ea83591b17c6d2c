// SPDX-License-Identifier: Apache-2.0
//
// lum_sdf_demo SERVICE: shows an application and the data service at work together, loss of the
// service included, and says step by step what happens. SERVICE is the program of the service
// emulator; the demo starts it, kills it and starts it again, as processes of its own.
//
// What an application has to do stands in main(); the rest is there to start the service and to
// show what the library does. Exits with status 0 if everything happened that should, else says
// what did not.

#define _GNU_SOURCE
#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <lum_sdf_sdk.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <stdarg.h>
#include <stdatomic.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

enum {
    kLimitSeconds = 30,    // after this time something counts as not happening
    kAskAgainSeconds = 5,  // after this time without the service, ask for it again
    kMaxEvents = 64,
};

// ---- What the library tells us ------------------------------------------------------------------

// One call of a callback. The callbacks only note it, since they should return soon; the main
// thread prints it when it waits.
struct Event {
    bool isStatus;
    int status;    // of onStatus()
    long long id;  // of onLevels(), like the rest
    SdfLatencyLvl first;
    SdfLatencyLvl second;
    int thread;  // that made the call
    const char* threadName;
};

static pthread_mutex_t gLock = PTHREAD_MUTEX_INITIALIZER;
static pthread_cond_t gArrived;  // made in main(), on the clock that deadlines are in
static struct Event gEvents[kMaxEvents];
static int gEventCount;  // guarded by gLock, like gEvents
static int gEventsSeen;  // by the main thread

// Which of the process's threads is this? The platform's binder threads bear their name.
static const char* nameOfThisThread(void) {
    char name[16] = "";
    if (gettid() == getpid()) return "the main thread";
    pthread_getname_np(pthread_self(), name, sizeof name);
    return strncasecmp(name, "binder", 6) == 0 ? "a binder thread" : "the library's own thread";
}

static void note(struct Event event) {
    event.thread = gettid();
    event.threadName = nameOfThisThread();
    pthread_mutex_lock(&gLock);
    if (gEventCount < kMaxEvents) gEvents[gEventCount++] = event;
    pthread_cond_signal(&gArrived);
    pthread_mutex_unlock(&gLock);
}

// The status callback: the library calls it when the service comes, goes, or reports trouble.
static void onStatus(int status) {
    note((struct Event){.isStatus = true, .status = status});
}

// The callback of sdfSetLatencyLvl(): the service has answered.
static void onLevels(long long id, SdfLatencyLvl first, SdfLatencyLvl second) {
    note((struct Event){.id = id, .first = first, .second = second});
}

static const char* textOf(long long status) {
    switch (status) {
        case SDF_V2_SUCCESS: return "SDF_V2_SUCCESS: success";
        case SDF_V2_INVALID: return "SDF_V2_INVALID: invalid";
        case SDF_V2_INVALID_ARG: return "SDF_V2_INVALID_ARG: invalid argument";
        case SDF_V2_INTERNAL_ERROR: return "SDF_V2_INTERNAL_ERROR: internal error";
        case SDF_V2_NOT_SUPPORTED: return "SDF_V2_NOT_SUPPORTED: not supported";
        case SDF_V2_INVALID_OPERATION: return "SDF_V2_INVALID_OPERATION: invalid operation";
        case SDF_V2_SERVICE_UP: return "SDF_V2_SERVICE_UP: service up";
        case SDF_V2_SERVICE_DOWN: return "SDF_V2_SERVICE_DOWN: service down";
        default: return status > 0 ? "the id of the request" : "unknown";
    }
}

static void print(const struct Event* event) {
    if (event->isStatus) {
        printf("    callback onStatus(%d, %s)", event->status, textOf(event->status));
    } else {
        printf(
            "    callback onLevels(id %lld, first SDF_LATENCY_LVL_%d, second SDF_LATENCY_LVL_%d)",
            event->id, event->first, event->second);
    }
    printf(", brought by %s (thread %d)\n", event->threadName, event->thread);
}

static struct timespec inSeconds(int seconds) {
    struct timespec time;
    clock_gettime(CLOCK_MONOTONIC, &time);
    time.tv_sec += seconds;
    return time;
}

// Waits for the next call of a callback and prints it; false when the time is up first.
static bool nextEvent(struct timespec deadline, struct Event* event) {
    int error = 0;
    pthread_mutex_lock(&gLock);
    while (gEventsSeen == gEventCount && error == 0) {
        error = pthread_cond_timedwait(&gArrived, &gLock, &deadline);
    }
    const bool arrived = gEventsSeen < gEventCount;
    if (arrived) *event = gEvents[gEventsSeen++];
    pthread_mutex_unlock(&gLock);
    if (arrived) print(event);
    return arrived;
}

static bool statusArrives(int status, int seconds) {
    const struct timespec deadline = inSeconds(seconds);
    struct Event event;
    while (nextEvent(deadline, &event)) {
        if (event.isStatus && event.status == status) return true;
    }
    return false;
}

static bool levelsArrive(long long id, SdfLatencyLvl first, SdfLatencyLvl second) {
    const struct timespec deadline = inSeconds(kLimitSeconds);
    struct Event event;
    while (nextEvent(deadline, &event)) {
        if (!event.isStatus && event.id == id) {
            return event.first == first && event.second == second;
        }
    }
    return false;
}

// ---- Telling the user ---------------------------------------------------------------------------

static void step(const char* what) {
    static int number;
    printf("\n%d. %s\n", ++number, what);
}

static pthread_mutex_t gEnding = PTHREAD_MUTEX_INITIALIZER;

// Ends the demo. Two threads must not call exit() at once: the one that comes second waits here
// until the other has ended the process.
static _Noreturn void endDemo(int status) {
    pthread_mutex_lock(&gEnding);
    exit(status);
}

// Ends the demo unless it happened.
static void require(bool happened, const char* what) {
    if (happened) return;
    fprintf(stderr, "\nThe demo failed. This did not happen: %s.\n", what);
    endDemo(1);
}

// Shows a call, given in the way of printf, with what it returned, and returns that.
__attribute__((format(printf, 2, 3))) static long long told(long long returned, const char* call,
                                                            ...) {
    va_list arguments;
    va_start(arguments, call);
    printf("    ");
    vprintf(call, arguments);
    va_end(arguments);
    printf(" returned %lld (%s)\n", returned, textOf(returned));
    return returned;
}

// ---- The service, a process of its own ----------------------------------------------------------

static const char* gProgram;                         // of the service
static atomic_int gService;                          // its process, 0 while there is none
static char gFolder[] = "/tmp/lum-sdf-demo-XXXXXX";  // where it and its clients meet

static void killService(void) {
    const int service = atomic_exchange(&gService, 0);
    if (service == 0) return;
    kill(service, SIGKILL);
    waitpid(service, NULL, 0);
}

// In the new process: becomes the service. What it prints would only come between our own lines.
static _Noreturn void becomeService(pid_t demo, int readyFd) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);   // it must not outlive the demo, however that ends
    if (getppid() != demo) _exit(127);  // the demo was faster
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, NULL);
    // Copied, a descriptor stays open in the new program; as number 3 already, it has to be told
    // to.
    if (readyFd == 3) {
        fcntl(readyFd, F_SETFD, 0);
    } else {
        dup2(readyFd, 3);
    }
    dup2(open("/dev/null", O_RDWR | O_CLOEXEC), STDOUT_FILENO);
    execl(gProgram, gProgram, "--ready-fd", "3", (char*)NULL);
    fprintf(stderr, "cannot run %s: %s\n", gProgram, strerror(errno));
    _exit(127);
}

// Waits until a descriptor can be read, with a limit.
static bool readableInTime(int fd) {
    struct pollfd waited = {.fd = fd, .events = POLLIN};
    return poll(&waited, 1, kLimitSeconds * 1000) == 1;
}

static void startService(void) {
    int ready[2];
    char first = 0;
    require(pipe2(ready, O_CLOEXEC) == 0, "making a pipe");
    const pid_t demo = getpid();
    const pid_t service = fork();
    if (service == 0) becomeService(demo, ready[1]);
    require(service > 0, "starting a process for the service");
    atomic_store(&gService, service);
    close(ready[1]);
    // It writes a line when clients can find it, and nothing if it ends before.
    const bool serves = readableInTime(ready[0]) && read(ready[0], &first, 1) == 1;
    close(ready[0]);
    require(serves, "the service, started with the program given, gets ready");
    printf("    the service is ready: process %d\n", service);
}

// ---- Leaving nothing behind ---------------------------------------------------------------------

static void removeFolder(void) {
    DIR* const folder = opendir(gFolder);
    if (folder == NULL) return;
    const struct dirent* entry = NULL;
    while ((entry = readdir(folder)) != NULL) {
        if (entry->d_name[0] != '.') unlinkat(dirfd(folder), entry->d_name, 0);
    }
    closedir(folder);
    rmdir(gFolder);
}

static void cleanUp(void) {
    killService();
    removeFolder();
}

// Ends the demo in the usual way when the user breaks it off.
static void* waitForSignal(void* signals) {
    int number = 0;
    sigwait(signals, &number);
    endDemo(128 + number);
}

static void prepare(void) {
    static sigset_t signals;
    pthread_t watcher;
    pthread_condattr_t monotonic;

    setvbuf(stdout, NULL, _IOLBF, BUFSIZ);  // lines come as they happen, into a pipe too

    pthread_condattr_init(&monotonic);
    pthread_condattr_setclock(&monotonic, CLOCK_MONOTONIC);
    pthread_cond_init(&gArrived, &monotonic);
    pthread_condattr_destroy(&monotonic);

    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGHUP);
    pthread_sigmask(SIG_BLOCK, &signals, NULL);

    // A folder of our own, so that several demos can run at once.
    require(mkdtemp(gFolder) != NULL, "making a folder under /tmp");
    atexit(cleanUp);
    setenv("LUM_BINDER_DIR", gFolder, 1);
    require(pthread_create(&watcher, NULL, waitForSignal, &signals) == 0, "making a thread");
    pthread_detach(watcher);
}

// ---- The demo -----------------------------------------------------------------------------------

// One request that the service answers: latency levels for the first SIM slot.
static void askForLevels(SdfLatencyLvl first, SdfLatencyLvl second) {
    const long long id = told(
        sdfSetLatencyLvl(SDF_SLOT_ID_FIRST, first, second, false, onLevels),
        "sdfSetLatencyLvl(SDF_SLOT_ID_FIRST, SDF_LATENCY_LVL_%d, SDF_LATENCY_LVL_%d, false, onLevels)",
        first, second);
    require(id > 0, "sdfSetLatencyLvl() returns the id of its request");
    require(levelsArrive(id, first, second), "onLevels() is told that the levels are in force");
}

// Asks for the service until it is there. A call makes one attempt to connect, in the background,
// and one that finds no service is not reported.
static void createUntilUp(void) {
    const struct timespec deadline = inSeconds(kLimitSeconds);
    struct timespec now;
    do {
        require(told(createSdfClient(onStatus), "createSdfClient(onStatus)") == 0,
                "createSdfClient() returns 0");
        if (statusArrives(SDF_V2_SERVICE_UP, kAskAgainSeconds)) return;
        now = inSeconds(0);
    } while (now.tv_sec < deadline.tv_sec);
    require(false, "onStatus() is told that the service is up (-7)");
}

int main(int argc, char** argv) {
    if (argc != 2) {
        fprintf(stderr, "usage: %s PROGRAM_OF_THE_SERVICE\n", argv[0]);
        return 2;
    }
    gProgram = argv[1];
    prepare();
    printf("An application uses the data service. Its main thread is thread %d.\n", gettid());

    step("The data service is started, as a process of its own.");
    startService();

    step("The client is created. The library connects in the background and tells onStatus().");
    createUntilUp();

    step("Requests are accepted now. We ask for latency levels, and onLevels() gets the answer.");
    askForLevels(SDF_LATENCY_LVL_2, SDF_LATENCY_LVL_4);

    step("The service is killed. The library notices and tells onStatus().");
    printf("    kill -9 %d\n", atomic_load(&gService));
    killService();
    require(statusArrives(SDF_V2_SERVICE_DOWN, kLimitSeconds),
            "onStatus() is told that the service is down (-8)");

    step("Without the service, requests are refused.");
    const long long refused = told(
        sdfSetLatencyLvl(SDF_SLOT_ID_FIRST, SDF_LATENCY_LVL_1, SDF_LATENCY_LVL_3, false, onLevels),
        "sdfSetLatencyLvl(SDF_SLOT_ID_FIRST, SDF_LATENCY_LVL_1, SDF_LATENCY_LVL_3, false, onLevels)");
    require(refused == SDF_V2_SERVICE_DOWN, "sdfSetLatencyLvl() returns -8");

    step("The service is started again.");
    startService();

    step("Only createSdfClient() makes the library connect again. We call it until -7 comes.");
    createUntilUp();

    step("Requests are accepted again.");
    askForLevels(SDF_LATENCY_LVL_6, SDF_LATENCY_LVL_1);

    step("The client is destroyed, and the service is told that it leaves.");
    require(told(destroySdfClient(), "destroySdfClient()") == 0, "destroySdfClient() returns 0");

    printf("\nThe demo is done: everything happened as it should.\n");
    endDemo(0);
}
