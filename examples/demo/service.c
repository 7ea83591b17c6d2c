// SPDX-License-Identifier: Apache-2.0
#define _GNU_SOURCE
#include "service.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <stdatomic.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "callbacks.h"
#include "tell.h"

static const char* gProgram;                            // of the service
static atomic_int gService;                             // its process, 0 while there is none
static char gDirectory[] = "/tmp/lum-sdf-demo-XXXXXX";  // where it and its clients meet

void killService(void) {
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
    // Copied, a descriptor stays open in the new program; one that is number 3 already has to be
    // set to.
    if (readyFd == 3) {
        fcntl(readyFd, F_SETFD, 0);
    } else {
        dup2(readyFd, 3);
    }
    dup2(open("/dev/null", O_RDWR | O_CLOEXEC), STDOUT_FILENO);
    // Filters are pending for a while, as on a device.
    execlp(gProgram, gProgram, "--ready-fd", "3", "--activation-delay", "50", (char*)NULL);
    fprintf(stderr, "cannot run %s: %s\n", gProgram, strerror(errno));
    _exit(127);
}

// Waits until a descriptor can be read, with a limit.
static bool readableInTime(int fd) {
    struct pollfd waited = {.fd = fd, .events = POLLIN};
    return poll(&waited, 1, kLimitSeconds * 1000) == 1;
}

void startService(void) {
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
    require(serves, "the service is started and gets ready");
    printf("    the service is ready: process %d\n", service);
}

static void removeFolder(void) {
    DIR* const directory = opendir(gDirectory);
    if (directory == NULL) return;
    const struct dirent* entry = NULL;
    while ((entry = readdir(directory)) != NULL) {
        if (entry->d_name[0] != '.') unlinkat(dirfd(directory), entry->d_name, 0);
    }
    closedir(directory);
    rmdir(gDirectory);
}

// Leaves nothing behind.
static void cleanUp(void) {
    killService();
    removeFolder();
}

void prepareService(const char* program) {
    gProgram = program;
#ifndef __ANDROID__
    // A directory of our own, so that several demos can run at once. A device has one service.
    require(mkdtemp(gDirectory) != NULL, "making a directory under /tmp");
    setenv("LUM_BINDER_DIR", gDirectory, 1);
#endif
    atexit(cleanUp);
}

int processOfService(void) {
    return atomic_load(&gService);
}
