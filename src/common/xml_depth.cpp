// SPDX-License-Identifier: Apache-2.0

#include "common/xml_depth.h"

#include <cstring>

#include "common/xml_names.h"

namespace vyn::xml_depth {

namespace {

constexpr char kBlanks[] = " \t\n\r";

// Each skipping function takes the place behind what tells its kind and returns the place behind
// the whole, or null when the text ends before.

const char* skipPast(const char* text, const char* mark) {
    const char* found = std::strstr(text, mark);
    return found == nullptr ? nullptr : found + std::strlen(mark);
}

// The declarations inside stand between brackets that may nest.
const char* skipDoctype(const char* text) {
    for (int brackets = 0; *text != '\0'; ++text) {
        if (*text == '>' && brackets == 0) return text + 1;
        if (*text == '[') ++brackets;
        if (*text == ']' && brackets > 0) --brackets;
    }
    return nullptr;
}

bool startsWith(const char* text, const char* start) {
    return std::strncmp(text, start, std::strlen(start)) == 0;
}

const char* skipBlanks(const char* text) { return text + std::strspn(text, kBlanks); }

const char* skipMarkup(const char* text) {
    if (startsWith(text, "--")) return skipPast(text + 2, "-->");
    if (startsWith(text, "[CDATA[")) return skipPast(text + 7, "]]>");
    if (startsWith(text, "DOCTYPE") && skipBlanks(text + 7) > text + 7)
        return skipDoctype(text + 8);
    return skipPast(text, ">");
}

// Behind the attribute that begins here: its value may hold any character but its quote.
const char* skipAttribute(const char* text) {
    text = skipBlanks(text + 1 + std::strcspn(text + 1, xml_names::kEndsOfAttribute));
    if (*text != '=') return nullptr;
    text = skipBlanks(text + 1);
    if (*text != '"' && *text != '\'') return nullptr;
    const char* end = std::strchr(text + 1, *text);
    return end == nullptr ? nullptr : skipBlanks(end + 1);
}

// Skips a start tag; `isOpen` tells whether the element goes on behind it.
const char* skipTag(const char* text, bool& isOpen) {
    const size_t nameLength = std::strcspn(text, xml_names::kEndsOfElement);
    if (nameLength == 0) return nullptr;
    text = skipBlanks(text + nameLength);
    while (text != nullptr && std::strchr(xml_names::kEndsOfAttribute, *text) == nullptr) {
        text = skipAttribute(text);
    }
    if (text == nullptr) return nullptr;
    isOpen = *text == '>';
    if (*text == '/') ++text;
    return *text == '>' ? text + 1 : nullptr;
}

}  // namespace

bool exceeds(const char* text, int levels) {
    for (int depth = 0; text != nullptr;) {
        text = std::strchr(text, '<');
        if (text == nullptr) return false;
        ++text;
        if (*text == '/') {
            --depth;
            text = skipPast(text, ">");
        } else if (*text == '?') {
            text = skipPast(text + 1, "?>");
        } else if (*text == '!') {
            text = skipMarkup(text + 1);
        } else {
            bool isOpen = false;
            text = skipTag(text, isOpen);
            if (text != nullptr && depth == levels) return true;
            depth += isOpen;
        }
    }
    return false;
}

}  // namespace vyn::xml_depth
