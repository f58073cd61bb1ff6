// SPDX-License-Identifier: Apache-2.0

#include "device/socket_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vyn/logging.h>

#include <cerrno>
#include <string>

#include "device/socket_io.h"
#include "device/unix_address.h"

namespace vyn {

namespace {

constexpr int kLongestWaitMs = 1000;

// The address is somebody's.
bool failAsInUse() {
    errno = EADDRINUSE;
    return false;
}

bool isSocket(const char* path) {
    struct stat status {};
    if (lstat(path, &status) != 0) return false;
    return S_ISSOCK(status.st_mode) || failAsInUse();
}

// Asks with a datagram socket: the kernel refuses the connection only when nobody has the file
// bound, and a stream listener does not notice it.
bool isAbandoned(const UnixAddress& address) {
    const int probe = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (probe < 0) return false;
    const bool refused =
        ::connect(probe, address.raw(), address.length()) != 0 && errno == ECONNREFUSED;
    io::closeDescriptor(probe);
    return refused || failAsInUse();
}

}  // namespace

SocketFileLock::SocketFileLock(const UnixAddress& address) {
    const std::string path = address.path();
    if (path.empty()) return;
    const size_t slash = path.rfind('/');
    const std::string folder = slash == std::string::npos ? "." : path.substr(0, slash + 1);
    const int flags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;
    mFolder = io::uninterrupted([&] { return ::open(folder.c_str(), flags); });
    if (mFolder < 0) return;
    const io::Deadline deadline(kLongestWaitMs);
    while (flock(mFolder, LOCK_EX | LOCK_NB) != 0 && (io::wouldBlock() || errno == EINTR)) {
        if (io::waitALittle(deadline)) continue;
        VYN_LOG_WARNING << "the lock of folder " << folder << " is held for more than "
                        << kLongestWaitMs << " ms, " << path << " is bound without it.";
        return;
    }
}

SocketFileLock::~SocketFileLock() { io::closeDescriptor(mFolder); }

bool removeAbandonedSocketFile(const UnixAddress& address) {
    return isSocket(address.path()) && isAbandoned(address) && unlink(address.path()) == 0;
}

}  // namespace vyn
