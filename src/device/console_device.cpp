// SPDX-License-Identifier: Apache-2.0

#include <poll.h>
#include <unistd.h>
#include <vyn/console_device.h>
#include <vyn/logging.h>

#include <algorithm>
#include <iterator>

#include "common/pipe_signal_guard.h"
#include "device/socket_io.h"

namespace vyn {

namespace {

constexpr int kLongestWaitMs = 1000;

bool passesAsIs(unsigned char byte) {
    return (byte >= 36 && byte <= 126) || byte == '\t' || byte == '\n' || byte == '\r' ||
           byte == ' ' || byte == '"';
}

// Appends what shows `byte` and returns the end.
char* escape(unsigned char byte, char* out) {
    constexpr char kDigits[] = "0123456789abcdef";
    if (passesAsIs(byte)) {
        *out++ = static_cast<char>(byte);
        return out;
    }
    const char escaped[] = {'\\', 'x', kDigits[byte >> 4], kDigits[byte & 15]};
    return std::copy(std::begin(escaped), std::end(escaped), out);
}

ssize_t print(const char* bytes, size_t size) {
    return io::uninterrupted([&] { return ::write(STDOUT_FILENO, bytes, size); });
}

bool printAll(const char* bytes, size_t size, const io::Deadline& deadline) {
    while (size > 0) {
        const auto printNow = [&] { return print(bytes, size); };
        ssize_t count = printNow();
        if (count < 0 && io::wouldBlock()) {
            count = io::awaitAndCall(STDOUT_FILENO, POLLOUT, deadline, printNow);
        }
        if (count < 1) return false;
        bytes += count;
        size -= static_cast<size_t>(count);
    }
    return true;
}

}  // namespace

const char* ConsoleDevice::getClassName() { return "ConsoleDevice"; }

int ConsoleDevice::write(const void* data, int len) {
    constexpr int kChunk = 1024;
    char escaped[4 * kChunk];
    const auto* bytes = static_cast<const unsigned char*>(data);
    const PipeSignalGuard guard;
    const io::Deadline deadline(kLongestWaitMs);
    for (int left = len; left > 0; left -= std::min(left, kChunk)) {
        char* end = escaped;
        for (int i = 0; i < std::min(left, kChunk); ++i) end = escape(*bytes++, end);
        if (printAll(escaped, static_cast<size_t>(end - escaped), deadline)) continue;
        VYN_LOG_ERRNO_ERROR << "write to the console fail. the rest of " << len
                            << " bytes is dropped.";
        break;
    }
    return len;
}

int ConsoleDevice::getFd() { return STDIN_FILENO; }

void ConsoleDevice::disconnect() {}

int ConsoleDevice::read(char* buf, int len) {
    return static_cast<int>(
        io::uninterrupted([&] { return ::read(STDIN_FILENO, buf, static_cast<size_t>(len)); }));
}

}  // namespace vyn
