// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string>

#include <fcntl.h>
#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <string_view>

namespace vyn {

// A file that is open for as long as this object lives. Its operations go on when a signal
// interrupts them.
class Descriptor {
  public:
    // As open(2), and closed on exec. On failure isOpen() is false and errno tells why.
    Descriptor(const std::string& path, int flags, mode_t mode = 0)
        : mFd(static_cast<int>(
              retry([&] { return ::open(path.c_str(), flags | O_CLOEXEC, mode); }))) {}
    ~Descriptor() {
        if (isOpen()) ::close(mFd);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    [[nodiscard]] bool isOpen() const { return mFd >= 0; }
    [[nodiscard]] int fd() const { return mFd; }

    // As read(2).
    ssize_t read(void* bytes, size_t size) const {
        return retry([&] { return ::read(mFd, bytes, size); });
    }

    // Writes all of `text`; false, with errno, when that fails.
    [[nodiscard]] bool writeAll(std::string_view text) const {
        size_t done = 0;
        while (done < text.size()) {
            const ssize_t count =
                retry([&] { return ::write(mFd, text.data() + done, text.size() - done); });
            if (count == 0) errno = EIO;
            if (count < 1) return false;
            done += static_cast<size_t>(count);
        }
        return true;
    }

  private:
    template <typename Call>
    static ssize_t retry(Call call) {
        ssize_t result = call();
        while (result < 0 && errno == EINTR) result = call();
        return result;
    }

    int mFd;
};

}  // namespace vyn
