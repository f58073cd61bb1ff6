#pragma once

#include <vyn/lock.h>
#include <vyn/logging.h>

#include <string>
#include <vector>

namespace vyn::testing {

// Collects every line written while it lives, from any thread, and then restores the printer and
// the default levels.
class LogCapture : public logging::LogPrinter {
  public:
    LogCapture() { logging::setLoggingPrinter(this); }
    ~LogCapture() override {
        logging::setLoggingPrinter(nullptr);
        logging::setLogLevel(logging::kLevelVerbose);
        logging::setLogPrintLevel(logging::kLevelError);
    }

    void print(const std::string& line) override {
        AutoLock lock(mLock);
        mLines.push_back(line);
    }

    // The lines written so far, as the printer got them.
    std::vector<std::string> lines() {
        AutoLock lock(mLock);
        return mLines;
    }

    // The texts of the lines: what stands between the prefix and the colour reset.
    std::vector<std::string> texts() {
        std::vector<std::string> result;
        for (const std::string& line : lines()) {
            const size_t start = line.find(")]  ") + 4;
            result.push_back(line.substr(start, line.rfind("\033[m") - start));
        }
        return result;
    }

    // How many texts contain `part`.
    int count(const std::string& part) {
        int found = 0;
        for (const std::string& text : texts()) found += text.find(part) != std::string::npos;
        return found;
    }

    void clear() {
        AutoLock lock(mLock);
        mLines.clear();
    }

  private:
    Lock mLock;
    std::vector<std::string> mLines VYN_GUARDED_BY(mLock);
};

}  // namespace vyn::testing
