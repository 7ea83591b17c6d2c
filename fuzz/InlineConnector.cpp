// SPDX-License-Identifier: Apache-2.0
#include "fuzz/InlineConnector.h"

#include <lum_sdf_session.h>

#include <utility>

#include "session/Connector.h"
#include "session/Inbox.h"
#include "session/Lane.h"

namespace {

bool gOpen = false;
bool gClosing = false;
bool gWanted = false;
bool gClient = false;
int gLane = 0;

void destroyClient() {
    while (std::exchange(gClient, false) && destroySdfClient() == SDF_V2_INTERNAL_ERROR)
        gClient = true;
}

}  // namespace

bool isClientWanted() {
    return gWanted;
}

void makeClient(bool possible) {
    gWanted = false;
    destroyClient();
    gLane = (gLane + 1) % Lane::kLanes;
    Inbox::instance().accept(gLane);
    const long long result =
        possible ? createSdfClient(Lane::at(gLane).status) : SDF_V2_INTERNAL_ERROR;
    gClient = result == SDF_V2_SUCCESS;
    Inbox::instance().push(gLane, ClientMadeEvent{result});
}

bool isClosing() {
    return gClosing;
}

void finishClosing() {
    destroyClient();
    gOpen = false;
    gClosing = false;
}

Connector& Connector::instance() {
    static Connector& connector = *new Connector;
    return connector;
}

int Connector::open() {
    if (gOpen) return gClosing ? SDF_SESSION_CLOSING : SDF_SESSION_EXISTS;
    gOpen = true;
    return 0;
}

void Connector::connect() {
    gWanted = true;
}

int Connector::lane() const {
    return gLane;
}

bool Connector::close(unsigned int milliseconds) {
    gWanted = false;
    gClosing = gClient && milliseconds == 0;
    if (!gClosing) finishClosing();
    return !gClosing;
}
