// SPDX-License-Identifier: Apache-2.0

#include "logging/line_text.h"

#include <android/log.h>
#include <vyn/logging.h>

#include <charconv>
#include <iterator>

namespace logging::text {

namespace {

constexpr std::string_view kColourReset = "\033[m";
constexpr std::string_view kTrailingBlanks = "\r\n ";

char* put(char* to, std::string_view part) { return to + part.copy(to, part.size()); }

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

std::string_view baseName(std::string_view path) {
    size_t start = path.size();
    while (start > 0 && path[start - 1] != '/' && path[start - 1] != '\\') --start;
    return path.substr(start);
}

std::string_view withoutTrailingBlanks(std::string_view text) {
    size_t size = text.size();
    while (size > 0 && kTrailingBlanks.find(text[size - 1]) != std::string_view::npos) --size;
    return text.substr(0, size);
}

// A colour is an escape, a bracket, numbers between semicolons, and an "m".
char* copyWithoutColours(std::string_view text, char* to) {
    while (!text.empty()) {
        const size_t colour = text.find("\033[");
        to = put(to, text.substr(0, colour));
        if (colour == std::string_view::npos) break;
        const size_t end = text.find_first_not_of("0123456789;", colour + 2);
        const bool isColour = end != std::string_view::npos && text[end] == 'm';
        if (!isColour) to = put(to, text.substr(colour, 2));
        text.remove_prefix(isColour ? end + 1 : colour + 2);
    }
    return to;
}

void compose(std::string& to, std::string_view file, int line, std::string_view function,
             std::string_view text) {
    char number[16];
    const auto numberSize =
        static_cast<size_t>(std::to_chars(number, std::end(number), line).ptr - number);
    // Room is made once, since asking for it costs as much as the copy of a part.
    constexpr size_t kPunctuation = sizeof "[: ()]  " - 1;
    to.resize(file.size() + numberSize + function.size() + text.size() + kPunctuation +
              kColourReset.size());
    char* at = put(to.data(), "[");
    at = put(put(at, file), ":");
    at = put(put(at, {number, numberSize}), " (");
    at = put(put(at, function), ")]  ");
    put(put(at, text), kColourReset);
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
