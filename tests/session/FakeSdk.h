// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <lum_sdf_sdk.h>

#include <condition_variable>
#include <csignal>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

// A call as text: its name and its arguments.
template <typename... Arguments>
std::string callText(const char* name, Arguments... arguments) {
    std::string text = name;
    (text.append(" ").append(std::to_string(arguments)), ...);
    return text;
}

// The functions of lum_sdf_sdk.h for a session under test, and the service that it talks to: a test
// sees each request, and says what the service sends. Like the library it knows a filter only when
// the callback that brought the answer has returned. Thread-safe; callbacks run on the caller's
// thread.
class FakeSdk {
  public:
    using Lines = std::vector<std::string>;

    static FakeSdk& instance();
    // As in a new process.
    void reset();

    // The calls since the last time, such as "UpdateOod 1 2".
    Lines take();
    // Waits until there have been so many clients; false when a generous limit has passed.
    bool waitForClients(size_t count);
    size_t clients();

    // What the service sends, through the callbacks of the present client or of an earlier one.
    void status(int status) { this->status(status, clients()); }
    void status(int status, size_t client);
    void up() { status(SDF_V2_SERVICE_UP); }
    void answer(unsigned int id, SdfFilterStatus status = SDF_FILTER_ACTIVE);
    // The callback only; the library is not to know the filter until settle().
    void answerUnsettled(unsigned int id);
    void settle(unsigned int id);
    void indicate(unsigned int id, SdfFilterStatus status);
    void levels(unsigned int id, SdfLatencyLvl first, SdfLatencyLvl second);
    void list(const std::vector<unsigned int>& ids);
    // To the asker and to whoever registered.
    void report(const std::vector<unsigned int>& keys);
    void autoFilter(unsigned int id);

    // What the last call that adds a filter was given.
    struct {
        SdfAddFilterInfo info;
        std::optional<unsigned char> extra;
    } added{};

    // Called with each line and what the function returns, with the lock held.
    std::function<void(const std::string& line, long long result)> onCall;

    // The next call of a function whose line begins so returns this.
    void failNext(const std::string& line, long long result);
    // No call is to fail any more.
    void forgetFailures();
    // createSdfClient() and destroySdfClient() wait until they are let go.
    void hold(bool on);

    // The signals that are blocked on the thread that makes clients.
    sigset_t blocked() const { return mBlocked; }

    // For the functions themselves.
    long long create(SdfStatusV2Cb cb);
    long long destroy();
    // Writes the call down; returns its result: 0 or what it is to fail with.
    long long call(const std::string& line, bool valid = true);
    long long add(const SdfAddFilterInfo& info, std::optional<unsigned char> extra,
                  SdfFilterStatusCb cb);
    long long setLevels(const std::string& line, SdfEffectiveLevelsCb cb);
    template <typename Callback>
    long long keep(const std::string& line, Callback& slot, Callback cb) {
        const long long result = call(line);
        const std::lock_guard<std::mutex> guard(mLock);
        if (result == 0) slot = cb;
        return result;
    }
    long long onFilter(const std::string& line, unsigned int id, bool erase = false);

    SdfFilterStatusCb filterCb = nullptr;
    SdfGetFiltersCb listCb = nullptr;
    SdfPriorityQueueReportCb reportCb = nullptr;
    SdfPriorityQueueReportCb oneReportCb = nullptr;
    SdfAutoFilterInfoCb autoFilterCb = nullptr;

  private:
    long long resultOf(const std::string& line, bool valid);
    long long noted(const std::string& line, long long result) const;

    std::mutex mLock;
    std::condition_variable mChanged;
    Lines mCalls;
    std::vector<SdfStatusV2Cb> mClients;
    bool mClient = false;
    bool mUp = false;
    bool mHeld = false;
    sigset_t mBlocked{};
    unsigned int mLastId = 0;
    std::map<unsigned int, SdfFilterStatusCb> mAdds;
    std::map<unsigned int, SdfEffectiveLevelsCb> mLevels;
    std::set<unsigned int> mFilters;
    std::deque<std::pair<std::string, long long>> mFailures;
};
