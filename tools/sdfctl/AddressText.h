// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/socket.h>

#include <string>

// Reads the address and port of one end of a flow: 192.0.2.1:5000, [2001:db8::1]:443, an address
// without a port (192.0.2.1, 2001:db8::1, [2001:db8::1]), or "none", which is all 0. Returns false,
// and leaves `address` as it is, for other text.
bool readAddress(const std::string& text, sockaddr_storage& address);

// The same text for an address; the port is left out when it is 0. "family " and a word or number
// for one that is neither IPv4 nor IPv6, nor none.
std::string addressText(const sockaddr_storage& address);
