// SPDX-License-Identifier: Apache-2.0

#include <fcntl.h>
#include <linux/limits.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>
#include <vyn/file_utils.h>
#include <vyn/helper.h>
#include <vyn/logging.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <optional>

#include "common/descriptor.h"
#include "common/pipe_signal_guard.h"

namespace vyn {

namespace {

using Status = std::optional<struct stat>;

std::string directoryOf(const std::string& path) { return path.substr(0, path.rfind('/') + 1); }

// Makes `path` what it leads to through symbolic links, which need not exist. A circle of links
// ends after as many as the kernel would follow. False, with errno, when a link cannot be read.
bool followLinks(std::string& path) {
    constexpr int kMostLinks = 40;
    char link[PATH_MAX];
    for (int i = 0; i < kMostLinks; ++i) {
        const ssize_t length = readlink(path.c_str(), link, sizeof link);
        if (length < 1) return length == 0 || errno == EINVAL || errno == ENOENT;
        const std::string next(link, static_cast<size_t>(length));
        path = next.front() == '/' ? next : directoryOf(path) + next;
    }
    return true;
}

Status statusOf(const Descriptor& file) {
    struct stat status {};
    if (!file.isOpen() || fstat(file.fd(), &status) != 0) return std::nullopt;
    return status;
}

// What a call of the kind of fgetxattr() gives, however long. None when it fails.
template <typename Call>
std::optional<std::string> whole(Call call) {
    std::string bytes(1024, '\0');
    for (;;) {
        const ssize_t size = call(bytes.data(), bytes.size());
        if (size >= 0) {
            bytes.resize(static_cast<size_t>(size));
            return bytes;
        }
        // The kernel has no longer ones than these.
        if (errno != ERANGE || bytes.size() > XATTR_SIZE_MAX) return std::nullopt;
        bytes.resize(bytes.size() * 4);
    }
}

std::optional<std::string> attribute(const Descriptor& file, const char* name) {
    return whole([&](char* to, size_t size) { return fgetxattr(file.fd(), name, to, size); });
}

// Extended attributes, security labels and access lists among them. False when one cannot be given.
bool copyAttributes(const Descriptor& from, const Descriptor& to) {
    const auto names =
        whole([&](char* list, size_t size) { return flistxattr(from.fd(), list, size); });
    if (!names) return errno == ENOTSUP;
    const char* const end = names->c_str() + names->size();
    for (const char* name = names->c_str(); name < end; name += std::strlen(name) + 1) {
        const auto value = attribute(from, name);
        if (!value) return false;
        if (attribute(to, name) == value) continue;
        if (fsetxattr(to.fd(), name, value->data(), value->size(), 0) != 0) return false;
    }
    return true;
}

bool copyOwnership(const struct stat& old, const Descriptor& to) {
    const Status fresh = statusOf(to);
    if (!fresh) return false;
    const bool sameOwner = fresh->st_uid == old.st_uid && fresh->st_gid == old.st_gid;
    if (!sameOwner && fchown(to.fd(), old.st_uid, old.st_gid) != 0) return false;
    return fchmod(to.fd(), old.st_mode & 07777) == 0;
}

// Nobody else may read the new file until it has the mode and owner of the old one.
bool writeNew(const std::string& name, const Descriptor& oldFile, const Status& old,
              std::string_view content) {
    const Descriptor file(name, O_WRONLY | O_CREAT | O_EXCL, old ? 0600 : 0666);
    if (!file.isOpen()) return false;
    if (old && !copyOwnership(*old, file)) return false;
    if (old && !copyAttributes(oldFile, file)) {
        errno = EPERM;
        return false;
    }
    return file.writeAll(content) && fsync(file.fd()) == 0;
}

// The name of a file is safe on storage only when its directory is. The content is whole either
// way, so a directory that cannot be synced is no failure.
void syncDirectoryOf(const std::string& path) {
    const std::string name = directoryOf(path);
    const Descriptor directory(name.empty() ? "." : name, O_RDONLY | O_DIRECTORY);
    if (directory.isOpen()) fsync(directory.fd());
}

// A name beside the target that is in nobody's way. Of a long name only the beginning is kept,
// whole characters, so that there is room for the rest on every file system.
std::string temporaryFor(const std::string& target) {
    constexpr size_t kMostKept = 100;
    const std::string directory = directoryOf(target);
    std::string name = target.substr(directory.size());
    size_t kept = std::min(name.size(), kMostKept);
    while (kept > 0 && kept < name.size() && (name[kept] & 0xC0) == 0x80) --kept;
    name.resize(kept);
    return directory + name + "." + helper::uuid() + ".tmp";
}

// Returns 0 or the error; nothing is left behind then.
int replaceByRename(const std::string& target, const Descriptor& oldFile, const Status& old,
                    std::string_view content) {
    const std::string temporary = temporaryFor(target);
    if (writeNew(temporary, oldFile, old, content) &&
        std::rename(temporary.c_str(), target.c_str()) == 0) {
        syncDirectoryOf(target);
        return 0;
    }
    const int error = errno;
    unlink(temporary.c_str());
    return error;
}

// The errors of a directory that may not be written, a file system that is read-only but for this
// file, a file that is a mount point, an owner that may not be given and a path that would get too
// long. Others, such as a full disk, would meet the rewriting too.
bool speaksForRewriting(int error) {
    return error == EACCES || error == EPERM || error == EROFS || error == EBUSY ||
           error == EXDEV || error == ENAMETOOLONG;
}

// `size` is that of the file, which is cut only where it must be: a file that may grow but not
// shrink can still get its old content back.
bool overwrite(const Descriptor& file, size_t size, std::string_view content) {
    return lseek(file.fd(), 0, SEEK_SET) == 0 && file.writeAll(content) &&
           (size <= content.size() ||
            ftruncate(file.fd(), static_cast<off_t>(content.size())) == 0) &&
           fsync(file.fd()) == 0;
}

std::optional<std::string> contentOf(const std::string& path) {
    const Descriptor file(path, O_RDONLY);
    if (!file.isOpen()) return std::nullopt;
    std::string content;
    char block[4096];
    ssize_t count;
    while ((count = file.read(block, sizeof block)) > 0) {
        content.append(block, static_cast<size_t>(count));
    }
    if (count < 0) return std::nullopt;
    return content;
}

// Returns 0 or the error. Asks for the space before anything is overwritten. Where a file system
// cannot promise any, or writing fails for another reason, the old content is put back: its blocks
// are still there.
int rewrite(const std::string& path, const Descriptor& file, std::string_view content) {
    const bool full =
        fallocate(file.fd(), FALLOC_FL_KEEP_SIZE, 0, static_cast<off_t>(content.size())) != 0 &&
        (errno == ENOSPC || errno == EDQUOT || errno == EFBIG);
    if (full) return errno;
    const std::optional<std::string> old = contentOf(path);
    if (!old) return errno;
    if (overwrite(file, old->size(), content)) return 0;
    const int error = errno;
    overwrite(file, std::max(old->size(), content.size()), *old);
    return error;
}

// Returns 0 or the error.
int replace(const std::string& path, std::string_view content) {
    std::string target = path;
    if (!followLinks(target)) return errno;
    // A file that may not be written is not to be replaced either. Without O_NONBLOCK, opening a
    // named pipe would wait for a reader.
    const Descriptor file(target, O_WRONLY | O_NONBLOCK);
    if (!file.isOpen() && (errno != ENOENT || target.empty())) return errno;
    const Status old = statusOf(file);
    if (file.isOpen() && !old) return errno;
    if (old && !S_ISREG(old->st_mode)) {
        const PipeSignalGuard guard;
        return file.writeAll(content) ? 0 : errno;
    }
    const int error = replaceByRename(target, file, old, content);
    return old && speaksForRewriting(error) ? rewrite(target, file, content) : error;
}

}  // namespace

bool replaceFile(const std::string& path, std::string_view content) {
    const int error = replace(path, content);
    if (error == 0) return true;
    errno = error;
    VYN_LOG_ERRNO_ERROR << "save fail. " << path << " stays as it was.";
    return false;
}

}  // namespace vyn
