// SPDX-License-Identifier: Apache-2.0

#include <vyn/device.h>
#include <vyn/logging.h>
#include <vyn/worker.h>

#include <cerrno>
#include <new>

#include "connector/life_watch.h"
#include "device/own_socket.h"
#include "device/read_size.h"

namespace vyn {

Device::~Device() {
    LifeWatch::end(this);
    forgetReadSize(*this);
}

const char* Device::getClassName() { return "Device"; }

void Device::onReady() {}

std::vector<int> Device::getFds() { return {}; }

void Device::disconnect() { onDisconnected(); }

int Device::heartbitInterval() { return 0; }

int Device::heartbitTimeout() { return 0; }

void Device::dump(std::ostream&) {}

void Device::onDisconnected() {
    if (mWorker != nullptr) mWorker->onDisconnected();
}

void Device::attach(Worker* worker) { mWorker = worker; }

void Device::onData(const void* data, int len) {
    if (mWorker != nullptr) mWorker->onData(data, len);
}

void Device::onNewConnection(int fd, void* data) {
    if (mWorker != nullptr) mWorker->onNewConnection(fd, data);
}

void Device::onNetworkChanged() {
    if (mWorker != nullptr) mWorker->onNetworkChanged();
}

void Device::onFileChanged(const std::string& path, int mask) {
    if (mWorker != nullptr) mWorker->onFileChanged(path, mask);
}

void Device::descriptorsChanged() {
    if (mWorker != nullptr) mWorker->onDescriptorsChanged();
}

void Device::restFor(int ms) {
    if (mWorker != nullptr) mWorker->onDeviceRests(ms);
}

const char* BaseDevice::getClassName() { return "BaseDevice"; }

void BaseDevice::onDataArrival(int) {
    const int count = readAndReport();
    if (count < 1) reportEnd(count);
}

int BaseDevice::create() { return -1; }

int BaseDevice::readAndReport() {
    const int size = readSizeOf(*this, mWorker);
    if (size > 0) return readAndReport(size);
    if (OwnSocket::of(this).exists()) {
        UsualReadBuffer buffer;
        if (buffer.bytes() != nullptr) {
            const int count = read(buffer.bytes(), UsualReadBuffer::kSize);
            if (count > 0) {
                buffer.onRead(count);
                onData(buffer.bytes(), count);
            }
            return count;
        }
    }
    return readIntoZeros();
}

// Aside, so that others do without the room on the stack.
[[gnu::noinline]] int BaseDevice::readIntoZeros() {
    char buffer[UsualReadBuffer::kSize] = {};
    const int count = read(buffer, sizeof buffer);
    if (count > 0) onData(buffer, count);
    return count;  // the device may be gone by now
}

// Into memory of the thread's; where there is none, what fits elsewhere.
int BaseDevice::readAndReport(int size) {
    char few[256];
    ReadBuffer buffer(static_cast<size_t>(size));
    const bool isThere = buffer.bytes() != nullptr;
    char* const bytes = isThere ? buffer.bytes() : few;
    const int count = read(bytes, isThere ? size : static_cast<int>(sizeof few));
    if (count > 0) onData(bytes, count);
    return count;
}

bool BaseDevice::setReadSize(int bytes) {
    if (bytes < 1 || bytes > kMostReadSize) return false;
    mWorker == nullptr ? rememberReadSize(*this, bytes) : mWorker->setReadSize(bytes);
    return true;
}

void BaseDevice::reportEnd(int count) {
    if (count == 0) errno = 0;  // whatever it was, it is not why the stream ends
    const int error = errno;
    VYN_LOG_ERRNO_INFO << "read. ret:" << count;
    if (mWorker != nullptr) {
        if (count == 0 && mWorker->outlivesEndOfStream()) return;
        mWorker->setDisconnectReason(
            count == 0 ? DisconnectReason::kEndOfStream : DisconnectReason::kError, error);
    }
    onDisconnected();
}

std::ostream& operator<<(std::ostream& os, Device* device) {
    if (device == nullptr) return os << "Device(NULL)";
    os << device->getClassName() << "(" << static_cast<const void*>(device)
       << "): {fd=" << device->getFd() << ", ";
    try {
        device->dump(os);
    } catch (const std::bad_alloc&) {  // a line about a device ends no loop
        os.setstate(std::ios_base::badbit);
    }
    return os << "}";
}

}  // namespace vyn
