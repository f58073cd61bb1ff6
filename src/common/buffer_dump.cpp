// SPDX-License-Identifier: Apache-2.0

#include <vyn/buffer.h>
#include <vyn/config.h>
#include <vyn/logging.h>

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <iterator>

namespace vyn {

namespace {

constexpr int kShownBytes = 16;
constexpr int kLineBytes = 16;
// A run of zeros is shortened only when it covers three lines and more.
constexpr int kShortenedRun = 3 * kLineBytes + 1;

void appendHex(std::string& text, unsigned char byte) {
    static constexpr char kDigits[] = "0123456789abcdef";
    text += kDigits[byte >> 4];
    text += kDigits[byte & 15];
}

bool isShownInText(unsigned char byte) {
    return byte == ' ' || byte == '"' || (byte >= '$' && byte <= '~');
}

char columnCharacter(unsigned char byte) {
    return byte != ' ' && isShownInText(byte) ? static_cast<char>(byte) : '.';
}

std::string addressOf(const unsigned char* bytes) {
    char text[2 * sizeof(uintptr_t) + sizeof ": "];
    std::snprintf(text, sizeof text, "%08" PRIxPTR ": ", reinterpret_cast<uintptr_t>(bytes));
    return text;
}

std::string normalLine(const unsigned char* bytes, int count) {
    std::string text = addressOf(bytes);
    for (int i = 0; i < kLineBytes; ++i) {
        if (i < count) {
            appendHex(text, bytes[i]);
        } else {
            text += "  ";
        }
        text += i % 4 == 3 ? "  " : " ";
    }
    text += '\t';
    std::transform(bytes, bytes + count, std::back_inserter(text), columnCharacter);
    return text;
}

// How many bytes of zeros, in whole lines, one record stands for; 0 when there are too few.
int shortenedZeros(const unsigned char* bytes, int remaining) {
    if (remaining < kLineBytes) return 0;
    const unsigned char* end =
        std::find_if(bytes, bytes + remaining, [](unsigned char byte) { return byte != 0; });
    const int run = static_cast<int>(end - bytes);
    return run < kShortenedRun ? 0 : run - run % kLineBytes;
}

}  // namespace

std::ostream& operator<<(std::ostream& stream, const Buffer& buffer) {
    if (buffer.size == 0) return stream << "NULL";

    std::string text = "Buffer(" + std::to_string(buffer.size) + " bytes): {";
    for (int i = 0; buffer.data != nullptr && i < buffer.size; ++i) {
        const auto byte = static_cast<unsigned char>(buffer.data[i]);
        if (isShownInText(byte)) {
            text += static_cast<char>(byte);
        } else {
            stream.setf(std::ios_base::hex, std::ios_base::basefield);
            text += ' ';
            appendHex(text, byte);
        }
        if (i + 1 == kShownBytes && !config::debug::DEBUG_BUF()) {
            text += "...";
            break;
        }
    }
    return stream << text << "}";
}

void dump(const void* data, int len, const char* file, const char* func, int line, const char*) {
    if (data == nullptr || !logging::passes(logging::kLevelVerbose)) return;

    const auto* bytes = static_cast<const unsigned char*>(data);
    int offset = 0;
    while (offset < len) {
        const unsigned char* start = bytes + offset;
        const int remaining = len - offset;
        logging::LogMessage record("tag", file, func, line, logging::kLevelVerbose, false, true);
        if (const int zeros = shortenedZeros(start, remaining); zeros > 0) {
            record << addressOf(start) << " 00 * " << zeros / kLineBytes << " lines\n";
            offset += zeros;
        } else {
            const int count = std::min(remaining, kLineBytes);
            record << normalLine(start, count) << "\n";
            offset += count;
        }
    }
}

}  // namespace vyn
