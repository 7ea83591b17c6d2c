// SPDX-License-Identifier: Apache-2.0
#include <memory>

#include "tools/sdfctl/Callbacks.h"
#include "tools/sdfctl/Commands.h"

namespace {

constexpr char kNullCallback[] = "Give the library a null callback";

Action create(Arguments& arguments) {
    const auto null = std::make_shared<bool>(false);
    arguments.flag("--null-callback", *null, kNullCallback);
    return [null](Session& session) {
        session.create(*null);
        if (session.settings().answers) session.serviceUp();
    };
}

Action destroy(Arguments&) {
    return [](Session& session) {
        session.judge();
        session.destroy();
    };
}

Action enable(Arguments& arguments) {
    const auto null = std::make_shared<bool>(false);
    arguments.flag("--null-callback", *null, kNullCallback);
    return [null](Session& session) {
        const SdfLegacyStatusCb cb = *null ? nullptr : callbacks::onLegacyStatus;
        session.asking();
        if (session.callOlder("lum_sdf_enable", [cb] { return lum_sdf_enable(cb); }) == 1) {
            session.clientMade();
        }
        if (session.settings().answers) session.serviceUp();
    };
}

Action disable(Arguments&) {
    return [](Session& session) {
        session.judge();
        session.disable();
    };
}

}  // namespace

std::vector<Command> lifecycleCommands() {
    return {
        {"create", "createSdfClient(): make the client, or ask for the service again", create},
        {"destroy", "destroySdfClient(): destroy the client", destroy},
        {"enable", "lum_sdf_enable(): \"create\" with the older status codes", enable},
        {"disable", "lum_sdf_disable(): \"destroy\" with the older results", disable},
    };
}
