#include "common/config_value.h"

#include <vyn/lock.h>
#include <vyn/logging.h>
#include <vyn/property.h>

#include <algorithm>
#include <charconv>
#include <iterator>
#include <map>

namespace vyn::config {

namespace {

// The useless values that were reported, the last one of each property. Never destroyed: threads
// may still ask when the process exits.
class Reports {
  public:
    static Reports& instance() {
        static Reports* const reports = new Reports();
        return *reports;
    }

    // False when this value is the one reported last.
    bool add(const std::string& key, const std::string& value) {
        AutoLock lock(mLock);
        std::string& last = mLast[key];
        if (last == value) return false;
        last = value;
        return true;
    }

  private:
    Lock mLock;
    std::map<std::string, std::string> mLast VYN_GUARDED_BY(mLock);
};

// Gives back the default.
template <typename T>
T reject(const char* key, const std::string& value, T def) {
    if (Reports::instance().add(key, value)) {
        VYN_LOG_WARNING << "property " << key << ": \"" << value << "\" is of no use, taking \""
                        << def << "\".";
    }
    return def;
}

template <size_t N>
bool contains(const char* const (&words)[N], const std::string& word) {
    return std::find(std::begin(words), std::end(words), word) != std::end(words);
}

}  // namespace

int read(const NumberKey& number) {
    const std::string text = Property::get(number.key, "");
    if (text.empty()) return number.def;
    const char* const end = text.data() + text.size();
    int value = 0;
    const auto [rest, error] = std::from_chars(text.data(), end, value);
    const bool isNumber = error == std::errc() && rest == end;
    if (!isNumber || value < number.min || value > number.max) {
        return reject(number.key, text, number.def);
    }
    return value;
}

// The words are those that a device's own reader of switches knows.
bool read(const SwitchKey& onOff) {
    static constexpr const char* kOn[] = {"1", "y", "yes", "on", "true"};
    static constexpr const char* kOff[] = {"0", "n", "no", "off", "false"};
    const std::string word = Property::get(onOff.key, "");
    if (word.empty()) return onOff.def;
    if (contains(kOn, word)) return true;
    if (contains(kOff, word)) return false;
    return reject(onOff.key, word, onOff.def);
}

std::string read(const FolderKey& folder) {
    const std::string path = Property::get(folder.key, folder.def);
    if (path.front() != '/') return reject(folder.key, path, folder.def);
    return path.back() == '/' ? path : path + '/';
}

}  // namespace vyn::config
