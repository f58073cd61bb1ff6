// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <vyn/parser.h>

#include "connector/life_watch.h"

namespace vyn {

// One call into an application's parser, and the place where its results go meanwhile.
//
// The results reach the executor, which may delete the listener (a worker) or, between two calls of
// parse(), the parser; or may use the same parser for another worker. So while the call lasts,
// results for a listener that is gone are dropped; and when it ends, the parser is left without a
// dangling listener, and with the listener of the call around this one if there is such a call.
class ParserCall {
  public:
    ParserCall(Parser* parser, Parser::PostListener* listener)
        : mParser(parser), mListener(listener), mLives(parser, listener), mOuter(tInnermost) {
        tInnermost = this;
    }
    ~ParserCall() {
        tInnermost = mOuter;
        if (mOuter != nullptr || mLives.otherEnded()) restoreListener();
    }
    ParserCall(const ParserCall&) = delete;
    ParserCall& operator=(const ParserCall&) = delete;

    // True when nobody is left to go on with.
    bool ended() const { return mLives.ended() || mLives.otherEnded(); }

    // True when the listener of the innermost call into `parser` is gone.
    static bool lostListener(const Parser* parser) {
        const ParserCall* const call = innermost(parser);
        return call != nullptr && call->mLives.otherEnded();
    }

  private:
    static ParserCall* innermost(const Parser* parser) {
        ParserCall* call = tInnermost;
        while (call != nullptr && call->mParser != parser) call = call->mOuter;
        return call;
    }
    void restoreListener();

    static inline thread_local ParserCall* tInnermost = nullptr;

    Parser* mParser;
    Parser::PostListener* mListener;
    LifeWatch mLives;  // of the parser, and of the listener
    ParserCall* mOuter;
};

}  // namespace vyn
