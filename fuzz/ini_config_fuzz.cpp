// Any bytes as a settings file: the entries read from it, written and read again are the same.

#include <sys/mman.h>
#include <unistd.h>
#include <vyn/ini_config.h>
#include <vyn/logging.h>

#include <sstream>
#include <string>

namespace vyn {
namespace {

// A file in memory that still has a path.
class MemoryFile {
  public:
    explicit MemoryFile(const std::string& content) : mFd(memfd_create("settings", MFD_CLOEXEC)) {
        const ssize_t written = write(mFd, content.data(), content.size());
        VYN_CHECK(written == static_cast<ssize_t>(content.size()));
    }
    ~MemoryFile() { close(mFd); }
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;

    std::string path() const { return "/proc/self/fd/" + std::to_string(mFd); }

  private:
    const int mFd;
};

std::string dumpOf(const IniConfig& config) {
    std::ostringstream text;
    config.dump(text);
    return text.str();
}

std::string parsed(const std::string& content) {
    return dumpOf(IniConfig(MemoryFile(content).path()));
}

bool isTrimmed(const std::string& text) {
    const auto isBlank = [](char byte) { return byte == ' ' || (byte >= '\t' && byte <= '\r'); };
    return text.empty() || (!isBlank(text.front()) && !isBlank(text.back()));
}

void checkEntries(const IniConfig& config, const std::string& dump) {
    std::istringstream lines(dump);
    for (std::string line; std::getline(lines, line);) {
        const size_t separator = line.find('=');
        VYN_CHECK(separator != std::string::npos) << line;
        const std::string key = line.substr(0, separator);
        const std::string value = line.substr(separator + 1);
        VYN_CHECK(isTrimmed(key) && isTrimmed(value)) << line;
        VYN_CHECK(config.exist(key)) << line;
        VYN_CHECK(config.get(key, "missing") == value) << line;
    }
}

}  // namespace
}  // namespace vyn

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string content(reinterpret_cast<const char*>(data), size);
    const vyn::MemoryFile file(content);
    vyn::IniConfig config(file.path());
    const std::string dump = vyn::dumpOf(config);
    VYN_CHECK(vyn::parsed(dump) == dump) << dump;
    vyn::checkEntries(config, dump);
    config.load(file.path());
    VYN_CHECK(vyn::dumpOf(config) == dump) << dump;
    return 0;
}
