// SPDX-License-Identifier: Apache-2.0

#include <vyn/logging.h>

#include <cerrno>
#include <new>

#include "common/tick.h"
#include "logging/delivery.h"
#include "logging/line_stream.h"
#include "logging/line_text.h"

namespace logging::detail {

Line::Line(const char* tag, const char* file, const char* function, int line, int level)
    : mTag(text::orElse(tag, kTag)),
      mFile(text::orElse(file, "")),
      mFunction(text::orElse(function, "")),
      mLine(line),
      mLevel(level),
      mErrno(errno),
      mStream(LineStream::acquire()) {
    errno = mErrno;  // which is often the first that is written
}

Line::~Line() {
    if (passes(mLevel)) write();
    if (mStream != nullptr) LineStream::release(mStream);
    errno = mErrno;
}

std::ostream& Line::stream() {
    if (mStream == nullptr) return LineStream::sink();
    return *mStream;
}

void Line::write() {
    const delivery::Statement statement{mLevel, mTag, mFile, text::bareFunctionName(mFunction),
                                        mLine};
    if (mStream == nullptr) return delivery::lose(statement);
    try {
        delivery::deliver(statement, mStream->text(), mStream->line());
    } catch (const std::bad_alloc&) {
        delivery::lose(statement);
    }
}

bool Pace::isDue(int ms) {
    const int64_t now = vyn::tick::now();
    int64_t next = mNext.load(std::memory_order_relaxed);
    // Of threads that come at once, one gets to set the next time.
    return now >= next && mNext.compare_exchange_strong(next, now + ms, std::memory_order_relaxed);
}

}  // namespace logging::detail
