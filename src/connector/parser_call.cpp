// SPDX-License-Identifier: Apache-2.0

#include "connector/parser_call.h"

namespace vyn {

namespace {

thread_local ParserCall* tInnermostCall = nullptr;

}  // namespace

ParserCall::ParserCall(Parser* parser, Parser::PostListener* listener)
    : mParser(parser),
      mListener(listener),
      mParserLife(parser),
      mListenerLife(listener),
      mOuter(tInnermostCall) {
    tInnermostCall = this;
}

ParserCall::~ParserCall() {
    tInnermostCall = mOuter;
    if (mParserLife.ended()) return;
    if (ParserCall* around = innermost(mParser)) {
        mParser->setListener(around->mListenerLife.ended() ? nullptr : around->mListener);
    } else if (mListenerLife.ended() && mParser->mListener == mListener) {
        mParser->setListener(nullptr);
    }
}

bool ParserCall::lostListener(const Parser* parser) {
    const ParserCall* call = innermost(parser);
    return call != nullptr && call->mListenerLife.ended();
}

ParserCall* ParserCall::innermost(const Parser* parser) {
    ParserCall* call = tInnermostCall;
    while (call != nullptr && call->mParser != parser) call = call->mOuter;
    return call;
}

}  // namespace vyn
