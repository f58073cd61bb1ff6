// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <vyn/device.h>

namespace vyn {

namespace inotify {
struct Record;
}

// Reports changes under a watched directory as Executor::onFileChanged(), one for each change of an
// entry, with the watched path and 256 for a created, 512 for a deleted, 2 for a modified entry and
// -1 for everything else (opened, closed, renamed, ...).
//
// A file that is replaced by renaming another over it, as IniConfig::save() does, is reported as
// -1; but so is a file that is only read, also by the handler of the report. So a handler compares
// the file's inode, size and time before it reads it again, or it keeps itself busy for ever.
//
// Only what happens to the entries of a directory is reported. The kernel does not name a file that
// is watched itself, nor the directory itself; so watch the directory in which the file lies.
//
// Who needs to know more sets a function, which then gets every change in place of the executor:
// with the name of the entry, also for watched files and directories themselves, and when the
// kernel had to drop changes.
class VYN_API InotifyDevice : public Device {
  public:
    // One change, as inotify(7) tells it.
    struct Change {
        int watch;         // what addWatch() returned; -1 when isOverflow()
        std::string path;  // what is watched
        std::string name;  // the entry of that directory; empty for what is watched itself
        uint32_t events;   // of the IN_... constants; IN_IGNORED when the watch has ended
        uint32_t cookie;   // the same for the two halves of a renaming
        // The kernel has dropped changes: look at everything that is watched.
        [[nodiscard]] bool isOverflow() const;
    };
    // Is given each change.
    using Function = std::function<void(const Change&)>;

    // Opens the descriptor. When that fails it is logged, and the device never reports anything.
    InotifyDevice();
    ~InotifyDevice() override;
    InotifyDevice(const InotifyDevice&) = delete;
    InotifyDevice& operator=(const InotifyDevice&) = delete;

    // Adds a path to what is watched; failing is logged. From now on this path is reported, also
    // for changes under the paths that were given before.
    void watch(const std::string& path);

    // Adds a path, or changes for which events it is watched: a combination of IN_CREATE,
    // IN_CLOSE_WRITE, IN_MOVED_TO, ... and of flags such as IN_ONLYDIR, by default every event.
    // Does not change which path the executor is told. Returns the number of the watch, or -1 with
    // errno, which is logged.
    int addWatch(const std::string& path, uint32_t events = kEveryEvent);
    // Ends a watch. What is on its way is still reported, and then IN_IGNORED. False, with errno,
    // for an unknown one.
    bool removeWatch(int watch);
    // Called on the loop's thread, in place of Executor::onFileChanged(); it may delete the device.
    // Null restores that.
    void setOnChange(Function onChange);

    // IN_ALL_EVENTS, which takes <sys/inotify.h>.
    static constexpr uint32_t kEveryEvent = 0xFFF;

    const char* getClassName() override;
    void onDataArrival(int fd) override;
    // Returns `len` and writes nothing.
    int write(const void* data, int len) override;
    int getFd() override;

  private:
    void report(const std::vector<inotify::Record>& records);
    void report(const inotify::Record& record);

    int mFd;
    std::string mPath;
    // What each watch watches.
    std::map<int, std::string> mWatches;
    // Shared, so that a call may outlive the device. Null while the executor is told.
    std::shared_ptr<const Function> mOnChange;
};

}  // namespace vyn
