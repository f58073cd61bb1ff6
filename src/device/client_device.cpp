// SPDX-License-Identifier: Apache-2.0

#include <vyn/client_device.h>

#include <cerrno>

#include "device/client_link.h"

namespace vyn {

namespace {

// A device without a connection takes no bytes for now.
int takeNone() {
    errno = EAGAIN;
    return -1;
}

}  // namespace

ClientDevice::ClientDevice(const std::string& ip, int port, const ClientOptions& options,
                           const ClientFunctions& functions)
    : mIp(ip),
      mPort(port),
      mLink(std::make_unique<ClientLink>(
          *this, mSocket, options, functions,
          ClientLink::Steps{
              [this] { return mSocket.create(Socket::TCP) && mSocket.startConnect(mIp, mPort); },
              [this] { return mWorker; }})) {}

ClientDevice::~ClientDevice() = default;

bool ClientDevice::connect() { return mLink->start(); }

void ClientDevice::setAddress(const std::string& ip, int port) {
    mIp = ip;
    mPort = port;
}

void ClientDevice::setAddress(const SocketAddress& address) {
    setAddress(address.ip(), address.port());
}

bool ClientDevice::isConnected() const { return mLink->isConnected(); }

bool ClientDevice::willReconnect() const { return mLink->willReconnect(); }

void ClientDevice::reconnect() {
    if (mLink->isConnected()) onDisconnected();
}

const char* ClientDevice::getClassName() { return "ClientDevice"; }

void ClientDevice::onDataArrival(int fd) {
    mLink->isConnected() ? NetDevice::onDataArrival(fd) : mLink->onReadable();
}

int ClientDevice::write(const void* data, int len) {
    return mLink->isConnected() ? NetDevice::write(data, len) : takeNone();
}

int ClientDevice::getFd() { return mLink->fd(); }

void ClientDevice::disconnect() {
    mLink->stop();
    NetDevice::disconnect();
}

UnixClientDevice::UnixClientDevice(const std::string& addr, const ClientOptions& options,
                                   const ClientFunctions& functions)
    : mAddress(addr),
      mLink(std::make_unique<ClientLink>(
          *this, mSocket, options, functions,
          ClientLink::Steps{[this] {
                                return mSocket.create(UnixSocket::STREAM) &&
                                       mSocket.setNonBlock(true) && mSocket.connect(mAddress);
                            },
                            [this] { return mWorker; }})) {}

UnixClientDevice::~UnixClientDevice() = default;

bool UnixClientDevice::connect() { return mLink->start(); }

bool UnixClientDevice::isConnected() const { return mLink->isConnected(); }

bool UnixClientDevice::willReconnect() const { return mLink->willReconnect(); }

void UnixClientDevice::reconnect() {
    if (mLink->isConnected()) onDisconnected();
}

const char* UnixClientDevice::getClassName() { return "UnixClientDevice"; }

void UnixClientDevice::onDataArrival(int fd) {
    mLink->isConnected() ? UnixDevice::onDataArrival(fd) : mLink->onReadable();
}

int UnixClientDevice::write(const void* data, int len) {
    return mLink->isConnected() ? UnixDevice::write(data, len) : takeNone();
}

int UnixClientDevice::getFd() { return mLink->fd(); }

void UnixClientDevice::disconnect() {
    mLink->stop();
    UnixDevice::disconnect();
}

}  // namespace vyn
