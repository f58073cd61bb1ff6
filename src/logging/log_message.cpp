// SPDX-License-Identifier: Apache-2.0

#include <vyn/logging.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <new>

#include "logging/delivery.h"
#include "logging/line_text.h"
#include "logging/log_settings.h"

namespace logging {

LogMessage::LogMessage(const char* messageTag, const char* sourceFile, const char* sourceFunction,
                       int sourceLine, int messageLevel, bool isFatal, bool isEnabled)
    : file(text::orElse(sourceFile, "")),
      function(text::bareFunctionName(text::orElse(sourceFunction, ""))),
      tag(text::orElse(messageTag, kTag)),
      line(sourceLine),
      fatal(isFatal),
      enabled(isEnabled),
      level(messageLevel) {}

LogMessage::LogMessage(const char* messageTag, int messageLevel)
    : LogMessage(messageTag, "", "", 0, messageLevel, false, true) {}

LogMessage::~LogMessage() {
    if ((!fatal && !passes(level)) || !enabled) return;

    const int savedErrno = errno;
    const delivery::Statement statement{level, tag.c_str(), file, function, line};
    std::string written;
    try {
        delivery::deliver(statement, str(), written);
    } catch (const std::bad_alloc&) {
        delivery::lose(statement);
    }
    if (fatal) settings::abortWith(written);
    errno = savedErrno;
}

std::ostream& operator<<(std::ostream& stream, ErrnoText text) {
    return stream << "[" << text.error << "] " << std::strerror(text.error) << ". ";
}

void detail::endWith(const char* text, const char* file, const char* function, int line) {
    LogMessage(kTag, file, function, line, kLevelError, true, true).stream() << text;
}

}  // namespace logging

void logging_printf(const char* file, const char* function, int line, int level, const char* format,
                    ...) {
    constexpr char kPrintfTag[] = "CF";
    if (!logging::passes(level)) return;

    const int savedErrno = errno;
    char text[4096] = "";
    va_list arguments;
    va_start(arguments, format);
    if (format != nullptr) std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    errno = savedErrno;

    if (file != nullptr && function != nullptr) {
        logging::detail::Line(kPrintfTag, file, function, line, level).stream() << text;
    } else {
        logging::detail::Line(kPrintfTag, "", "", 0, level).stream() << text;
    }
}
