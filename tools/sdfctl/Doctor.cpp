// SPDX-License-Identifier: Apache-2.0
#include <unistd.h>

#include <cstdio>
#include <optional>

#include "tools/place/Place.h"
#include "tools/sdfctl/Callbacks.h"
#include "tools/sdfctl/Printer.h"
#include "tools/sdfctl/Programs.h"
#include "tools/sdfctl/ServiceProbe.h"
#include "tools/sdfctl/Session.h"

namespace {

constexpr char kAbout[] =
    R"(Says what stands between this program and a working service. It takes the steps that the library
takes, one after the other, as a client of its own, and ends at the first that fails:
  directory on Linux: the directory in which services and clients meet can be used
  driver    on Linux with LUM_BINDER, in its place: the binder driver's device can be used, and has a
            service manager
  service   somebody serves the service's name
  callback  the service accepts a callback object
  send      the service accepts a message: the request to serve this client
  up        the service then says that it is up
  answer    the service answers a request that changes nothing
  library   the library, asked to make a client, learns that the service is up)";

constexpr char kExits[] =
    R"(Exit status: 0 everything works; otherwise the step that failed: 10 directory or driver, 11
service, 12 callback, 13 send, 14 up, 15 answer, 16 library. 2 when the command line is wrong.)";

struct Step {
    const char* name;
    int exitStatus;
    const char* went;    // what to say when it went well
    const char* advice;  // what to do about the trouble that only this step meets
};

constexpr char kDiedAdvice[] = "It died of this call: look into its log, start it again.";
constexpr char kStuckAdvice[] =
    "It runs, but does not return from calls: it has been stopped, or hangs. Look into its log, let "
    "it go on, or end it and start it again.";
constexpr char kRefusedAdvice[] =
    "Its log should say why; it may not know this feature, or not serve this user. The library "
    "reports refused messages with status -3; a refused callback object it does not report, and "
    "goes on, but no status and no answer will reach it.";
constexpr char kBrokenAdvice[] =
    "It was reached, but does not carry the call out: it was built from other interface files than "
    "this program, or something in it is broken. Build both from the same files, or look into its "
    "log.";
constexpr char kLeftAdvice[] =
    "It is there, but no longer serves this client: wait, or look into its log. The library refuses "
    "all requests until createSdfClient() is called again and the service says that it is up.";

constexpr Step kService{
    "service", 11, "somebody serves the name vendor.orn.data.lumservice.ILumService",
    "Start it: on Linux lum_sdf_emulator, as this user, with the same LUM_BINDER and "
    "LUM_BINDER_DIR. On a device, see whether it runs, and whether this program may look it up."};
constexpr Step kCallback{"callback", 12, "the service accepts a callback object", kRefusedAdvice};
constexpr Step kSend{"send", 13, "the service accepts the request to serve this client",
                     kRefusedAdvice};
constexpr Step kUp{
    "up", 14, "the service says that it is up",
    "Until it does, the library refuses all requests with -8. The service runs, but is not ready, or "
    "not willing: wait, or look into its log."};
constexpr Step kAnswer{"answer", 15, "the service answers a request",
                       "It takes requests and leaves them without an answer: look into its log."};
constexpr Step kLibrary{"library", 16, "the library learns that the service is up",
                        "The service itself works, as seen above: look into the library's log."};

std::string adviceFor(const Step& step, const Trouble& trouble) {
    switch (trouble.kind) {
        case Trouble::Kind::kDied: return kDiedAdvice;
        case Trouble::Kind::kStuck: return kStuckAdvice;
        case Trouble::Kind::kLeft: return kLeftAdvice;
        case Trouble::Kind::kRefused: return kRefusedAdvice;
        case Trouble::Kind::kBroken: return kBrokenAdvice;
        case Trouble::Kind::kNone:
        case Trouble::Kind::kOther: break;
    }
    return trouble.advice.empty() ? step.advice : trouble.advice;
}

// Goes through the steps and prints how each went.
class Doctor {
  public:
    explicit Doctor(const Settings& settings) : mSettings(settings), mPrinter(settings.json) {}

    // Returns the exit status.
    int run() {
        if (checkWithoutLibrary()) check(kLibrary, libraryTrouble());
        return mExitStatus;
    }

  private:
    bool checkWithoutLibrary() {
        ServiceProbe probe(mSettings.timeout);
        const bool works = checkPlace(probe) && checkService(probe);
        // The thread of a call that does not return would be in the way of an ordinary end.
        if (probe.isStuck()) _exit(mExitStatus);  // what was printed is out
        return works;
    }

    bool checkPlace(ServiceProbe& probe) {
        const std::optional<Place> place = currentPlace();
        if (!place) return true;
        const auto look = [place]() -> Trouble {
            const Obstacle obstacle = place->obstacle(place->path);
            if (obstacle.trouble.empty()) return {};
            return {Trouble::Kind::kOther, place->path + ": " + obstacle.trouble, obstacle.advice};
        };
        Trouble trouble = place->hasManager ? probe.call(look) : look();
        if (probe.isStuck()) trouble.text = place->path + ": its service manager does not answer";
        return check({place->kind, 10, "", ""}, trouble, place->path + " can be used");
    }

    bool checkService(ServiceProbe& probe) {
        const bool works = check(kService, probe.find()) &&
                           check(kCallback, probe.registerCallback()) &&
                           check(kSend, probe.sendEnable()) && check(kUp, probe.waitForUp()) &&
                           check(kAnswer, probe.askForFilters());
        if (works) (void)probe.sendDisable();
        return works;
    }

    static Trouble other(const std::string& text) { return {Trouble::Kind::kOther, text}; }

    Trouble libraryTrouble() const {
        const Waiter waiter;
        const long long made = createSdfClient(callbacks::onStatus);
        if (made != SDF_V2_SUCCESS) {
            return other("createSdfClient() returned " + std::to_string(made));
        }
        Trouble trouble = statusTrouble(waiter);
        if (waiter.withLimit(mSettings.endLimit(), destroySdfClient)) return trouble;
        return {Trouble::Kind::kStuck, "destroySdfClient() does not return"};
    }

    Trouble statusTrouble(const Waiter& waiter) const {
        const Time end = inSeconds(mSettings.timeout);
        while (waiter.wait(end, {callbacks::events().fd()})) {
            for (const Event& event : callbacks::events().take()) {
                if (event.number("status") == SDF_V2_SERVICE_UP) return {};
                return other("it reports " + shown(event.fields, " "));
            }
        }
        return other("it reports nothing");
    }

    bool check(const Step& step, const Trouble& trouble) { return check(step, trouble, step.went); }
    // went: what to say when the step went well. Returns whether it did.
    bool check(const Step& step, const Trouble& trouble, const std::string& went) {
        const bool ok = trouble.kind == Trouble::Kind::kNone;
        const std::string advice = adviceFor(step, trouble);
        std::string name = std::string(step.name) + ":";
        name.resize(11, ' ');
        mPrinter.print(ok ? "ok      " + name + printable(went)
                          : "failed  " + name + printable(trouble.text) + "\n        " + advice,
                       {{"step", std::string(step.name)},
                        {"ok", ok},
                        {"detail", ok ? went : trouble.text},
                        {"advice", ok ? Value() : Value(advice)}});
        if (!ok) mExitStatus = step.exitStatus;
        return ok;
    }

    const Settings mSettings;
    const Printer mPrinter;
    int mExitStatus = kExitSuccess;
};

}  // namespace

Program doctorProgram() {
    return {"doctor", "Say what keeps the service from working", kAbout, kExits,
            [](Arguments&) -> std::function<int(const Settings&)> {
                return [](const Settings& settings) { return Doctor(settings).run(); };
            }};
}
