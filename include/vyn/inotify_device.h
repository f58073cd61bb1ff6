#pragma once

#include <string>
#include <vector>

#include <vyn/device.h>

namespace vyn {

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
class VYN_API InotifyDevice : public Device {
  public:
    // Opens the descriptor. When that fails it is logged, and the device never reports anything.
    InotifyDevice();
    ~InotifyDevice() override;
    InotifyDevice(const InotifyDevice&) = delete;
    InotifyDevice& operator=(const InotifyDevice&) = delete;

    // Adds a path to what is watched; failing is logged. From now on this path is reported, also
    // for changes under the paths that were given before.
    void watch(const std::string& path);

    const char* getClassName() override;
    void onDataArrival(int fd) override;
    // Returns `len` and writes nothing.
    int write(const void* data, int len) override;
    int getFd() override;

  private:
    void report(const std::vector<int>& changes);

    int mFd;
    std::string mPath;
};

}  // namespace vyn
