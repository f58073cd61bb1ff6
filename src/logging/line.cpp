#include <vyn/logging.h>

#include <cerrno>

#include "logging/line_stream.h"
#include "logging/line_text.h"
#include "logging/log_platform.h"
#include "logging/log_settings.h"

namespace logging::detail {

Line::Line(const char* tag, const char* file, const char* function, int line, int level)
    : mTag(tag),
      mFile(file),
      mFunction(function),
      mLine(line),
      mLevel(level),
      mStream(LineStream::acquire()) {}

Line::~Line() {
    const int savedErrno = errno;
    if (passes(mLevel)) write();
    LineStream::release(mStream);
    errno = savedErrno;
}

std::ostream& Line::stream() { return *mStream; }

void Line::write() {
    std::string& line = mStream->line();
    text::compose(line, mFile, mLine, text::bareFunctionName(mFunction), mStream->text());
    const int level = mLevel <= settings::printLevel() ? kLevelError : mLevel;
    // The system's log ends lines itself; one more newline would show as an empty line.
    platform::writeLine(text::priorityOf(level), mTag, line.c_str());
    line += '\n';
    settings::print(line);
}

}  // namespace logging::detail
