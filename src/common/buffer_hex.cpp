#include <vyn/buffer.h>

#include <algorithm>

namespace vyn {

namespace {

bool isBlank(char character) {
    return character == ' ' || (character >= '\t' && character <= '\r');
}

// The value of a hexadecimal digit, or -1.
int digitValue(char character) {
    if (character >= '0' && character <= '9') return character - '0';
    if (character >= 'A' && character <= 'F') return character - 'A' + 10;
    if (character >= 'a' && character <= 'f') return character - 'a' + 10;
    return -1;
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
    static constexpr char kDigits[] = "0123456789ABCDEF";
    std::string text;
    const int held = heldBytes();
    text.reserve(static_cast<size_t>(held) * 2);
    for (int i = 0; i < held; ++i) {
        const auto byte = static_cast<unsigned char>(data[i]);
        text += kDigits[byte >> 4];
        text += kDigits[byte & 15];
    }
    return text;
}

void Buffer::fromHexString(const std::string& hex) {
    assign(static_cast<int>(hex.length() / 2), '\0');
    // Blanks are passed once for all the pairs that start among them, so a long run of them costs
    // no more than other text.
    const char* number = hex.c_str();
    for (int i = 0; i < size; ++i) {
        number = std::max(number, hex.c_str() + 2 * static_cast<size_t>(i));
        while (isBlank(*number)) ++number;
        data[i] = static_cast<char>(readPair(number));
    }
}

}  // namespace vyn
