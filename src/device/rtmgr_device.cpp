// SPDX-License-Identifier: Apache-2.0

#include <linux/rtnetlink.h>
#include <sys/socket.h>
#include <vyn/logging.h>
#include <vyn/rtmgr_device.h>

#include <cerrno>

#include "device/netlink_records.h"
#include "device/socket_io.h"

namespace vyn {

namespace {

// One datagram, as much of it as fits; -1 on failure.
ssize_t receiveDatagram(int fd, char* buffer, size_t size) {
    sockaddr_nl source{};
    iovec vector{buffer, size};
    msghdr message{};
    message.msg_name = &source;
    message.msg_namelen = sizeof source;
    message.msg_iov = &vector;
    message.msg_iovlen = 1;
    return io::uninterrupted([&] { return recvmsg(fd, &message, 0); });
}

}  // namespace

RtmgrDevice::RtmgrDevice()
    : mSocket(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_ROUTE)) {
    VYN_CHECK(mSocket >= 0);
    if (mSocket < 0) {
        VYN_LOG_ERRNO_INFO << "create socket(AF_NETLINK, SOCK_RAW, NETLINK_ROUTE) failed.";
        return;
    }
    joinGroups();
}

RtmgrDevice::~RtmgrDevice() { io::closeDescriptor(mSocket); }

const char* RtmgrDevice::getClassName() { return "RtmgrDevice"; }

void RtmgrDevice::onDataArrival(int fd) {
    if (mSocket < 0) return;
    VYN_CHECK(fd == mSocket);
    char buffer[4096] = {};
    const ssize_t count = receiveDatagram(mSocket, buffer, sizeof buffer);
    // The event carries no detail, so the names are not used: reading them shows in the log what
    // arrives damaged.
    if (count > 0) netlink::interfaceNames(buffer, static_cast<size_t>(count));
    if (count < 0) onFailure(errno);
    onNetworkChanged();  // the device may be gone afterwards
}

// Where more has changed than the kernel keeps reports of, it tells so once. Of other failures it
// tells each time it is asked, for as long as a report waits.
void RtmgrDevice::onFailure(int error) {
    constexpr int kRestMs = 1000;
    if (error == EAGAIN) return restFor(io::kNotReadyRestMs);
    VYN_LOG_ERRNO_ERROR << "netlink read fail. a change is reported all the same.";
    if (error != ENOBUFS) restFor(kRestMs);
}

int RtmgrDevice::write(const void*, int len) { return len; }

int RtmgrDevice::getFd() { return mSocket; }

void RtmgrDevice::disconnect() {}

void RtmgrDevice::joinGroups() {
    sockaddr_nl address{};
    address.nl_family = AF_NETLINK;
    address.nl_groups = RTMGRP_LINK | RTMGRP_IPV4_IFADDR;
    const int ret = bind(mSocket, reinterpret_cast<const sockaddr*>(&address), sizeof address);
    VYN_CHECK(ret == 0);
    if (ret < 0) VYN_LOG_ERRNO_INFO << "bind netlink socket failed.";
}

}  // namespace vyn
