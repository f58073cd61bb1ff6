// SPDX-License-Identifier: Apache-2.0

#include <sys/stat.h>
#include <vyn/logging.h>
#include <vyn/unix_device.h>

#include <cerrno>

#include "device/accept.h"
#include "device/unix_address.h"

namespace vyn {

namespace {

void openToEveryone(const std::string& addr) {
    if (UnixAddress::isAbstract(addr)) return;  // names have no permissions
    const int ret = chmod(addr.c_str(), 0777);
    VYN_CHECK(ret == 0) << "chmod addr " << addr << " to 0777 failed. ret = " << ret << " "
                        << logging::ErrnoText{errno};
}

}  // namespace

UnixListenerDevice::UnixListenerDevice(const std::string& addr) {
    const bool b = mSocket.create(UnixSocket::STREAM) && mSocket.bind(addr);
    VYN_CHECK(b == true) << "bind addr " << addr << " failed. " << logging::ErrnoText{errno};
    const bool listening = b ? beginListening() : mSocket.listen();
    openToEveryone(addr);
    if (!listening) return;
    VYN_LOG_DEBUG << "bind on " << addr;
    VYN_LOG_DEBUG << "listen on " << mSocket.getLocalAddr();
}

UnixListenerDevice::UnixListenerDevice(const UnixSocket* bound) : UnixDevice(bound) {
    if (mSocket.isValid() && beginListening()) {
        VYN_LOG_DEBUG << "listen on " << mSocket.getLocalAddr();
    }
}

const char* UnixListenerDevice::getClassName() { return "UnixListenerDevice"; }

void UnixListenerDevice::onDataArrival(int fd) {
    VYN_CHECK(fd == mSocket.fd());
    UnixSocket accepted = mSocket.accept();
    const int error = errno;
    if (!accepted.isValid()) restFor(io::msUntilNextAccept(error));
    VYN_LOG_VERBOSE << "\033[1;33;40m"
                    << "Run here! "
                    << "accepted fd " << accepted.fd() << " from " << mSocket.getLocalAddr();
    errno = error;
    onNewConnection(getFd(), &accepted);
}

std::string UnixListenerDevice::getAddress() { return mSocket.getLocalAddr(); }

bool UnixListenerDevice::beginListening() {
    const bool listening = mSocket.listen();
    VYN_CHECK(listening == true) << "listen on " << mSocket.getLocalAddr() << " failed. "
                                 << logging::ErrnoText{errno};
    return listening;
}

}  // namespace vyn
