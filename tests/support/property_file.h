#pragma once

#include <vyn/property.h>

#include <cstdlib>
#include <string>

#include "support/temporary_folder.h"

namespace vyn::testing {

// While it lives, the properties are those of a file of its own; afterwards there are none.
class PropertyFile {
  public:
    explicit PropertyFile(const std::string& content = "") {
        setenv("VYN_PROPERTY_FILE", path().c_str(), 1);
        rewrite(content);
    }
    ~PropertyFile() {
        unsetenv("VYN_PROPERTY_FILE");
        Property::reload();
    }
    PropertyFile(const PropertyFile&) = delete;
    PropertyFile& operator=(const PropertyFile&) = delete;

    // Puts other properties in the place of those there are.
    void rewrite(const std::string& content) const {
        mFolder.write(kName, content);
        Property::reload();
    }

    std::string path() const { return mFolder / kName; }
    std::string content() const { return mFolder.read(kName); }

  private:
    static constexpr char kName[] = "properties";

    TemporaryFolder mFolder;
};

}  // namespace vyn::testing
