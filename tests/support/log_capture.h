// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <vyn/lock.h>
#include <vyn/logging.h>

#include <string>
#include <vector>

namespace vyn::testing {

// Lines as they are written, with prefix and colour reset, from any thread.
class CapturedLines {
  public:
    std::vector<std::string> lines() {
        AutoLock lock(mLock);
        return mLines;
    }

    // The texts of the lines: what stands between the prefix and the colour reset.
    std::vector<std::string> texts() {
        std::vector<std::string> result = lines();
        for (std::string& line : result) {
            const size_t start = line.find(")]  ") + 4;
            line = line.substr(start, line.rfind("\033[m") - start);
        }
        return result;
    }

    // How many texts contain `part`.
    int count(const std::string& part) {
        int found = 0;
        for (const std::string& text : texts()) found += text.find(part) != std::string::npos;
        return found;
    }

    void add(const std::string& line) {
        AutoLock lock(mLock);
        mLines.push_back(line);
    }

    void clear() {
        AutoLock lock(mLock);
        mLines.clear();
    }

  private:
    Lock mLock;
    std::vector<std::string> mLines VYN_GUARDED_BY(mLock);
};

// Collects every line written while it lives, and then restores the printer and the default levels.
class LogCapture : public CapturedLines, public logging::LogPrinter {
  public:
    LogCapture() { logging::setLoggingPrinter(this); }
    ~LogCapture() override {
        logging::setLoggingPrinter(nullptr);
        logging::setLogLevel(logging::kLevelVerbose);
        logging::setLogPrintLevel(logging::kLevelError);
    }
    void print(const std::string& line) override { add(line); }
};

// While it lives, fatal messages are collected and the code behind them goes on.
class FatalCapture : public CapturedLines {
  public:
    FatalCapture() {
        sCurrent = this;
        logging::setAborter([](const char* line) { sCurrent->add(line); });
    }
    ~FatalCapture() { logging::setAborter(nullptr); }

  private:
    inline static FatalCapture* sCurrent;
};

}  // namespace vyn::testing
