#include "logging/line_text.h"

#include <android/log.h>
#include <vyn/logging.h>

namespace logging::text {

namespace {

constexpr std::string_view kColourReset = "\033[m";

std::string_view baseName(std::string_view path) {
    const size_t separator = path.find_last_of("/\\");
    return separator == std::string_view::npos ? path : path.substr(separator + 1);
}

std::string_view withoutTrailingBlanks(std::string_view text) {
    return text.substr(0, text.find_last_not_of("\r\n ") + 1);
}

}  // namespace

std::string_view bareFunctionName(std::string_view signature) {
    // Nothing is cut where the character is not found: that is the largest position there is.
    signature = signature.substr(0, signature.rfind('('));
    if (const size_t scope = signature.rfind("::"); scope != std::string_view::npos) {
        signature.remove_prefix(scope + 2);
    }
    if (const size_t blank = signature.rfind(' '); blank != std::string_view::npos) {
        signature.remove_prefix(blank + 1);
    }
    return signature;
}

void appendLine(std::string& to, std::string_view file, int line, std::string_view function,
                std::string_view text) {
    to += '[';
    to += baseName(file);
    to += ':';
    to += std::to_string(line);
    to += " (";
    to += function;
    to += ")]  ";
    to += withoutTrailingBlanks(text);
    to += kColourReset;
}

int priorityOf(int level) {
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

}  // namespace logging::text
