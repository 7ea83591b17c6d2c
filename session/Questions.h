// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <lum_sdf_session.h>

#include <cstddef>
#include <functional>
#include <list>
#include <new>
#include <utility>
#include <vector>

#include "session/Due.h"
#include "session/Inbox.h"
#include "session/Link.h"

// Questions of one kind and their answers.
//
// The library brings an answer entry by entry, with no end, and knows one question at a time. So
// when the first entry of an answer comes, the service is asked once more: the first entry of the
// next answer says that the one before was whole. Questions that come while one is under way get
// that next answer, and so on.
template <typename Entry, typename Callback>
class Questions {
  public:
    // ask: asks the service, with the callbacks of one of the two turns.
    // entry: hands one entry to a callback.
    // end: hands it the end, 0 or an error.
    struct Kind {
        long long (*ask)(const Lane& lane, unsigned int turn);
        std::function<void(Callback, void* user, const Entry&)> entry;
        std::function<void(Callback, void* user, int result)> end;
    };

    Questions(Link& link, Kind kind) : mLink(link), mKind(std::move(kind)) {}

    // Throws std::bad_alloc, with nothing changed.
    void add(Time deadline, Callback cb, void* user) {
        Question question{cb, user, {}, 0, {}, 0, false, 0};
        question.due.set(deadline);
        mQuestions.push_back(std::move(question));
        askIfWanted();
        if (mOpen) mPatience.set(mAsked + kPatience);
    }

    // The service is up.
    void request() { askIfWanted(); }

    // What was asked gets no answer any more.
    void lost() {
        for (Question& question : mQuestions) {
            if (question.turn != 0 && !question.done) finish(question, SDF_SESSION_LOST);
        }
        mOpen = false;
        mPatience.clear();
    }

    void onEntry(const AnswerEvent<Entry>& event) {
        const bool first = mOpen && event.turn == mTurn % 2;
        const unsigned int turn = event.turn == mTurn % 2 ? mTurn : mTurn - 1;
        if (first) {
            mOpen = false;
            finishAll(mTurn - 1);
        }
        bool wanted = false;
        for (Question& question : mQuestions) {
            if (question.turn != turn || question.done) continue;
            try {
                question.entries.push_back(event.entry);
                wanted = true;
            } catch (const std::bad_alloc&) {
                finish(question, SDF_SESSION_NO_RESOURCES);
            }
        }
        if (first && wanted) {
            ask();
        } else if (first) {
            askIfWanted();
        }
    }

    // Hands over one entry or one end. Returns false when there is none to be handed over.
    bool report() {
        if (mDone == 0) return false;
        auto found = mQuestions.begin();
        while (!found->done) ++found;
        if (found->result == 0 && found->next < found->entries.size()) {
            const Entry entry = found->entries[found->next++];
            mLink.beforeCallback();
            mKind.entry(found->cb, found->user, entry);
            return true;
        }
        const Callback cb = found->cb;
        void* const user = found->user;
        const int result = found->result;
        mQuestions.erase(found);
        --mDone;
        mLink.beforeCallback();
        mKind.end(cb, user, result);
        return true;
    }

    bool hasReports() const { return mDone > 0; }

    void onTime(Time now) {
        bool awaited = false;
        for (Question& question : mQuestions) {
            // All entries of an answer come at once: it was whole, and the next one is empty.
            if (question.due.take(now)) {
                finish(question, question.entries.empty() ? SDF_SESSION_NO_ANSWER : 0);
            }
            awaited = awaited || (!question.done && question.turn != 0);
        }
        // Whoever asks from now on does not wait for an answer that nobody wants.
        mOpen = mOpen && awaited;
        if (mPatience.take(now) && mOpen) giveUp();
        askIfWanted();
    }

    Due due() const {
        Due due = mPatience;
        for (const Question& question : mQuestions) due.orAt(question.due);
        return due;
    }

  private:
    // How long a question that comes waits for the answer to the one before.
    static constexpr Milliseconds kPatience{100};

    struct Question {
        Callback cb;
        void* user;
        Due due;
        unsigned int turn;  // whose answer it gets; 0: the service is still to be asked
        std::vector<Entry> entries;
        size_t next;  // to be handed over
        bool done;
        int result;
    };

    void finish(Question& question, int result) {
        ++mDone;
        question.done = true;
        question.due.clear();
        question.result = result;
    }

    void finishAll(unsigned int turn) {
        for (Question& question : mQuestions) {
            if (question.turn == turn && !question.done) finish(question, 0);
        }
    }

    // The service may have nothing to answer: who waits for that is asked for again with those who
    // came later. The answer before was whole.
    void giveUp() {
        mOpen = false;
        finishAll(mTurn - 1);
        for (Question& question : mQuestions) {
            if (question.turn == mTurn && !question.done) question.turn = 0;
        }
    }

    void askIfWanted() {
        if (mOpen) return;
        for (const Question& question : mQuestions) {
            if (question.turn != 0 || question.done) continue;
            ask();
            return;
        }
    }

    // Asks the service, for every question that has not been asked.
    void ask() {
        if (!mLink.isOnline()) return;
        // Not 0, and the other of two than the last.
        const unsigned int turn = mTurn + 1 == 0 ? 2 : mTurn + 1;
        if (!mLink.sent(mKind.ask(mLink.lane(), turn % 2))) return;
        mTurn = turn;
        mOpen = true;
        mAsked = Clock::now();
        mPatience.clear();
        for (Question& question : mQuestions) {
            if (question.turn == 0 && !question.done) question.turn = turn;
        }
    }

    Link& mLink;
    const Kind mKind;
    std::list<Question> mQuestions;
    unsigned int mTurn = 1;  // of the question that was put to the service last
    bool mOpen = false;      // no entry of its answer has come
    Time mAsked{};
    Due mPatience;
    size_t mDone = 0;  // questions that are done
};
