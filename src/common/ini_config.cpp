#include <vyn/buffer.h>
#include <vyn/file_utils.h>
#include <vyn/helper.h>
#include <vyn/ini_config.h>

#include <algorithm>
#include <ostream>
#include <sstream>

#include "common/file_replacement.h"

namespace vyn {

namespace {

constexpr char kBlanks[] = " \t\n\v\f\r";

}  // namespace

IniConfig::IniConfig() = default;

IniConfig::IniConfig(const std::string& filePath) { load(filePath); }

bool IniConfig::load(const std::string& filePath) {
    path = filePath;
    Buffer content;
    const int size = readFile(path, content);
    if (size < 1) return size == 0;
    const char* line = content.data;
    const char* const end = line + content.size;
    for (const char* lineEnd; (lineEnd = std::find(line, end, '\n')) != end; line = lineEnd + 1) {
        parseLine(std::string(line, lineEnd));
    }
    return true;
}

void IniConfig::parseLine(const std::string& line) {
    const std::string text = helper::trim(line, kBlanks);
    const size_t separator = text.find('=');
    if (separator == std::string::npos || text.front() == '#') return;
    entries[helper::trim(text.substr(0, separator), kBlanks)] =
        helper::trim(text.substr(separator + 1), kBlanks);
}

bool IniConfig::save() {
    std::ostringstream text;
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

void IniConfig::set(const std::string& key, const std::string& value, bool andSave) {
    entries[key] = value;
    if (andSave) save();
}

bool IniConfig::exist(const std::string& key) const { return entries.count(key) != 0; }

std::ostream& operator<<(std::ostream& stream, const IniConfig& config) {
    config.dump(stream);
    return stream;
}

}  // namespace vyn
