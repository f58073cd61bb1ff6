// SPDX-License-Identifier: Apache-2.0

// Any bytes as a settings file: the entries read from it, written and read again are the same.

#include <sys/mman.h>
#include <unistd.h>
#include <vyn/ini_config.h>
#include <vyn/logging.h>

#include <sstream>
#include <string>

namespace {

using vyn::IniConfig;

// What a file in memory, which still has a path, gives.
IniConfig parsed(const std::string& content) {
    const int fd = memfd_create("settings", MFD_CLOEXEC);
    const ssize_t written = write(fd, content.data(), content.size());
    VYN_CHECK(written == static_cast<ssize_t>(content.size()));
    IniConfig config("/proc/self/fd/" + std::to_string(fd));
    close(fd);
    return config;
}

std::string dumpOf(const IniConfig& config) {
    std::ostringstream text;
    config.dump(text);
    return text.str();
}

bool isTrimmed(const std::string& text) {
    const auto isBlank = [](char byte) { return byte == ' ' || (byte >= '\t' && byte <= '\r'); };
    return text.empty() || (!isBlank(text.front()) && !isBlank(text.back()));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const IniConfig config = parsed(std::string(data, data + size));
    const std::string dump = dumpOf(config);
    VYN_CHECK(dumpOf(parsed(dump)) == dump) << dump;
    std::istringstream lines(dump);
    for (std::string line; std::getline(lines, line);) {
        const size_t separator = line.find('=');
        VYN_CHECK(separator != std::string::npos) << line;
        const std::string key = line.substr(0, separator);
        const std::string value = line.substr(separator + 1);
        VYN_CHECK(isTrimmed(key) && isTrimmed(value)) << line;
        VYN_CHECK(config.get(key, "missing") == value) << line;
    }
    return 0;
}
