// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vyn/property.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

namespace vyn::testing {

// A folder of its own for a test, removed with what is in it.
class TemporaryFolder {
  public:
    TemporaryFolder() {
        if (mkdtemp(mPath.data()) == nullptr) std::abort();
    }
    ~TemporaryFolder() { std::filesystem::remove_all(mPath); }

    const std::string& path() const { return mPath; }
    std::string operator/(const std::string& name) const { return mPath + "/" + name; }

    // Writes a file and returns its path.
    std::string write(const std::string& name, const std::string& content) const {
        std::ofstream(*this / name, std::ios::binary) << content;
        return *this / name;
    }
    std::string read(const std::string& name) const {
        std::ostringstream content;
        content << std::ifstream(*this / name, std::ios::binary).rdbuf();
        return content.str();
    }

    // How many entries the folder has.
    long entries() const {
        const std::filesystem::directory_iterator all(mPath);
        return std::distance(begin(all), end(all));
    }

  private:
    std::string mPath = ::testing::TempDir() + "vyn_test_XXXXXX";
};

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

// While it lives, a process of root has the rights of a plain user, whom file permissions bind.
// Changes nothing for other users.
class PlainUser {
  public:
    PlainUser() { become(65534); }
    ~PlainUser() { become(0); }

  private:
    void become(uid_t user) const {
        if (mWasRoot && setresuid(user, user, 0) != 0) _exit(1);
    }

    const bool mWasRoot = geteuid() == 0;
};

}  // namespace vyn::testing
