#include <vyn/logging.h>
#include <vyn/net_device.h>

namespace vyn {

namespace {

std::string localAddress(const Socket& socket) {
    return socket.getHostIP() + ":" + std::to_string(socket.getHostPort());
}

}  // namespace

ListenerDevice::ListenerDevice() = default;

ListenerDevice::ListenerDevice(int port, const std::string& ip) {
    if (port < 0) return;
    const bool b = bindTo(port, ip);
    VYN_CHECK(b == true) << "bind [" << ip << ":" << port << "] failed. "
                         << logging::ErrnoText{errno};
    const bool listening = mSocket.listen();
    if (!b) return;
    VYN_CHECK(listening == true) << "listen on " << localAddress(mSocket) << " failed. "
                                 << logging::ErrnoText{errno};
    if (listening) VYN_LOG_DEBUG << "listen on " << localAddress(mSocket);
}

const char* ListenerDevice::getClassName() { return "ListenerDevice"; }

void ListenerDevice::onDataArrival(int fd) {
    VYN_CHECK(fd == mSocket.fd());
    Socket accepted = mSocket.accept();
    VYN_LOG_VERBOSE << "\033[1;33;40m"
                    << "Run here! "
                    << "accepted = " << accepted.fd();
    onNewConnection(getFd(), &accepted);
}

bool ListenerDevice::listen(int port, const std::string& ip) {
    mSocket.reset();
    if (!bindTo(port, ip)) {
        VYN_LOG_ERRNO_INFO << "bind [" << ip << ":" << port << "] failed.";
        return false;
    }
    if (!mSocket.listen()) {
        VYN_LOG_ERRNO_INFO << "listen on " << localAddress(mSocket) << " failed.";
        return false;
    }
    VYN_LOG_INFO << "listen on " << localAddress(mSocket);
    return true;
}

bool ListenerDevice::bindTo(int port, const std::string& ip) {
    return mSocket.create(Socket::TCP) && mSocket.setHostIP(ip) && mSocket.bind(port);
}

}  // namespace vyn
