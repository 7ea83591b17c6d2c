// SPDX-License-Identifier: Apache-2.0
// A session in a soak: what it wants changes at random, each report is checked, and at rest the
// service has to keep what is wanted.
//
// usage: soak_session SEED [FAULT]
//   FAULT, which the soak has to notice: stale, the service keeps something else
//
// It prints "ready". Then each line of standard input is a command, as for soak_client: strict and
// loose, which are the same here; calm; rest, which reports "rest blocks=N bytes=N requests=N" with
// the number of changes.

#include <malloc.h>
#include <poll.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>

#include "tests/session/ServiceState.h"
#include "tests/session/Wanted.h"
#include "tests/support/AllocationLimit.h"

namespace {

constexpr size_t kFilters = 16;
constexpr unsigned int kLongestPause = 1000;
// For the service to answer, in milliseconds: one that misbehaves may not, any other does, however
// slow the machine is.
constexpr unsigned int kDeadline = 5000;
constexpr unsigned int kPatientDeadline = 120000;

class SessionClient {
  public:
    SessionClient(unsigned int seed, bool stale) : mWanted(seed), mStale(stale) {
        mWanted.open(1, kLongestPause, kDeadline);
        mWanted.wantEverything(kFilters);
        puts("ready");
        (void)fflush(stdout);
    }

    void command(const std::string& command) {
        sdfSessionSetAnswerDeadline(mWanted.session(),
                                    command == "loose" ? kDeadline : kPatientDeadline);
        if (command == "rest") {
            rest();
        } else if (command == "calm") {
            if (!mWanted.dispatchUntilServed()) {
                fail("the service does not come to what is wanted");
            }
            mCalmUps = mWanted.ups();
        }
        mResting = command == "rest";
    }
    bool isResting() const { return mResting; }
    void change() {
        ++mChanges;
        mWanted.change();
        mWanted.dispatch(static_cast<int>(mWanted.pick(20)));
    }
    void dispatch() { sdfSessionDispatch(mWanted.session()); }
    int fd() { return sdfSessionFd(mWanted.session()); }
    void close() { mWanted.close(); }
    // Whether everything was as it has to be; says so if not.
    bool isWell() {
        if (mWanted.violation().empty()) return mWell;
        return fail(mWanted.violation());
    }

  private:
    void rest() {
        mWanted.stopReports();
        if (mStale) sdfSessionSetDdsPdcpTimer(mWanted.session(), 1000000);
        if (!mWanted.trim()) fail("the service does not come to what is wanted");
        if (mWanted.ups() != mCalmUps) {
            fail(std::string("lost in a calm: ") + mWanted.whyLost());
        }
        malloc_trim(0);
        printf("rest blocks=%jd bytes=%jd requests=%u\n", intmax_t{allocatedBlocks()},
               intmax_t{allocatedBytes()}, mChanges);
        (void)fflush(stdout);
    }
    bool fail(const std::string& what) {
        printf("%s\nit keeps  %s\nwanted is %s\n", what.c_str(), serviceState().dump().c_str(),
               mWanted.expected().dump().c_str());
        return mWell = false;
    }

    Wanted mWanted;
    const bool mStale;
    bool mWell = true;
    bool mResting = true;
    size_t mCalmUps = 0;
    unsigned int mChanges = 0;
};

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) return 2;
    SessionClient client(static_cast<unsigned int>(std::stoul(argv[1])),
                         argc > 2 && std::string(argv[2]) == "stale");
    std::string line;
    while (client.isWell()) {
        pollfd waited[] = {{STDIN_FILENO, POLLIN, 0}, {client.fd(), POLLIN, 0}};
        poll(waited, 2, client.isResting() ? -1 : 0);
        if (waited[0].revents != 0) {
            char letter = 0;
            if (read(STDIN_FILENO, &letter, 1) <= 0) break;
            if (letter == '\n') {
                client.command(std::exchange(line, ""));
            } else {
                line += letter;
            }
        } else if (client.isResting()) {
            client.dispatch();
        } else {
            client.change();
        }
    }
    if (client.isWell()) client.close();
    (void)fflush(stdout);
    _exit(client.isWell() ? 0 : 1);
}
