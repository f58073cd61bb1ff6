// SPDX-License-Identifier: Apache-2.0

#include <sys/inotify.h>
#include <unistd.h>
#include <vyn/inotify_device.h>
#include <vyn/logging.h>
#include <vyn/worker.h>

#include <cerrno>

#include <utility>

#include "connector/life_watch.h"
#include "device/inotify_records.h"
#include "device/socket_io.h"

namespace vyn {

InotifyDevice::InotifyDevice() : mFd(inotify_init1(IN_CLOEXEC | IN_NONBLOCK)) {
    VYN_LOG_VERBOSE << "\033[1;33;40m"
                    << "Run here! "
                    << "mFd: " << mFd;
    if (mFd == -1) VYN_LOG_ERRNO_ERROR << "mFd == -1. inotify init fail.";
}

InotifyDevice::~InotifyDevice() { io::closeDescriptor(mFd); }

void InotifyDevice::watch(const std::string& path) {
    addWatch(path);
    mPath = path;
}

int InotifyDevice::addWatch(const std::string& path, uint32_t events) {
    const int ret = inotify_add_watch(mFd, path.c_str(), events);
    if (ret < 0) {
        VYN_LOG_ERRNO_ERROR << "ret < 0. watch path failed: " << path;
    } else {
        mWatches[ret] = path;
    }
    return ret;
}

bool InotifyDevice::removeWatch(int watch) { return inotify_rm_watch(mFd, watch) == 0; }

void InotifyDevice::setOnChange(Function onChange) {
    mOnChange =
        onChange == nullptr ? nullptr : std::make_shared<const Function>(std::move(onChange));
}

bool InotifyDevice::Change::isOverflow() const { return (events & IN_Q_OVERFLOW) != 0; }

const char* InotifyDevice::getClassName() { return "InotifyDevice"; }

void InotifyDevice::onDataArrival(int) {
    alignas(inotify_event) char buffer[2048] = {};
    const ssize_t count = io::uninterrupted([&] { return ::read(mFd, buffer, sizeof buffer); });
    if (count < 0 && io::wouldBlock()) return restFor(io::kNotReadyRestMs);
    if (count < static_cast<ssize_t>(sizeof(inotify_event))) {
        if (count >= 0) errno = 0;
        VYN_LOG_ERRNO_ERROR << "inotify read fail. no changes are reported any more: " << mPath;
        onDisconnected();
        return;
    }
    report(inotify::records(buffer, static_cast<size_t>(count)));
}

int InotifyDevice::write(const void*, int len) { return len; }

int InotifyDevice::getFd() { return mFd; }

// The application may delete this device or its worker: the changes that are left are lost then.
void InotifyDevice::report(const std::vector<inotify::Record>& records) {
    const LifeWatch life(static_cast<Device*>(this));
    const LifeWatch workerLife(static_cast<Parser::PostListener*>(mWorker));
    for (const inotify::Record& record : records) {
        report(record);
        if (life.ended() || workerLife.ended()) return;
    }
}

void InotifyDevice::report(const inotify::Record& record) {
    const auto watched = mWatches.find(record.watch);
    const std::string path = watched == mWatches.end() ? "" : watched->second;
    const bool hasEnded = (record.events & IN_IGNORED) != 0;
    if (hasEnded && watched != mWatches.end()) mWatches.erase(watched);
    if (mOnChange != nullptr) {
        const std::shared_ptr<const Function> onChange = mOnChange;
        (*onChange)({record.watch, path, record.name, record.events, record.cookie});
    } else if (record.named) {
        const std::string last = mPath;  // stays the executor's until it returns
        onFileChanged(last, inotify::changeOf(record.events));
    } else if ((record.events & IN_Q_OVERFLOW) != 0) {
        VYN_LOG_WARNING << "inotify has dropped changes of files, more came than were read.";
    }
}

}  // namespace vyn
