// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "tools/sdfctl/Commands.h"

// What the commands that issue requests share.

// The arguments of a command, filled when it is read, used when it is run.
template <typename Values>
std::shared_ptr<Values> valuesOf() {
    return std::make_shared<Values>();
}

// The callback, or null where the user wants to see what the library says to that.
template <typename Callback>
struct CallbackChoice {
    explicit CallbackChoice(Callback callback) : mCallback(callback) {}
    void declare(Arguments& arguments) {
        arguments.flag("--null-callback", mNull, "Give the library a null callback");
    }
    Callback chosen() const { return mNull ? nullptr : mCallback; }

  private:
    const Callback mCallback;
    bool mNull = false;
};

// A request that is neither answered nor about a filter.
inline void request(Session& session, const char* function, const Fields& arguments,
                    const std::function<long long()>& body) {
    session.ready();
    session.call(function, arguments, body);
}

// The number of the filter that is meant. Throws UsageError when the last one is, and there is
// none.
inline unsigned int idOf(Session& session, const FilterName& name) {
    if (!name.isLast) return name.id;
    if (!session.filters().last()) throw UsageError("FILTER: no filter has been added yet");
    return *session.filters().last();
}

// A request about one filter: body(its number). `more`: the arguments after the filter.
inline long long requestAbout(Session& session, const FilterName& filter, const char* function,
                              const Fields& more,
                              const std::function<long long(unsigned int)>& body) {
    const unsigned int id = idOf(session, filter);
    session.ready();
    Fields arguments{plain("filter", id)};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return session.call(function, arguments,
                        [&] { return session.retryWhileFresh(id, [&] { return body(id); }); });
}
