// SPDX-License-Identifier: Apache-2.0

#include "common/property_rules.h"

#include <vyn/helper.h>

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace vyn::property_rules {

namespace {

// Not isalnum(), which the locale may teach more letters.
bool isInName(char character) {
    return (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z') ||
           (character >= '0' && character <= '9') ||
           (character != '\0' && std::strchr(".-@:_", character) != nullptr);
}

// How many bytes the character takes whose first byte this is; 0 when it can be none's.
size_t lengthOf(uint8_t first) {
    if (first < 0x80) return 1;
    if (first < 0xC2 || first > 0xF4) return 0;
    return first < 0xE0 ? 2 : first < 0xF0 ? 3 : 4;
}

// A second byte that would make a character longer than needed, half of a pair or beyond the last.
bool isForbidden(uint8_t first, uint8_t second) {
    return (first == 0xE0 && second < 0xA0) || (first == 0xED && second > 0x9F) ||
           (first == 0xF0 && second < 0x90) || (first == 0xF4 && second > 0x8F);
}

}  // namespace

bool isName(const std::string& key) {
    return !key.empty() && key.front() != '.' && key.back() != '.' &&
           key.find("..") == std::string::npos && std::all_of(key.begin(), key.end(), isInName);
}

bool isText(const std::string& value) {
    const auto* bytes = reinterpret_cast<const uint8_t*>(value.c_str());
    for (const uint8_t* const end = bytes + value.size(); bytes < end;) {
        const size_t length = *bytes == 0 ? 0 : lengthOf(*bytes);
        if (length == 0) return false;
        // The NUL behind the text ends a character that is cut off.
        for (size_t i = 1; i < length; ++i) {
            if ((bytes[i] & 0xC0) != 0x80) return false;
        }
        if (length > 1 && isForbidden(bytes[0], bytes[1])) return false;
        bytes += length;
    }
    return true;
}

bool isReadOnly(const std::string& key) { return helper::startsWith(key, "ro."); }

}  // namespace vyn::property_rules
