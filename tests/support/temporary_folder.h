#pragma once

#include <gtest/gtest.h>
#include <sys/stat.h>

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
        std::string name = ::testing::TempDir() + "vyn_test_XXXXXX";
        if (mkdtemp(name.data()) == nullptr) std::abort();
        mPath = name;
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
        return static_cast<long>(std::distance(begin(all), end(all)));
    }

  private:
    std::string mPath;
};

}  // namespace vyn::testing
