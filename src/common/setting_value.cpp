// SPDX-License-Identifier: Apache-2.0

#include <vyn/lock.h>
#include <vyn/logging.h>
#include <vyn/setting_value.h>

#include <charconv>
#include <map>

#include "common/number_text.h"

namespace vyn::setting {

namespace {

// The useless texts that were reported, the last one of each setting. Never destroyed: threads may
// still ask when the process exits.
class Reports {
  public:
    static Reports& instance() {
        static Reports* const reports = new Reports();
        return *reports;
    }

    // False when this text is the one reported last.
    bool add(const std::string& setting, const std::string& text) {
        AutoLock lock(mLock);
        std::string& last = mLast[setting];
        if (last == text) return false;
        last = text;
        return true;
    }

  private:
    Lock mLock;
    std::map<std::string, std::string> mLast VYN_GUARDED_BY(mLock);
};

// Gives back the default.
template <typename T>
T reject(const std::string& place, const std::string& key, const std::string& text, T def) {
    const std::string setting = place + " " + key;
    if (Reports::instance().add(setting, text)) {
        VYN_LOG_WARNING << setting << ": \"" << text << "\" is of no use, taking \"" << def
                        << "\".";
    }
    return def;
}

}  // namespace

int64_t integer(const std::string& place, const std::string& key, const std::string& text,
                int64_t def, int64_t min, int64_t max) {
    if (text.empty()) return def;
    const char* const end = text.data() + text.size();
    int64_t value = 0;
    const auto [rest, error] = std::from_chars(text.data(), end, value);
    const bool isNumber = error == std::errc() && rest == end;
    return isNumber && value >= min && value <= max ? value : reject(place, key, text, def);
}

double number(const std::string& place, const std::string& key, const std::string& text, double def,
              double min, double max) {
    if (text.empty()) return def;
    bool isWhole = false;
    const std::optional<double> value = number_text::read(text, isWhole);
    return value && isWhole && *value >= min && *value <= max ? *value
                                                              : reject(place, key, text, def);
}

bool isOn(const std::string& place, const std::string& key, const std::string& text, bool def) {
    if (text.empty()) return def;
    const std::optional<bool> value = number_text::readSwitch(text);
    return value ? *value : reject(place, key, text, def);
}

std::string folder(const std::string& place, const std::string& key, const std::string& text,
                   const std::string& def) {
    if (text.empty()) return def;
    if (text.front() != '/') return reject(place, key, text, def);
    return text.back() == '/' ? text : text + '/';
}

}  // namespace vyn::setting
