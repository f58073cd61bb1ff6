#include <sys/inotify.h>
#include <unistd.h>
#include <vyn/inotify_device.h>
#include <vyn/logging.h>
#include <vyn/worker.h>

#include <cerrno>

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
    const int ret = inotify_add_watch(mFd, path.c_str(), IN_ALL_EVENTS);
    if (ret < 0) VYN_LOG_ERRNO_ERROR << "ret < 0. watch path failed: " << path;
    mPath = path;
}

const char* InotifyDevice::getClassName() { return "InotifyDevice"; }

void InotifyDevice::onDataArrival(int) {
    alignas(inotify_event) char buffer[2048] = {};
    const ssize_t count = io::uninterrupted([&] { return ::read(mFd, buffer, sizeof buffer); });
    if (count < 0 && errno == EAGAIN) return;
    if (count < static_cast<ssize_t>(sizeof(inotify_event))) {
        VYN_LOG_ERRNO_ERROR << "inotify read fail. no changes are reported any more: " << mPath;
        onDisconnected();
        return;
    }
    report(inotify::namedChanges(buffer, static_cast<size_t>(count)));
}

int InotifyDevice::write(const void*, int len) { return len; }

int InotifyDevice::getFd() { return mFd; }

// The executor may delete this device or its worker: the changes that are left are lost then.
void InotifyDevice::report(const std::vector<int>& changes) {
    const LifeWatch life(static_cast<Device*>(this));
    const LifeWatch workerLife(static_cast<Parser::PostListener*>(mWorker));
    for (const int change : changes) {
        const std::string path = mPath;  // stays the executor's until it returns
        onFileChanged(path, change);
        if (life.ended() || workerLife.ended()) return;
    }
}

}  // namespace vyn
