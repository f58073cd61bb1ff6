// SPDX-License-Identifier: Apache-2.0

#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vyn/file_utils.h>
#include <vyn/logging.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>

#include "common/descriptor.h"

namespace vyn {

namespace {

int sizeIn(const struct stat& status) {
    return static_cast<int>(std::min<decltype(status.st_size)>(status.st_size, INT_MAX));
}

// The size of the file that was opened, which a renaming may have put in the place of the one whose
// size was asked for before; or the error, negative.
int sizeOf(const Descriptor& file) {
    struct stat status {};
    return fstat(file.fd(), &status) == 0 ? sizeIn(status) : -errno;
}

// Reads until `out` is full. Returns 0 or the error; a file that ends too early sets none of its
// own.
int fill(const Descriptor& file, Buffer& out) {
    int done = 0;
    while (done < out.size) {
        const ssize_t count = file.read(out.data + done, static_cast<size_t>(out.size - done));
        if (count < 1) return count < 0 ? errno : EIO;
        done += static_cast<int>(count);
    }
    return 0;
}

// Returns 0 or the error.
int appendRest(int descriptor, std::string& content) {
    char block[16384];
    for (;;) {
        const ssize_t count = read(descriptor, block, sizeof block);
        if (count == 0) return 0;
        if (count > 0) {
            if (content.size() + static_cast<size_t>(count) > INT_MAX) return EFBIG;
            content.append(block, static_cast<size_t>(count));
        } else if (errno == EAGAIN) {
            pollfd interest{descriptor, POLLIN, 0};
            if (poll(&interest, 1, -1) < 0 && errno != EINTR) return errno;
        } else if (errno != EINTR) {
            return errno;
        }
    }
}

// Some file systems do not tell in the entry.
bool isDirectory(DIR* parent, const dirent& entry) {
    if (entry.d_type != DT_UNKNOWN) return entry.d_type == DT_DIR;
    struct stat status {};
    return fstatat(dirfd(parent), entry.d_name, &status, AT_SYMLINK_NOFOLLOW) == 0 &&
           S_ISDIR(status.st_mode);
}

// "." and ".." are directories too, but too short to be counted.
bool isCounted(DIR* parent, const dirent& entry) {
    const size_t length = std::strlen(entry.d_name);
    return (length == 9 || length == 16) && isDirectory(parent, entry);
}

}  // namespace

int filesize(const std::string& path) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) {
        VYN_LOG_ERRNO_INFO << "stat fail.";
        return -errno;
    }
    return sizeIn(status);
}

bool fileexists(const std::string& path) { return access(path.c_str(), R_OK) == 0; }

bool createfile(const std::string& path) {
    if (fileexists(path)) return true;
    FILE* file = std::fopen(path.c_str(), "wbe");
    if (file == nullptr) {
        VYN_LOG_ERRNO_INFO << "fopen fail.";
        return false;
    }
    std::fclose(file);
    return true;
}

int readFile(const std::string& path, Buffer& out) {
    const int found = filesize(path);
    if (found < 0) return found;
    // Without O_NONBLOCK, opening a named pipe would wait for a writer.
    const Descriptor file(path, O_RDONLY | O_NONBLOCK);
    if (!file.isOpen()) {
        VYN_LOG_ERRNO_INFO << "fopen fail.";
        return -errno;
    }
    const int size = sizeOf(file);
    if (size < 0) {
        errno = -size;
        VYN_LOG_ERRNO_INFO << "stat fail.";
        return size;
    }
    out.assign(size, 0);
    const int error = fill(file, out);
    if (error != 0) {
        errno = error;
        VYN_LOG_ERRNO_INFO << "fread fail.";
        return -error;
    }
    return out.size;
}

int readToEnd(const std::string& path, Buffer& out) {
    const Descriptor file(path, O_RDONLY);
    if (!file.isOpen()) {
        VYN_LOG_ERRNO_INFO << "fopen fail.";
        return -errno;
    }
    return readToEnd(file.fd(), out);
}

int readToEnd(int descriptor, Buffer& out) {
    std::string content;
    const int error = appendRest(descriptor, content);
    if (error != 0) {
        errno = error;
        VYN_LOG_ERRNO_INFO << "fread fail.";
        return -error;
    }
    out.assign(content.data(), static_cast<int>(content.size()));
    return out.size;
}

int getDirCount(const std::string& path) {
    DIR* directory = opendir(path.c_str());
    if (directory == nullptr) {
        VYN_LOG_ERRNO_INFO << "fread fail.";
        return 0;
    }
    int count = 0;
    while (const dirent* entry = readdir(directory)) count += isCounted(directory, *entry);
    closedir(directory);
    return count;
}

}  // namespace vyn
