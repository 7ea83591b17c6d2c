// SPDX-License-Identifier: Apache-2.0
#pragma once

// Takes the place of the session's Connector, which works on a thread of its own: clients are made
// when the program says so.

// Whether the session waits for a client.
bool isClientWanted();
// Destroys the client, if there is one, and makes the next, or fails to for want of descriptors.
void makeClient(bool possible);
// Whether a closed session's client is still to be destroyed: it is when nobody waits for that.
bool isClosing();
void finishClosing();
