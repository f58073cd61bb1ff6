// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <vyn/config.h>
#include <vyn/handler.h>
#include <vyn/ini_config.h>
#include <vyn/inotify_device.h>
#include <vyn/logging.h>

#include <filesystem>
#include <string>
#include <utility>

struct Settings {
    std::string token;  // what TCP peers must know; without one, nobody gets in over TCP
    long silenceMs = vyn::config::getNetHeartbitTimeout();  // of a peer; 0 for ever
    long loginMs = 10000;  // until a peer must have been authenticated; 0 for ever
};

// The settings file, with its entries "token", "silence_ms" and "login_ms", which is read anew when
// it changes. What can not be read leaves the settings as they are.
class SettingsFile : public vyn::Handler {
  public:
    SettingsFile(vyn::Connector& loop, const std::string& path) : Handler(loop), mPath(path) {
        // The folder, since a file that is replaced is another one than that which was watched.
        mDevice.watch(std::filesystem::absolute(path).parent_path());
        mLoop.addWorkerLocked(&mWorker, this);
        onMessage(vyn::Message::obtain(kLook, 0, 0, nullptr));
    }
    ~SettingsFile() override { mLoop.removeWorkerLocked(&mWorker); }

    // The same object at all times, with the present values.
    const Settings& current() const { return mCurrent; }

    // Editors write a file in several steps: it is read once they are through.
    void onFileChanged(vyn::Worker*, const std::string&, int) override {
        sendMessageDelayed(vyn::Message::obtain(), 50);
    }
    void onMessage(vyn::Message message) override {
        const bool isLook = message.what == kLook;
        load(isLook && mIsMissed);
        if (isLook) sendMessageDelayed(message, kLookAgainMs);
    }
    void onDisconnected(vyn::Worker* worker) override {
        VYN_LOG_ERROR << "changes of " << mPath << " are not reported any more";
        mLoop.removeWorkerLocked(worker);
    }

  private:
    // Reports can be lost, and so can the means of getting any: the file is looked at now and then
    // all the same.
    static constexpr int kLook = 1;
    static constexpr long kLookAgainMs = 5000;

    // Opening the file is a change in the folder too: without a look at the time it was written, it
    // would be read again and again.
    void load(bool evenIfKnown) {
        std::error_code error;
        const auto written = std::filesystem::last_write_time(mPath, error);
        if (!error && std::exchange(mWritten, written) == written && !evenIfKnown) return;
        vyn::IniConfig file;
        const bool isRead = !error && file.load(mPath);
        if (isRead) take(file);
        if (!std::exchange(mIsMissed, !isRead) && mIsMissed) {
            VYN_LOG_WARNING << "no settings in " << mPath << ", they stay as they are";
        }
    }
    void take(const vyn::IniConfig& file) {
        mCurrent = Settings();
        mCurrent.token = file.get("token", "");
        mCurrent.silenceMs = file.getInt("silence_ms", static_cast<int>(mCurrent.silenceMs), 0);
        mCurrent.loginMs = file.getInt("login_ms", static_cast<int>(mCurrent.loginMs), 0);
        VYN_LOG_INFO << "settings read: silence_ms=" << mCurrent.silenceMs
                     << (mCurrent.token.empty() ? ", no token" : ", a token");
    }

    const std::string mPath;
    Settings mCurrent;
    std::filesystem::file_time_type mWritten{};
    bool mIsMissed = false;
    vyn::InotifyDevice mDevice;
    vyn::Worker mWorker{&mDevice, nullptr};
};
