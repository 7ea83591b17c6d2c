// SPDX-License-Identifier: Apache-2.0
#include "tools/sdfctl/AddressText.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <cstring>

#include "tools/sdfctl/Words.h"

namespace {

struct Parts {
    std::string host;
    std::string port;  // empty: none given
    bool hasPort = false;
};

// A port after the address, unless the colons are those of an IPv6 address.
bool split(const std::string& text, Parts& parts) {
    size_t hostEnd = text.size();
    size_t hostBegin = 0;
    size_t rest = text.size();
    if (text.rfind('[', 0) == 0) {
        hostBegin = 1;
        hostEnd = text.find(']');
        if (hostEnd == std::string::npos) return false;
        rest = hostEnd + 1;
    } else if (text.find(':') == text.rfind(':') && text.find(':') != std::string::npos) {
        hostEnd = text.find(':');
        rest = hostEnd;
    }
    parts.host = text.substr(hostBegin, hostEnd - hostBegin);
    if (rest == text.size()) return true;
    if (text[rest] != ':') return false;
    parts.hasPort = true;
    parts.port = text.substr(rest + 1);
    return true;
}

template <typename Address>
sockaddr_storage inStorage(const Address& address) {
    sockaddr_storage storage{};
    memcpy(&storage, &address, sizeof address);
    return storage;
}

}  // namespace

bool readAddress(const std::string& text, sockaddr_storage& address) {
    if (text == "none") {
        address = sockaddr_storage{};
        return true;
    }
    Parts parts;
    int64_t port = 0;
    if (!split(text, parts)) return false;
    if (parts.hasPort && !readNumber(parts.port, 0, UINT16_MAX, port)) return false;
    const in_port_t portBytes = htons(static_cast<uint16_t>(port));
    sockaddr_in four{};
    sockaddr_in6 six{};
    if (text[0] != '[' && inet_pton(AF_INET, parts.host.c_str(), &four.sin_addr) == 1) {
        four.sin_family = AF_INET;
        four.sin_port = portBytes;
        address = inStorage(four);
        return true;
    }
    if (inet_pton(AF_INET6, parts.host.c_str(), &six.sin6_addr) == 1) {
        six.sin6_family = AF_INET6;
        six.sin6_port = portBytes;
        address = inStorage(six);
        return true;
    }
    return false;
}

std::string addressText(const sockaddr_storage& address) {
    char host[INET6_ADDRSTRLEN] = "";
    if (address.ss_family == AF_INET) {
        sockaddr_in four{};
        memcpy(&four, &address, sizeof four);
        inet_ntop(AF_INET, &four.sin_addr, host, sizeof host);
        return four.sin_port == 0 ? host : host + (":" + std::to_string(ntohs(four.sin_port)));
    }
    if (address.ss_family == AF_INET6) {
        sockaddr_in6 six{};
        memcpy(&six, &address, sizeof six);
        inet_ntop(AF_INET6, &six.sin6_addr, host, sizeof host);
        if (six.sin6_port == 0) return host;
        return std::string("[") + host + "]:" + std::to_string(ntohs(six.sin6_port));
    }
    const sockaddr_storage none{};
    if (memcmp(&address, &none, sizeof none) == 0) return "none";
    return "family " + wordOf(familyWords(), address.ss_family);
}
