// SPDX-License-Identifier: Apache-2.0

#include <fcntl.h>
#include <unistd.h>
#include <vyn/helper.h>
#include <vyn/lock.h>
#include <vyn/logging.h>

#include <atomic>
#include <cerrno>
#include <cstring>

namespace vyn::helper {

namespace {

// Written once, by the thread that learns the name first; read without the lock afterwards.
class NameCache {
  public:
    [[nodiscard]] bool isFilled() const { return mFilled.load(std::memory_order_acquire); }
    [[nodiscard]] const std::string& name() const { return isFilled() ? mName : mUnknown; }

    void fill(const std::string& name) {
        AutoLock lock(mLock);
        if (isFilled() || name.empty()) return;
        mName = name;
        mFilled.store(true, std::memory_order_release);
    }

  private:
    Lock mLock;
    std::atomic<bool> mFilled{false};
    std::string mName;
    const std::string mUnknown;
};

// The text up to the first NUL, and closes the descriptor.
std::string readFirstWord(int fd) {
    char text[1024] = {};
    [[maybe_unused]] const ssize_t length = read(fd, text, sizeof text - 1);
    close(fd);
    return text;
}

}  // namespace

const std::string& getCurrentProcessName() {
    static NameCache cache;
    if (cache.isFilled()) return cache.name();

    const int fd = open("/proc/self/cmdline", O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        VYN_LOG_ERRNO_INFO << "open";
    } else {
        cache.fill(readFirstWord(fd));
    }
    return cache.name();
}

int getCurrentProcessId() { return getpid(); }

std::string getErrorMessage(int error) { return std::strerror(error); }

void sleep(int seconds) {
    if (seconds > 0) ::sleep(static_cast<unsigned>(seconds));
}

}  // namespace vyn::helper
