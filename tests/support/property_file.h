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
        setenv("VYN_PROPERTY_FILE", mFolder.write("properties", content).c_str(), 1);
        Property::reload();
    }
    ~PropertyFile() {
        unsetenv("VYN_PROPERTY_FILE");
        Property::reload();
    }

  private:
    TemporaryFolder mFolder;
};

}  // namespace vyn::testing
