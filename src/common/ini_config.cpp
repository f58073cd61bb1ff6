// SPDX-License-Identifier: Apache-2.0

#include <vyn/buffer.h>
#include <vyn/file_utils.h>
#include <vyn/helper.h>
#include <vyn/ini_config.h>
#include <vyn/logging.h>
#include <vyn/setting_value.h>

#include <algorithm>
#include <cerrno>
#include <ostream>
#include <sstream>

namespace vyn {

namespace {

constexpr char kBlanks[] = " \t\n\v\f\r";

}  // namespace

IniConfig::IniConfig() = default;

IniConfig::IniConfig(const std::string& filePath) { load(filePath); }

bool IniConfig::load(const std::string& filePath) {
    path = filePath;
    // Should memory run out below, the entries are not all that the file has.
    mIsRead = mMayBeSaved = false;
    Buffer content;
    const int size = readFile(path, content);
    const char* line = content.data;
    const char* const end = line + std::max(size, 0);
    for (const char* lineEnd; (lineEnd = std::find(line, end, '\n')) != end; line = lineEnd + 1) {
        parseLine(std::string(line, lineEnd));
    }
    mIsRead = size >= 0;
    mMayBeSaved = mIsRead || size == -ENOENT;
    return mIsRead;
}

void IniConfig::parseLine(const std::string& line) {
    const std::string text = helper::trim(line, kBlanks);
    const size_t separator = text.find('=');
    if (separator == std::string::npos || text.front() == '#') return;
    entries[helper::trim(text.substr(0, separator), kBlanks)] =
        helper::trim(text.substr(separator + 1), kBlanks);
}

bool IniConfig::ok() const { return mIsRead; }

bool IniConfig::save() {
    if (!mMayBeSaved) {
        VYN_LOG_ERROR << path << " could not be read, so it is not saved: entries would be lost.";
        return false;
    }
    std::ostringstream text;
    // A stream that runs out of memory would else end in the middle.
    text.exceptions(std::ios::badbit);
    dump(text);
    return replaceFile(path, text.str());
}

void IniConfig::dump(std::ostream& stream) const {
    for (const auto& [key, value] : entries) stream << key << '=' << value << std::endl;
}

std::string IniConfig::get(const std::string& key, const std::string& def) const {
    const auto entry = entries.find(key);
    return entry == entries.end() ? def : entry->second;
}

int IniConfig::getInt(const std::string& key, int def, int min, int max) const {
    return static_cast<int>(setting::integer(path, key, get(key, ""), def, min, max));
}

int64_t IniConfig::getInt64(const std::string& key, int64_t def, int64_t min, int64_t max) const {
    return setting::integer(path, key, get(key, ""), def, min, max);
}

double IniConfig::getDouble(const std::string& key, double def, double min, double max) const {
    return setting::number(path, key, get(key, ""), def, min, max);
}

bool IniConfig::getBool(const std::string& key, bool def) const {
    return setting::isOn(path, key, get(key, ""), def);
}

bool IniConfig::set(const std::string& key, const std::string& value, bool andSave) {
    entries[key] = value;
    return !andSave || save();
}

bool IniConfig::remove(const std::string& key, bool andSave) {
    entries.erase(key);
    return !andSave || save();
}

std::vector<std::string> IniConfig::keys() const {
    std::vector<std::string> all;
    all.reserve(entries.size());
    for (const auto& entry : entries) all.push_back(entry.first);
    return all;
}

bool IniConfig::exist(const std::string& key) const { return entries.count(key) != 0; }

std::ostream& operator<<(std::ostream& stream, const IniConfig& config) {
    config.dump(stream);
    return stream;
}

}  // namespace vyn
