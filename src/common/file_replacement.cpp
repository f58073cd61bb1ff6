#include "common/file_replacement.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>
#include <vyn/helper.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <optional>

#include "common/descriptor.h"

namespace vyn {

namespace {

using Status = std::optional<struct stat>;

std::string directoryOf(const std::string& path) { return path.substr(0, path.rfind('/') + 1); }

// What `path` leads to through symbolic links, which need not exist. A circle of links ends after
// as many as the kernel would follow.
std::string followLinks(std::string path) {
    constexpr int kMostLinks = 40;
    char link[PATH_MAX];
    for (int i = 0; i < kMostLinks; ++i) {
        const ssize_t length = readlink(path.c_str(), link, sizeof link);
        if (length < 1) break;
        const std::string next(link, static_cast<size_t>(length));
        path = next.front() == '/' ? next : directoryOf(path) + next;
    }
    return path;
}

Status statusOf(const Descriptor& file) {
    struct stat status {};
    if (!file.isOpen() || fstat(file.fd(), &status) != 0) return std::nullopt;
    return status;
}

// Extended attributes, security labels and access lists among them. False when one cannot be given.
bool copyAttributes(const Descriptor& from, const Descriptor& to) {
    char names[4096];
    const ssize_t length = flistxattr(from.fd(), names, sizeof names);
    for (const char* name = names; name < names + length; name += std::strlen(name) + 1) {
        char value[4096];
        const ssize_t size = fgetxattr(from.fd(), name, value, sizeof value);
        if (size < 0) return false;
        char present[sizeof value];
        const bool same = fgetxattr(to.fd(), name, present, sizeof present) == size &&
                          std::memcmp(value, present, static_cast<size_t>(size)) == 0;
        if (!same && fsetxattr(to.fd(), name, value, static_cast<size_t>(size), 0) != 0) {
            return false;
        }
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
              const std::string& content) {
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

// Returns 0 or the error; nothing is left behind then.
int replaceByRename(const std::string& target, const Descriptor& oldFile, const Status& old,
                    const std::string& content) {
    const std::string temporary = target + "." + helper::uuid() + ".tmp";
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
// file, a file that is a mount point, an owner that may not be given and a name that would get too
// long. Others, such as a full disk, would meet the rewriting too.
bool speaksForRewriting(int error) {
    return error == EACCES || error == EPERM || error == EROFS || error == EBUSY ||
           error == EXDEV || error == ENAMETOOLONG;
}

bool overwrite(const Descriptor& file, const std::string& content) {
    return lseek(file.fd(), 0, SEEK_SET) == 0 && file.writeAll(content) &&
           ftruncate(file.fd(), static_cast<off_t>(content.size())) == 0 && fsync(file.fd()) == 0;
}

std::string contentOf(const std::string& path) {
    const Descriptor file(path, O_RDONLY);
    std::string content;
    char block[4096];
    for (ssize_t count = 0; (count = file.read(block, sizeof block)) > 0;) {
        content.append(block, static_cast<size_t>(count));
    }
    return content;
}

// Asks for the space before anything is overwritten. Where a file system cannot promise any, or
// writing fails for another reason, the old content is put back: its blocks are still there.
bool rewrite(const std::string& path, const Descriptor& file, const std::string& content) {
    const bool full =
        fallocate(file.fd(), FALLOC_FL_KEEP_SIZE, 0, static_cast<off_t>(content.size())) != 0 &&
        (errno == ENOSPC || errno == EDQUOT || errno == EFBIG);
    if (full) return false;
    const std::string old = contentOf(path);
    if (overwrite(file, content)) return true;
    const int error = errno;
    overwrite(file, old);
    errno = error;
    return false;
}

}  // namespace

bool replaceFile(const std::string& path, const std::string& content) {
    const std::string target = followLinks(path);
    // A file that may not be written is not to be replaced either. Without O_NONBLOCK, opening a
    // named pipe would wait for a reader.
    const Descriptor file(target, O_WRONLY | O_NONBLOCK);
    if (!file.isOpen() && (errno != ENOENT || target.empty())) return false;
    const Status old = statusOf(file);
    if (old && !S_ISREG(old->st_mode)) return file.writeAll(content);
    const int error = replaceByRename(target, file, old, content);
    if (error == 0) return true;
    return speaksForRewriting(error) && old && rewrite(target, file, content);
}

}  // namespace vyn
