#include <gtest/gtest.h>
#include <vyn/config.h>
#include <vyn/helper.h>

#include <functional>
#include <map>
#include <vector>

#include "support/log_capture.h"
#include "support/page.h"
#include "support/property_file.h"

// docs/configuration.md says what the getters do.
namespace vyn {
namespace {

using testing::LogCapture;
using testing::PropertyFile;

std::string shown(int value) { return std::to_string(value); }
std::string shown(bool value) { return value ? "true" : "false"; }
std::string shown(const std::string& value) { return value; }

#define GETTER(name)                                \
    {                                               \
#name, [] { return shown(config::name()); } \
    }

const std::map<std::string, std::function<std::string()>> kGetters = {
    GETTER(getAuthMode),
    GETTER(getUnixSocketPath),
    GETTER(getNetHeartbitInterval),
    GETTER(getNetHeartbitTimeout),
    GETTER(getSerialHeartbitInterval),
    GETTER(getSerialHeartbitTimeout),
    GETTER(getMeshCallTimeout),
    GETTER(isMeshCheckLoop),
    GETTER(getDiscoverInterval),
    GETTER(isTryDirect),
    GETTER(getLogLevel),
    GETTER(getLogPrintLevel),
    GETTER(getLogPrintLevelProcessName),
    GETTER(getDevicePrefix),
    GETTER(getProductName),
    GETTER(getBuildTime),
    GETTER(isFactoryMode),
};

struct Row {
    std::string key;
    std::function<std::string()> getter;
    std::string range;
    std::string def;

    // What the getter gives while the property has the value.
    std::string with(const std::string& value) const {
        EXPECT_TRUE(Property::set(key, value));
        return getter();
    }
};

// The rows of the table of properties.
std::vector<Row> documentedRows() {
    std::vector<Row> rows;
    for (testing::Cells cells : testing::Page(VYN_DOCS "/configuration.md").rows("Key")) {
        for (std::string& cell : cells) cell = helper::trim(cell, "`");
        const auto getter = kGetters.find(cells[1]);
        EXPECT_NE(getter, kGetters.end()) << cells[1];
        if (getter != kGetters.end()) {
            rows.push_back({cells[0], getter->second, cells[3], cells[4]});
        }
    }
    return rows;
}

TEST(ConfigDocument, ListsEveryGetterWithItsDefault) {
    const PropertyFile file;
    const std::vector<Row> rows = documentedRows();
    EXPECT_EQ(rows.size(), kGetters.size());
    for (const Row& row : rows) EXPECT_EQ(row.getter(), row.def) << row.key;
}

TEST(ConfigDocument, GivesTheRangesOfTheNumbers) {
    const PropertyFile file;
    int numbers = 0;
    for (const Row& row : documentedRows()) {
        int min = 0;
        int max = 0;
        if (std::sscanf(row.range.c_str(), "%d to %d", &min, &max) != 2) continue;
        ++numbers;
        EXPECT_EQ(row.with(shown(min)), shown(min)) << row.key;
        EXPECT_EQ(row.with(shown(max)), shown(max)) << row.key;
        LogCapture capture;
        EXPECT_EQ(row.with(shown(min - 1)), row.def) << row.key;
        EXPECT_EQ(row.with(shown(max + 1)), row.def) << row.key;
        EXPECT_EQ(capture.count("property " + row.key + ": "), 2);
    }
    EXPECT_EQ(numbers, 9);
}

TEST(ConfigDocument, NamesTheKeysOfTheSwitchesAndTexts) {
    for (const Row& row : documentedRows()) {
        const PropertyFile file;
        if (row.range == "on or off") {
            const std::string opposite = row.def == "true" ? "false" : "true";
            EXPECT_EQ(row.with(opposite), opposite) << row.key;
        } else if (row.range == "any" || row.range == "absolute path") {
            EXPECT_EQ(row.with("/some text/"), "/some text/") << row.key;
        }
    }
}

}  // namespace
}  // namespace vyn
