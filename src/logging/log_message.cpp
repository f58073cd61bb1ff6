#include <android/log.h>
#include <vyn/logging.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "logging/log_platform.h"
#include "logging/log_settings.h"

namespace logging {

namespace {

constexpr char kColourReset[] = "\033[m";

// "char& vyn::Buffer::at(int)" becomes "at".
std::string bareFunctionName(std::string signature) {
    if (const size_t parenthesis = signature.rfind('('); parenthesis != std::string::npos) {
        signature.erase(parenthesis);
    }
    if (const size_t scope = signature.rfind("::"); scope != std::string::npos) {
        signature.erase(0, scope + 2);
    }
    if (const size_t blank = signature.rfind(' '); blank != std::string::npos) {
        signature.erase(0, blank + 1);
    }
    return signature;
}

std::string baseName(const std::string& path) {
    const size_t separator = path.find_last_of("/\\");
    return separator == std::string::npos ? path : path.substr(separator + 1);
}

std::string withoutTrailingBlanks(std::string text) {
    text.erase(text.find_last_not_of("\r\n ") + 1);
    return text;
}

}  // namespace

LogMessage::LogMessage(const char* messageTag, const char* sourceFile, const char* sourceFunction,
                       int sourceLine, int messageLevel, bool isFatal, bool isEnabled)
    : file(sourceFile),
      function(bareFunctionName(sourceFunction)),
      tag(messageTag),
      line(sourceLine),
      fatal(isFatal),
      enabled(isEnabled),
      level(messageLevel) {}

LogMessage::LogMessage(const char* messageTag, int messageLevel)
    : LogMessage(messageTag, "", "", 0, messageLevel, false, true) {}

LogMessage::~LogMessage() {
    if ((!fatal && !passes(level)) || !enabled) return;

    const int savedErrno = errno;
    const std::string prefixed = composeLine();
    // The system's log ends lines itself; one more newline would show as an empty line.
    platform::writeLine(takePriority(), tag.c_str(), prefixed.c_str());
    const std::string finished = prefixed + '\n';
    settings::print(finished);
    if (fatal) settings::abortWith(finished);
    errno = savedErrno;
}

std::string LogMessage::composeLine() const {
    std::string composed = "[" + baseName(file) + ":" + std::to_string(line) + " (" + function;
    composed += ")]  ";
    composed += withoutTrailingBlanks(str());
    composed += kColourReset;
    return composed;
}

int LogMessage::takePriority() {
    if (level <= settings::printLevel()) level = kLevelError;
    switch (level) {
        case kLevelError:
            return ANDROID_LOG_ERROR;
        case kLevelWarning:
            return ANDROID_LOG_WARN;
        case kLevelInfo:
            return ANDROID_LOG_INFO;
        case kLevelDebug:
            return ANDROID_LOG_DEBUG;
        default:
            return ANDROID_LOG_VERBOSE;
    }
}

std::ostream& operator<<(std::ostream& stream, ErrnoText text) {
    return stream << "[" << text.error << "] " << std::strerror(text.error) << ". ";
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
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    errno = savedErrno;

    if (file != nullptr && function != nullptr) {
        logging::LogMessage(kPrintfTag, file, function, line, level, false, true) << text;
    } else {
        logging::LogMessage(kPrintfTag, level) << text;
    }
}
