// SPDX-License-Identifier: Apache-2.0

#include <vyn/ini_config.h>
#include <vyn/lock.h>
#include <vyn/logging.h>

#include <cstdlib>
#include <map>
#include <sstream>

#include "common/property_impl.h"
#include "common/property_rules.h"

namespace vyn {

namespace {

using Values = std::map<std::string, std::string>;

void addLine(Values& values, const std::string& line) {
    const size_t separator = line.find('=');
    const std::string key = line.substr(0, separator);
    const std::string value = line.substr(separator + 1);
    if (!property_rules::isName(key) || !property_rules::isText(value)) {
        VYN_LOG_WARNING << "property \"" << key
                        << "\" left out: a device refuses its name or value.";
        return;
    }
    if (value.size() > Property::kMaxValueLength && !property_rules::isReadOnly(key)) {
        VYN_LOG_WARNING << "property " << key << " left out: its value has more than "
                        << Property::kMaxValueLength << " characters.";
        return;
    }
    values[key] = value;
}

Values readFile() {
    Values values;
    const char* path = std::getenv("VYN_PROPERTY_FILE");
    if (path == nullptr) return values;
    std::stringstream entries;
    entries << IniConfig(path);
    for (std::string line; std::getline(entries, line);) addLine(values, line);
    return values;
}

class HostProperty : public Property::Impl {
  public:
    HostProperty() : mValues(readFile()) {}

    std::string get(const std::string& key, const std::string& def) override {
        AutoLock lock(mLock);
        const auto found = mValues.find(key);
        return found == mValues.end() || found->second.empty() ? def : found->second;
    }

    bool set(const std::string& key, const std::string& value) override {
        AutoLock lock(mLock);
        const bool isNew = mValues.count(key) == 0;
        if (!isNew && property_rules::isReadOnly(key)) return false;
        mValues[key] = value;
        return true;
    }

    // Reads before it locks: nobody has to wait for the file.
    void reload() override {
        Values values = readFile();
        AutoLock lock(mLock);
        mValues.swap(values);
    }

  private:
    Lock mLock;
    Values mValues VYN_GUARDED_BY(mLock);
};

}  // namespace

Property::Impl* Property::Impl::create() { return new HostProperty(); }

}  // namespace vyn
