// SPDX-License-Identifier: Apache-2.0
#include "tools/sdfctl/Words.h"

#include <arpa/inet.h>
#include <lum_sdf_sdk.h>
#include <netinet/in.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace {

Words makeAppTypeWords() {
    Words words{{"unspecified", SDF_APP_TYPE_UNSPECIFIED},
                {"highest", SDF_APP_TYPE_TRAFFIC_PRIO_HIGHEST}};
    for (int32_t n = SDF_APP_TYPE_TRAFFIC_PRIO_2; n <= SDF_APP_TYPE_TRAFFIC_PRIO_31; ++n) {
        words.push_back({"priority-" + std::to_string(n), n});
    }
    words.push_back({"best-effort", SDF_APP_TYPE_TRAFFIC_PRIO_BE});
    return words;
}

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

const Words& slotWords() {
    static const Words words{{"unspecified", SDF_SLOT_ID_UNSPECIFIED},
                             {"first", SDF_SLOT_ID_FIRST},
                             {"second", SDF_SLOT_ID_SECOND}};
    return words;
}

const Words& levelWords() {
    static const Words words{{"level-1", SDF_LATENCY_LVL_1}, {"level-2", SDF_LATENCY_LVL_2},
                             {"level-3", SDF_LATENCY_LVL_3}, {"level-4", SDF_LATENCY_LVL_4},
                             {"level-5", SDF_LATENCY_LVL_5}, {"level-6", SDF_LATENCY_LVL_6}};
    return words;
}

const Words& oodWords() {
    static const Words words{{"unspecified", SDF_OOD_UNSPECIFIED_LVL},
                             {"enabled", SDF_OOD_ENABLED_LVL},
                             {"disabled", SDF_OOD_DISABLED_LVL}};
    return words;
}

const Words& protocolWords() {
    static const Words words{{"none", SDF_PROTOCOL_NONE},
                             {"tcp", SDF_PROTOCOL_TCP},
                             {"udp", SDF_PROTOCOL_UDP},
                             {"tcpudp", SDF_PROTOCOL_TCPUDP}};
    return words;
}

const Words& appTypeWords() {
    static const Words words = makeAppTypeWords();
    return words;
}

const Words& filterStatusWords() {
    static const Words words{{"pending", SDF_FILTER_PENDING},
                             {"active", SDF_FILTER_ACTIVE},
                             {"inactivity-timeout", SDF_FILTER_INACTIVITY_TIMEOUT},
                             {"deleted", SDF_FILTER_DELETED},
                             {"duplicate", SDF_FILTER_ERROR_DUPLICATE},
                             {"limit-reached", SDF_FILTER_ERROR_LIMIT_REACHED},
                             {"invalid-arguments", SDF_FILTER_ERROR_INVALID_ARGS},
                             {"internal-error", SDF_FILTER_ERROR_INTERNAL},
                             {"no-permission", SDF_FILTER_ERROR_NO_PERMISSION}};
    return words;
}

const Words& familyWords() {
    static const Words words{
        {"unspecified", AF_UNSPEC}, {"inet", AF_INET}, {"inet6", AF_INET6}, {"unix", AF_UNIX}};
    return words;
}

const Words& switchWords() {
    static const Words words{{"on", 1}, {"off", 0}};
    return words;
}

bool readNumber(const std::string& text, int64_t lowest, int64_t highest, int64_t& value) {
    // strtoll() would also take spaces and signs in front.
    const size_t digits = text.rfind('-', 0) == 0 ? 1 : 0;
    if (digits == text.size() || text[digits] < '0' || text[digits] > '9') return false;
    const bool hexadecimal = text.compare(digits, 2, "0x") == 0;
    char* end = nullptr;
    errno = 0;
    const long long number = strtoll(text.c_str(), &end, hexadecimal ? 16 : 10);
    if (errno != 0 || end != text.c_str() + text.size()) return false;
    if (number < lowest || number > highest) return false;
    value = number;
    return true;
}

bool readWord(const Words& words, const std::string& text, int32_t& value) {
    const auto found = std::find_if(words.begin(), words.end(),
                                    [&](const Word& word) { return word.text == text; });
    if (found != words.end()) {
        value = found->value;
        return true;
    }
    int64_t number = 0;
    if (!readNumber(text, INT32_MIN, INT32_MAX, number)) return false;
    value = static_cast<int32_t>(number);
    return true;
}

std::string wordOf(const Words& words, int32_t value) {
    const auto found = std::find_if(words.begin(), words.end(),
                                    [&](const Word& word) { return word.value == value; });
    return found == words.end() ? std::to_string(value) : found->text;
}

std::vector<std::string> textsOf(const Words& words) {
    std::vector<std::string> texts;
    texts.reserve(words.size());
    for (const Word& word : words) texts.push_back(word.text);
    return texts;
}

std::string listOf(const std::vector<std::string>& texts) {
    std::string list;
    for (const std::string& text : texts) list += (list.empty() ? "" : ", ") + text;
    return list;
}

std::string shortListOf(const Words& words) {
    constexpr size_t kMost = 10;
    if (words.size() <= kMost) return listOf(words);
    return words[0].text + ", " + words[1].text + ", " + words[2].text + " ... " +
           words.back().text;
}

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
