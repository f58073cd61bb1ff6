#pragma once

#include <vyn/lock.h>
#include <vyn/logging.h>

#include <string>
#include <vector>

namespace vyn::testing {

// While it lives, fatal messages are collected and the code behind them goes on.
class FatalCapture {
  public:
    FatalCapture() {
        AutoLock lock(sLock);
        sLines.clear();
        logging::setAborter(&FatalCapture::collect);
    }
    ~FatalCapture() { logging::setAborter(nullptr); }
    FatalCapture(const FatalCapture&) = delete;
    FatalCapture& operator=(const FatalCapture&) = delete;

    // The fatal lines so far, with prefix and colour reset.
    std::vector<std::string> lines() {
        AutoLock lock(sLock);
        return sLines;
    }

    // How many fatal lines contain `part`.
    int count(const std::string& part) {
        int found = 0;
        for (const std::string& line : lines()) found += line.find(part) != std::string::npos;
        return found;
    }

  private:
    static void collect(const char* line) {
        AutoLock lock(sLock);
        sLines.emplace_back(line);
    }

    inline static Lock sLock;
    inline static std::vector<std::string> sLines VYN_GUARDED_BY(sLock);
};

}  // namespace vyn::testing
