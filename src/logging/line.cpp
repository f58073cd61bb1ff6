#include <vyn/logging.h>

#include <cerrno>
#include <new>

#include "logging/line_stream.h"
#include "logging/line_text.h"
#include "logging/log_platform.h"
#include "logging/log_settings.h"

namespace logging::detail {

Line::Line(const char* tag, const char* file, const char* function, int line, int level)
    : mTag(text::orElse(tag, kTag)),
      mFile(text::orElse(file, "")),
      mFunction(text::orElse(function, "")),
      mLine(line),
      mLevel(level),
      mStream(LineStream::acquire()) {}

Line::~Line() {
    const int savedErrno = errno;
    if (passes(mLevel)) write();
    if (mStream != nullptr) LineStream::release(mStream);
    errno = savedErrno;
}

std::ostream& Line::stream() {
    if (mStream == nullptr) return LineStream::sink();
    return *mStream;
}

void Line::write() {
    const int level = mLevel <= settings::printLevel() ? kLevelError : mLevel;
    const int priority = text::priorityOf(level);
    try {
        if (mStream == nullptr) throw std::bad_alloc();
        std::string& line = mStream->line();
        text::compose(line, mFile, mLine, text::bareFunctionName(mFunction), mStream->text());
        // The system's log ends lines itself; one more newline would show as an empty line.
        platform::writeLine(priority, mTag, line.c_str());
        line += '\n';
        settings::print(line);
    } catch (const std::bad_alloc&) {
        platform::writeLine(priority, mTag, text::kLostLine);
    }
}

}  // namespace logging::detail
