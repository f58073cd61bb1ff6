// SPDX-License-Identifier: Apache-2.0

#include "connector/parser_call.h"

namespace vyn {

void ParserCall::restoreListener() {
    if (mLives.ended()) return;
    if (const ParserCall* const around = innermost(mParser)) {
        mParser->setListener(around->mLives.otherEnded() ? nullptr : around->mListener);
    } else if (mLives.otherEnded() && mParser->mListener == mListener) {
        mParser->setListener(nullptr);
    }
}

}  // namespace vyn
