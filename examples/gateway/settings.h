#pragma once

#include <vyn/config.h>
#include <vyn/ini_config.h>
#include <vyn/inotify_device.h>
#include <vyn/logging.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "handler.h"

struct Settings {
    std::string token;  // what TCP peers must know; without one, nobody gets in over TCP
    long silenceMs = vyn::config::getNetHeartbitTimeout();  // of a peer; 0 for ever
};

// The settings file, with its entries "token" and "silence_ms", which is read anew when it changes.
class SettingsFile : public Handler {
  public:
    SettingsFile(vyn::Connector& loop, const std::string& path) : Handler(loop), mPath(path) {
        // The folder, since a file that is replaced is another one than that which was watched.
        mDevice.watch(std::filesystem::absolute(path).parent_path());
        mLoop.addWorkerLocked(&mWorker, this);
        load();
    }
    ~SettingsFile() override { mLoop.removeWorkerLocked(&mWorker); }

    // The same object at all times, with the present values.
    const Settings& current() const { return mCurrent; }

    // Editors write a file in several steps: it is read once they are through.
    void onFileChanged(vyn::Worker*, const std::string&, int) override {
        sendMessageDelayed(vyn::Message::obtain(), 50);
    }
    void onMessage(vyn::Message) override { load(); }

  private:
    // Opening the file is a change in the folder too: without a look at the time it was written, it
    // would be read again and again.
    void load() {
        std::error_code error;
        const auto written = std::filesystem::last_write_time(mPath, error);
        if (error) VYN_LOG_WARNING << "no settings in " << mPath << ", they stay as they are";
        if (error || written == mWritten) return;
        mWritten = written;
        const vyn::IniConfig file(mPath);
        mCurrent = Settings();
        mCurrent.token = file.get("token", "");
        const std::string silence = file.get("silence_ms", "");
        if (!silence.empty()) mCurrent.silenceMs = std::strtol(silence.c_str(), nullptr, 10);
        VYN_LOG_INFO << "settings read: silence_ms=" << mCurrent.silenceMs
                     << (mCurrent.token.empty() ? ", no token" : ", a token");
    }

    const std::string mPath;
    Settings mCurrent;
    std::filesystem::file_time_type mWritten{};
    vyn::InotifyDevice mDevice;
    vyn::Worker mWorker{&mDevice, nullptr};
};
