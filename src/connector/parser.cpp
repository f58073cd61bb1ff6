// SPDX-License-Identifier: Apache-2.0

#include <vyn/logging.h>
#include <vyn/parser.h>

#include "connector/parser_call.h"

namespace vyn {

namespace {

// In the name of the operation that could not.
[[gnu::cold, gnu::noinline]] void failToReport(const char* what,
                                               const char* operation = __builtin_FUNCTION()) {
    constexpr int kLevel = logging::kLevelError;
    logging::LogMessage(logging::kTag, __FILE__, operation, __LINE__, kLevel, true, true).stream()
        << "\033[1;31mFATAL: missing parser-listener, can NOT report a " << what << ".";
}

}  // namespace

Parser::PostListener::~PostListener() { LifeWatch::end(this); }

Parser::~Parser() { LifeWatch::end(this); }

void Parser::setListener(PostListener* listener) { mListener = listener; }

void Parser::doParse(const void* data, int len) {
    ParserCall call(this, mListener);
    int result = parse(data, len, true);
    while (result >= 0 && !call.ended()) result = parse(nullptr, 0, true);
}

void Parser::onCommandParsed(Command* cmd) {
    if (ParserCall::lostListener(this)) return;
    if (mListener == nullptr) return failToReport("command");
    mListener->onCommandParsed(cmd);
}

void Parser::onPacketCreated(const void* data, int len) {
    if (ParserCall::lostListener(this)) return;
    if (mListener == nullptr) return failToReport("packet");
    mListener->onPacketCreated(data, len);
}

}  // namespace vyn
