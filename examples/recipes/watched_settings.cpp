// SPDX-License-Identifier: Apache-2.0

// Settings that are read again when their file changes, however it is changed: written to, or
// replaced by another. Prints:
//
//     level 1
//     level 2
//     level 3
#include <sys/inotify.h>
#include <unistd.h>
#include <vyn/handler.h>
#include <vyn/ini_config.h>
#include <vyn/inotify_device.h>

#include <cstdlib>
#include <fstream>
#include <functional>
#include <iostream>
#include <string>
#include <utility>

// Watches the folder in which the file lies: a file that is replaced is another one then, and a
// watch of it would have ended.
class FileWatch : public vyn::Handler {
  public:
    FileWatch(vyn::Connector& loop, const std::string& file, std::function<void()> onChanged)
        : Handler(loop), mOnChanged(std::move(onChanged)) {
        const size_t slash = file.rfind('/');
        const bool hasFolder = slash != std::string::npos;
        mName = hasFolder ? file.substr(slash + 1) : file;
        mDevice.setOnChange([this](const auto& change) { onChange(change); });
        // Complete changes only, and not that somebody reads it.
        mDevice.addWatch(hasFolder ? file.substr(0, slash + 1) : ".", IN_CLOSE_WRITE | IN_MOVED_TO);
        mLoop.addWorkerLocked(&mWorker, this);
    }
    ~FileWatch() override { mLoop.removeWorkerLocked(&mWorker); }

  private:
    // Where changes were dropped, that of the file may have been among them.
    void onChange(const vyn::InotifyDevice::Change& change) {
        if (change.name == mName || change.isOverflow()) mOnChanged();
    }

    const std::function<void()> mOnChanged;
    std::string mName;
    vyn::InotifyDevice mDevice;
    vyn::Worker mWorker{&mDevice, nullptr};
};

// Shows the level, and raises it.
class Levels {
  public:
    Levels(vyn::Connector& loop, std::string file)
        : mLoop(loop), mFile(std::move(file)), mWatch(loop, mFile, [this] { read(); }) {}
    void read() {
        const std::string level = vyn::IniConfig(mFile).get("level", "?");
        if (std::exchange(mLevel, level) == level) return;
        std::cout << "level " << level << std::endl;
        if (level == "1") std::ofstream(mFile) << "level = 2\n";
        if (level == "2") replaceWith("3");
        if (level == "3") mLoop.stop();
    }
    const std::string& level() const { return mLevel; }

  private:
    // As editors do it, and IniConfig: another file is put in its place.
    void replaceWith(const char* level) const { vyn::IniConfig(mFile).set("level", level, true); }

    vyn::Connector& mLoop;
    const std::string mFile;
    std::string mLevel;
    FileWatch mWatch;
};

int main() {
    char folder[] = "/tmp/watched_settings_XXXXXX";
    if (mkdtemp(folder) == nullptr) return 1;
    const std::string file = folder + std::string("/settings");
    std::ofstream(file) << "level = 1\n";
    vyn::Connector loop;
    Levels levels(loop, file);
    levels.read();
    loop.run();
    unlink(file.c_str());
    rmdir(folder);
    return levels.level() == "3" ? 0 : 1;
}
