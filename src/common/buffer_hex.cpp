// SPDX-License-Identifier: Apache-2.0

#include <vyn/buffer.h>

#include <algorithm>
#include <array>
#include <cstdint>

#include "common/countable.h"

namespace vyn {

namespace {

bool isBlank(char character) {
    return character == ' ' || (character >= '\t' && character <= '\r');
}

constexpr int8_t valueOf(int character) {
    if (character >= '0' && character <= '9') return static_cast<int8_t>(character - '0');
    if (character >= 'A' && character <= 'F') return static_cast<int8_t>(character - 'A' + 10);
    if (character >= 'a' && character <= 'f') return static_cast<int8_t>(character - 'a' + 10);
    return -1;
}

constexpr std::array<int8_t, 256> makeValues() {
    std::array<int8_t, 256> values{};
    for (size_t i = 0; i < values.size(); ++i) values[i] = valueOf(static_cast<int>(i));
    return values;
}

constexpr std::array<int8_t, 256> kValues = makeValues();

// The value of a hexadecimal digit, or -1.
int digitValue(char character) { return kValues[static_cast<unsigned char>(character)]; }

// Computed, not looked up, so that compilers can do many at once.
char digit(unsigned value) {
    return static_cast<char>(value + (value < 10 ? unsigned{'0'} : unsigned{'A'} - 10));
}

// What scanf("%02X") reads where no blank stands: at most two characters, a sign being one of
// them. "0x" fills the width without a digit behind it and is 0 like any other text.
int readPair(const char* text) {
    const bool isSigned = text[0] == '-' || text[0] == '+';
    const int first = digitValue(text[isSigned ? 1 : 0]);
    if (first < 0) return 0;
    if (isSigned) return text[0] == '-' ? -first : first;
    const int second = digitValue(text[1]);
    return second < 0 ? first : first * 16 + second;
}

}  // namespace

std::string Buffer::toHexString() const {
    const auto held = static_cast<size_t>(heldBytes());
    std::string text(held * 2, '\0');
    // Copies of the pointers: a byte stored might change the originals, for all compilers know.
    const char* from = data;
    char* to = text.data();
    for (size_t i = 0; i < held; ++i) {
        const auto byte = static_cast<unsigned char>(from[i]);
        to[2 * i] = digit(byte >> 4);
        to[2 * i + 1] = digit(byte & 15);
    }
    return text;
}

void Buffer::fromHexString(const std::string& hex) {
    assign(countable(hex.length() / 2), '\0');
    // Blanks are passed once for all the pairs that start among them, so a long run of them costs
    // no more than other text.
    const char* number = hex.c_str();
    const char* pair = hex.c_str();
    char* const end = data + size;
    for (char* to = data; to != end; ++to, pair += 2) {
        const int high = digitValue(pair[0]);
        const int low = digitValue(pair[1]);
        if (number <= pair && high >= 0 && low >= 0) {
            *to = static_cast<char>(high * 16 + low);
            continue;
        }
        number = std::max(number, pair);
        while (isBlank(*number)) ++number;
        *to = static_cast<char>(readPair(number));
    }
}

}  // namespace vyn
