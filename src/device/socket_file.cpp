#include "device/socket_file.h"

#include <sys/stat.h>
#include <unistd.h>

#include "device/socket_io.h"
#include "device/unix_address.h"

namespace vyn {

namespace {

bool isSocket(const char* path) {
    struct stat status {};
    return lstat(path, &status) == 0 && S_ISSOCK(status.st_mode);
}

// Asks with a datagram socket: the kernel refuses the connection only when nobody has the file
// bound, and a stream listener does not notice it.
bool isAbandoned(const UnixAddress& address) {
    const int probe = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const bool refused =
        ::connect(probe, address.raw(), address.length()) != 0 && errno == ECONNREFUSED;
    io::closeDescriptor(probe);
    return refused;
}

}  // namespace

bool removeAbandonedSocketFile(const UnixAddress& address) {
    return isSocket(address.path()) && isAbandoned(address) && unlink(address.path()) == 0;
}

}  // namespace vyn
