// SPDX-License-Identifier: Apache-2.0

#include <fcntl.h>
#include <unistd.h>
#include <vyn/helper.h>
#include <vyn/logging.h>

#include <array>
#include <cstdio>
#include <cstdlib>

#include "common/tick.h"

namespace vyn::helper {

namespace {

using Bytes = std::array<unsigned char, 16>;

bool readRandomDevice(Bytes& bytes) {
    const int descriptor = open("/dev/urandom", O_RDONLY | O_CLOEXEC);
    if (descriptor < 0) return false;
    size_t gathered = 0;
    while (gathered < bytes.size()) {
        const ssize_t count = read(descriptor, bytes.data() + gathered, bytes.size() - gathered);
        if (count < 1) break;
        gathered += static_cast<size_t>(count);
    }
    close(descriptor);
    return gathered == bytes.size();
}

bool isGroupEnd(size_t position) {
    return position == 3 || position == 5 || position == 7 || position == 9;
}

template <typename... Values>
void appendFormatted(std::string& text, const char* format, Values... values) {
    char formatted[16];
    std::snprintf(formatted, sizeof formatted, format, values...);
    text += formatted;
}

void seedFromClock() { srand(static_cast<unsigned int>(tick::nanoseconds() % 2147483647)); }

void appendPseudoRandom(std::string& text, size_t position) {
    const int value = rand() % 255;
    if (position == 6) {
        appendFormatted(text, "4%x", static_cast<unsigned int>(value % 15));
    } else if (position == 8) {
        const char variant = "89ab"[rand() & 3];
        appendFormatted(text, "%c%x", variant, static_cast<unsigned int>(value % 15));
    } else {
        appendFormatted(text, "%02x", static_cast<unsigned int>(value));
    }
}

}  // namespace

std::string uuid() {
    Bytes bytes;
    if (!readRandomDevice(bytes)) return uuid2();
    std::string text;
    for (size_t i = 0; i < bytes.size(); ++i) {
        appendFormatted(text, "%02x", static_cast<unsigned int>(bytes[i]));
        if (isGroupEnd(i)) text += '-';
    }
    return text;
}

std::string uuid2() {
    VYN_LOG_VERBOSE << "\033[1;31m[ATTENTION] ";
    seedFromClock();
    std::string text;
    for (size_t i = 0; i < Bytes{}.size(); ++i) {
        appendPseudoRandom(text, i);
        if (isGroupEnd(i)) text += '-';
    }
    return text;
}

}  // namespace vyn::helper
