// SPDX-License-Identifier: Apache-2.0
// The form of the file is that of flows.schema.json, which is to be changed with this.
#include "tools/sdfctl/FlowFile.h"

#include <netinet/in.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <functional>
#include <limits>
#include <nlohmann/json.hpp>
#include <sstream>
#include <utility>

#include "tools/sdfctl/Failure.h"
#include "tools/sdfctl/Printer.h"
#include "tools/sdfctl/Record.h"

namespace {

using Json = nlohmann::ordered_json;

// A value of the file, and the path to it, such as filters[2].first; empty for the whole.
struct Node {
    const Json& value;
    std::string path;
};

// What is done with each member of an object that may be there.
using Members = std::vector<std::pair<std::string, std::function<void(const Node&)>>>;

// The values of a file, and where each of them begins.
class Document {
  public:
    Document(const std::string& text, std::string file)
        : mFile(std::move(file)), mText(text), mStream(text) {
        try {
            mRoot = Json::parse(mStream, [this](int, Json::parse_event_t event, const Json& value) {
                note(event, value);
                return true;
            });
        } catch (const nlohmann::json::exception& error) {
            // Behind "[json.exception...] ", and "parse error at line 1, column 2: " where it is
            // one.
            std::string what = error.what();
            what.erase(0, what.find("] ") + 2);
            if (what.rfind("parse error", 0) == 0) what.erase(0, what.find(": ") + 2);
            refuseAt(line(), what);
        }
    }

    Node root() const { return {mRoot, ""}; }

    [[noreturn]] void refuse(const std::string& path, const std::string& what) const {
        refuseAt(mLines.at(path), (path.empty() ? "" : path + ": ") + what);
    }

  private:
    struct Open {
        std::string path;
        bool isArray;
        size_t size = 0;
    };

    void note(Json::parse_event_t event, const Json& value) {
        switch (event) {
            case Json::parse_event_t::key:
                mNext = mOpen.back().path + (mOpen.back().path.empty() ? "" : ".") +
                        value.get<std::string>();
                noteLine(mNext);
                break;
            case Json::parse_event_t::object_start:
            case Json::parse_event_t::array_start:
                mOpen.push_back({nextPath(), event == Json::parse_event_t::array_start});
                break;
            case Json::parse_event_t::object_end:
            case Json::parse_event_t::array_end: mOpen.pop_back(); break;
            case Json::parse_event_t::value: nextPath(); break;
        }
    }

    // The path of the value that begins.
    std::string nextPath() {
        const bool isElement = !mOpen.empty() && mOpen.back().isArray;
        if (isElement) {
            mNext = mOpen.back().path + "[" + std::to_string(mOpen.back().size++) + "]";
        }
        if (isElement || mOpen.empty()) noteLine(mNext);
        return mNext;
    }

    void noteLine(const std::string& path) {
        if (!mLines.emplace(path, line()).second) {
            refuseAt(line(), path + ": is there twice");
        }
    }

    // That of the character read last: of a number that is the one behind it.
    int line() {
        const auto read = static_cast<std::ptrdiff_t>(
            mStream.rdbuf()->pubseekoff(0, std::ios::cur, std::ios::in));
        const auto begin = mText.begin() + mCounted;
        mCounted = std::max(read - 1, mCounted);
        mLine += static_cast<int>(std::count(begin, mText.begin() + mCounted, '\n'));
        return mLine;
    }

    [[noreturn]] void refuseAt(int line, const std::string& what) const {
        throw UsageError(mFile + ":" + std::to_string(line) + ": " + what);
    }

    const std::string mFile;
    const std::string& mText;
    std::istringstream mStream;
    Json mRoot;
    std::map<std::string, int> mLines;  // of each path
    // While the text is read:
    std::vector<Open> mOpen;
    std::string mNext;
    std::ptrdiff_t mCounted = 0;
    int mLine = 1;
};

// Whether a filter's address and its range of ports go together.
bool isRange(const sockaddr_storage& address, uint16_t range) {
    sockaddr_in four{};  // the port lies at the same place in both
    memcpy(&four, &address, sizeof four);
    return ntohs(four.sin_port) + range <= UINT16_MAX;
}

class Reader {
  public:
    Reader(const std::string& text, const std::string& file) : mDocument(text, file) {}

    Wishes read() {
        const auto slots = [this](const Node& node, const auto& readSlot) {
            Members members;
            for (const Word& word : slotWords()) {
                const auto slot = static_cast<SdfSlotID>(word.value);
                members.emplace_back(word.text, [=](const Node& value) { readSlot(slot, value); });
            }
            object(node, members);
        };
        object(mDocument.root(),
               {{"$schema", [](const Node&) {}},
                {"filters", [&](const Node& node) { filters(node); }},
                {"levels",
                 [&](const Node& node) {
                     slots(node,
                           [this](SdfSlotID slot, const Node& value) { levels(slot, value); });
                 }},
                {"gaming", [&](const Node& node) { mWishes.gaming = boolean(node); }},
                {"data_priority",
                 [&](const Node& node) {
                     slots(node, [this](SdfSlotID slot, const Node& value) {
                         if (boolean(value)) mWishes.dataPriority.insert(slot);
                     });
                 }},
                {"dds", [&](const Node& node) { dds(node); }},
                {"queue_reports", [&](const Node& node) { number(node, mWishes.queueReports); }},
                {"auto_filters", [&](const Node& node) { mWishes.autoFilters = boolean(node); }}});
        return std::move(mWishes);
    }

  private:
    void filters(const Node& node) {
        if (!node.value.is_array()) isNot(node, "an array");
        for (size_t i = 0; i < node.value.size(); ++i) {
            filter({node.value[i], node.path + "[" + std::to_string(i) + "]"});
        }
    }

    void filter(const Node& node) {
        Flow flow;
        SdfAddFilterInfo& info = flow.info;
        info.first_level = SDF_LATENCY_LVL_1;
        info.second_level = SDF_LATENCY_LVL_1;
        info.ood = SDF_OOD_UNSPECIFIED_LVL;
        Members members{{"name", [&](const Node& value) { flow.name = name(value); }},
                        {"src", [&](const Node& value) { address(value, info.src_addr); }},
                        {"dest", [&](const Node& value) { address(value, info.dest_addr); }},
                        {"extra", [&](const Node& value) { number(value, flow.extra); }},
                        {"dscp", [&](const Node& value) { number(value, flow.dscp); }},
                        {"renewed", [&](const Node& value) { flow.renewed = boolean(value); }}};
        forEachMember(info, [&](const char* option, auto& member, const Words* words, const char*) {
            std::function<void(const Node&)>& read =
                members.emplace_back(memberKey(option), nullptr).second;
            if constexpr (std::is_enum_v<std::decay_t<decltype(member)>>) {
                read = [&, words](const Node& value) { word(value, *words, member); };
            } else {
                read = [&](const Node& value) { number(value, member); };
            }
        });
        object(node, members, {"name", "src", "dest"});
        checkRange(node, "src", info.src_addr, info.src_port_range);
        checkRange(node, "dest", info.dest_addr, info.dest_port_range);
        mWishes.filters.push_back(flow);
    }

    void checkRange(const Node& filter, const std::string& end, const sockaddr_storage& address,
                    uint16_t range) const {
        if (isRange(address, range)) return;
        mDocument.refuse(filter.path + "." + end + "_range",
                         "behind the port of " + addressText(address) + " there are not " +
                             std::to_string(range) + " more");
    }

    std::string name(const Node& node) const {
        constexpr size_t kMost = 64;
        std::string text = node.value.is_string() ? node.value.get<std::string>() : "";
        if (text.empty() || text.size() > kMost || printable(text) != text) {
            isNot(node, "a name of 1 to 64 bytes without control characters");
        }
        for (const Flow& other : mWishes.filters) {
            if (other.name == text) mDocument.refuse(node.path, "another filter has this name");
        }
        return text;
    }

    void levels(SdfSlotID slot, const Node& node) {
        Levels& levels = mWishes.levels[slot];
        object(node,
               {{"first", [&](const Node& value) { word(value, levelWords(), levels.first); }},
                {"second", [&](const Node& value) { word(value, levelWords(), levels.second); }},
                {"flag", [&](const Node& value) { levels.flag = boolean(value); }}},
               {"first", "second"});
    }

    void dds(const Node& node) {
        object(node,
               {{"priority", [&](const Node& value) { mWishes.ddsPriority = boolean(value); }},
                {"ood", [&](const Node& value) { word(value, oodWords(), mWishes.ddsOod); }},
                {"pdcp_timer", [&](const Node& value) { number(value, mWishes.ddsPdcpTimer); }}});
    }

    // required: the names of the members that must be there.
    void object(const Node& node, const Members& members,
                const std::vector<std::string>& required = {}) const {
        if (!node.value.is_object()) isNot(node, "an object");
        for (const auto& item : node.value.items()) {
            const auto member = std::find_if(members.begin(), members.end(), [&](const auto& one) {
                return one.first == item.key();
            });
            const std::string path = node.path + (node.path.empty() ? "" : ".") + item.key();
            if (member == members.end()) mDocument.refuse(path, "is not one of " + list(members));
            member->second({item.value(), path});
        }
        for (const std::string& name : required) {
            if (!node.value.contains(name)) {
                mDocument.refuse(node.path, "\"" + name + "\" is missing");
            }
        }
    }

    static std::string list(const Members& members) {
        std::vector<std::string> names;
        names.reserve(members.size());
        for (const auto& member : members) names.push_back(member.first);
        return listOf(names);
    }

    bool boolean(const Node& node) const {
        if (!node.value.is_boolean()) isNot(node, "true or false");
        return node.value.get<bool>();
    }

    template <typename Unsigned>
    void number(const Node& node, Unsigned& number) const {
        constexpr uint64_t kMost = std::numeric_limits<Unsigned>::max();
        const Json& value = node.value;
        if (!value.is_number_unsigned() || value.get<uint64_t>() > kMost) {
            isNot(node, "a number from 0 to " + std::to_string(kMost));
        }
        number = value.get<Unsigned>();
    }
    template <typename Unsigned>
    void number(const Node& node, std::optional<Unsigned>& value) const {
        number(node, value.emplace());
    }

    // One of the words, or its number.
    template <typename Enumeration>
    void word(const Node& node, const Words& words, Enumeration& value) const {
        const auto found = std::find_if(words.begin(), words.end(), [&](const Word& one) {
            return node.value == Json(one.text) || node.value == Json(one.value);
        });
        if (found == words.end()) {
            isNot(node,
                  &words == &levelWords() ? "a level from 1 to 6" : "one of " + shortListOf(words));
        }
        value = static_cast<Enumeration>(found->value);
    }

    void address(const Node& node, sockaddr_storage& address) const {
        if (!node.value.is_string() || !readAddress(node.value.get<std::string>(), address) ||
            address.ss_family == AF_UNSPEC) {
            isNot(node, "an address such as 192.0.2.1:5000, [2001:db8::1]:443 or 192.0.2.1");
        }
    }

    [[noreturn]] void isNot(const Node& node, const std::string& expected) const {
        const Json& value = node.value;
        const std::string shown = value.is_object()  ? "an object"
                                  : value.is_array() ? "an array"
                                                     : value.dump();
        mDocument.refuse(node.path, shown + " is not " + expected);
    }

    const Document mDocument;
    Wishes mWishes;
};

}  // namespace

Wishes readWishes(const std::string& text, const std::string& file) {
    return Reader(text, file).read();
}
