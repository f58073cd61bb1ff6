// The examples of docs/formats.md are what the library does.

#include <gtest/gtest.h>
#include <vyn/archive.h>
#include <vyn/helper.h>
#include <vyn/ini_config.h>
#include <vyn/logging.h>
#include <vyn/property.h>
#include <vyn/xml_codec.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <iomanip>
#include <sstream>

#include "support/log_capture.h"
#include "support/page.h"
#include "support/property_file.h"
#include "support/temporary_folder.h"

namespace vyn {
namespace {

using testing::Cells;
using testing::codeIn;
using testing::LogCapture;

const testing::Page& page() {
    static const testing::Page formats(VYN_DOCS "/formats.md");
    return formats;
}

// The rows of a table, of which there must be some.
std::vector<Cells> rows(const std::string& heading) {
    std::vector<Cells> found = page().rows(heading);
    EXPECT_FALSE(found.empty()) << heading;
    return found;
}

std::string codeOf(const std::string& cell) {
    const std::vector<std::string> code = codeIn(cell);
    return code.empty() ? "" : code[0];
}

std::string unquoted(const std::string& text) {
    std::string bytes;
    for (size_t i = 1; i + 1 < text.size(); ++i) {
        const bool isEscape = text[i] == '\\';
        const char next = text[i + isEscape];
        bytes += !isEscape ? next : next == 'n' ? '\n' : '\r';
        i += isEscape;
    }
    return bytes;
}

// The bytes that the page shows as `61 62`, `"ab"` or `00 * 64`.
std::string bytesOf(const std::string& code) {
    if (helper::startsWith(code, "\"")) return unquoted(code);
    std::string bytes;
    for (const std::string& digits : helper::split(helper::trim(code), ' ')) {
        if (digits == "*")
            return std::string(std::stoul(code.substr(code.find('*') + 1)), bytes[0]);
        if (!digits.empty()) bytes += static_cast<char>(std::stoi(digits, nullptr, 16));
    }
    return bytes;
}

std::string bytesIn(const std::string& cell) { return bytesOf(codeOf(cell)); }

Buffer bufferOf(const std::string& bytes) {
    return Buffer(bytes.data(), static_cast<int>(bytes.size()));
}

std::string stringOf(const Buffer& buffer) {
    return {buffer.data, static_cast<size_t>(std::max(buffer.size, 0))};
}

void put(Archive& archive, const std::string& item) {
    if (item.find("string") != std::string::npos) {
        archive << bytesIn(item);
    } else {
        archive << bufferOf(bytesIn(item));
    }
}

std::string shown(const Buffer& item) {
    std::ostringstream text;
    for (int i = 0; i < item.size; ++i) {
        const auto byte = static_cast<unsigned char>(item.data[i]);
        text << (i == 0 ? "" : " ") << std::hex << std::setw(2) << std::setfill('0') << int{byte};
    }
    return item.size == 0 ? "empty" : "`" + text.str() + "`";
}

// What the block gives, in the form in which the page lists it.
std::string itemsOf(const std::string& block) {
    Archive archive(block.data(), static_cast<int>(block.size()));
    std::vector<std::string> items;
    while (!archive.empty()) {
        Buffer item;
        archive >> item;
        items.push_back(shown(item));
    }
    return helper::implode(items, ", ");
}

TEST(FormatsPage, ArchivesAreWrittenAndReadBack) {
    for (const Cells& row : rows("Items put")) {
        Archive archive;
        for (const std::string& item : helper::split(row[0], ',')) {
            if (item != "nothing") put(archive, item);
        }
        Buffer block;
        archive.copyTo(block);
        EXPECT_EQ(stringOf(block), bytesIn(row[1])) << row[0];
        EXPECT_EQ(itemsOf(bytesIn(row[1])), row[2]) << row[0];
    }
}

TEST(FormatsPage, DamagedArchivesAreReadUpToTheDamage) {
    for (const Cells& row : rows("Block")) {
        LogCapture log;
        EXPECT_EQ(itemsOf(bytesIn(row[0])), row[1]);
        const bool isSilent = row[2].find("no error line") != std::string::npos;
        EXPECT_EQ(log.count("is invalid"), isSilent ? 0 : 1) << row[0];
    }
}

struct Child : XmlDocument {
    void writeXml(XmlCodec* codec) override {
        Buffer data("\x01\xab", 2);
        codec->put("data", data);
    }
    void readXml(XmlCodec*) override {}
};

struct Pump : XmlDocument {
    void writeXml(XmlCodec* codec) override {
        Child child;
        codec->enter("device", true);
        codec->put("name", "pump");
        codec->put("limit", 12);
        codec->put("note", "\"fast\" < 5 & more");
        codec->put("child", &child);
        codec->leave();
    }
    void readXml(XmlCodec*) override {}
};

TEST(FormatsPage, AnObjectIsWrittenAsXml) {
    EXPECT_EQ(Pump().encode(), page().blocks("xml").at(0) + "\n");
}

TEST(FormatsPage, XmlIsUnderstoodOrNot) {
    for (const Cells& row : rows("Document")) {
        XmlCodec codec(codeOf(row[0]));
        codec.enter("probe", true);
        EXPECT_EQ(codec.text().find("<probe/>") != std::string::npos, row[1] == "yes") << row[0];
    }
}

TEST(FormatsPage, AttributesAreReadAsIntegersAndBytes) {
    for (const Cells& row : rows("Value")) {
        XmlCodec codec("<a b=\"" + codeOf(row[0]) + "\" c=\"" + codeOf(row[0]) + "\"/>");
        codec.enter("a", false);
        int number = -1;
        Buffer bytes;
        codec.get("b", number);
        codec.get("c", bytes);
        EXPECT_EQ(std::to_string(number), codeOf(row[1])) << row[0];
        EXPECT_EQ(stringOf(bytes), bytesIn(row[2])) << row[0];
    }
}

std::string savedAs(const std::string& content) {
    testing::TemporaryFolder folder;
    const std::string path = folder.write("settings", content);
    EXPECT_TRUE(IniConfig(path).save());
    return folder.read("settings");
}

TEST(FormatsPage, SettingsAreReadAndSaved) {
    const std::vector<std::string> files = page().blocks("ini");
    ASSERT_EQ(files.size(), 3u);
    EXPECT_EQ(savedAs(files[0]), files[1]);
    for (const Cells& row : rows("Bytes of the file")) {
        const std::string entry = codeOf(row[1]);
        EXPECT_EQ(savedAs(bytesIn(row[0])), entry.empty() ? "" : entry + "\n") << row[0];
    }
}

TEST(FormatsPage, PropertiesAreReadFromSuchAFile) {
    const testing::PropertyFile file(page().blocks("ini").at(2));
    EXPECT_EQ(Property::get("persist.vyn.unixsocketpath", ""), "/tmp/vyn");
    EXPECT_EQ(Property::get("ro.product.taldeviceprefix", ""), "bench-");
    EXPECT_EQ(Property::get("persist.sys.product.name", "none"), "none");
}

uint32_t crcStep(uint32_t value, uint32_t byte) {
    value ^= byte;
    for (int bit = 0; bit < 8; ++bit) value = (value >> 1) ^ ((value & 1) * 0xEDB88320u);
    return value;
}

TEST(FormatsPage, TheChecksumIsMadeStepByStep) {
    uint32_t value = 0xFFFFFFFF;
    for (const Cells& row : rows("Byte fed")) {
        value = crcStep(value, static_cast<unsigned char>(bytesIn(row[0])[0]));
        EXPECT_EQ(value, std::stoul(codeOf(row[1]), nullptr, 16)) << row[0];
    }
    EXPECT_EQ(value, helper::crc32("abc", 3));
}

TEST(FormatsPage, DataHasTheseChecksumsAndDigests) {
    for (const Cells& row : rows("Data checked")) {
        const std::string data = bytesIn(row[0]);
        const uint32_t sum = helper::crc32(data.data(), static_cast<int>(data.size()));
        EXPECT_EQ(sum, std::stoul(codeOf(row[1]), nullptr, 16)) << row[0];
    }
    for (const Cells& row : rows("Data digested")) {
        const std::string data = bytesIn(row[0]);
        const std::string digest = helper::md5sum(data.data(), static_cast<int>(data.size()));
        EXPECT_EQ(digest, codeOf(row[1])) << row[0];
    }
}

bool fits(char character, char place) {
    if (place == 'x') return std::strchr("0123456789abcdef", character) != nullptr;
    if (place == 'y') return std::strchr("0123456789abcde", character) != nullptr;
    if (place == 'v') return std::strchr("89ab", character) != nullptr;
    return character == place;
}

TEST(FormatsPage, IdentifiersHaveTheirLayout) {
    for (const Cells& row : rows("Made by")) {
        const std::string layout = codeOf(row[1]);
        for (int i = 0; i < 100; ++i) {
            const std::string id = codeOf(row[0]) == "uuid" ? helper::uuid() : helper::uuid2();
            ASSERT_EQ(id.size(), layout.size());
            EXPECT_TRUE(std::equal(id.begin(), id.end(), layout.begin(), fits)) << id;
        }
    }
}

TEST(FormatsPage, HexTextIsWrittenAndRead) {
    for (const Cells& row : rows("Bytes written")) {
        EXPECT_EQ(bufferOf(bytesIn(row[0])).toHexString(), codeOf(row[1]));
    }
    for (const Cells& row : rows("Text read")) {
        Buffer buffer;
        buffer.fromHexString(codeOf(row[0]));
        EXPECT_EQ(stringOf(buffer), bytesIn(row[1])) << row[0];
    }
}

TEST(FormatsPage, BuffersAreShown) {
    for (const Cells& row : rows("Bytes")) {
        std::ostringstream shown;
        shown << bufferOf(bytesIn(row[0]));
        EXPECT_EQ(shown.str(), codeOf(row[1]));
    }
}

// The dumped line as it is at the address the page assumes.
std::string moved(const std::string& line, const char* block) {
    const uint64_t offset = std::stoull(line, nullptr, 16) - reinterpret_cast<uintptr_t>(block);
    std::ostringstream text;
    text << std::hex << 0x10000000 + offset << line.substr(line.find(':')) << "\n";
    return text.str();
}

TEST(FormatsPage, BlocksAreDumped) {
    const std::string block = "Voltage 230 V, \n" + std::string(64, '\0') + "end";
    LogCapture log;
    dump(block.data(), static_cast<int>(block.size()), "f", "f", 1, "t");
    std::string lines;
    for (const std::string& text : log.texts()) lines += moved(text, block.data());
    EXPECT_EQ(lines, page().blocks("dump").at(0));
}

TEST(FormatsPage, ALogLineHasTheseBytes) {
    for (const Cells& row : rows("Text streamed")) {
        LogCapture log;
        logging::LogMessage("VYNCore", "src/pump.cpp", "void app::Pump::start(int)", 42,
                            logging::kLevelInfo, false, true)
            << bytesIn(row[0]);
        EXPECT_EQ(log.lines(), std::vector<std::string>{bytesIn(row[1])});
        EXPECT_EQ(page().blocks("text").at(0),
                  log.lines().at(0).substr(0, log.lines()[0].find('\033')) + "\n");
    }
    LogCapture log;
    logging_printf(nullptr, "f", 1, 1, "text");
    EXPECT_EQ(log.lines().at(0), "[:0 ()]  text\033[m\n");
}

TEST(FormatsPage, FunctionsAreShownByTheirNames) {
    for (const Cells& row : rows("Function")) {
        LogCapture log;
        logging::LogMessage("t", "f", codeOf(row[0]).c_str(), 1, 1, false, true) << "x";
        EXPECT_EQ(log.lines().at(0), "[f:1 (" + codeOf(row[1]) + ")]  x\033[m\n");
    }
}

std::string letterOf(int level, int printLevel) {
    LogCapture restoring;
    logging::setLogPrintLevel(printLevel);
    ::testing::internal::CaptureStderr();
    logging::LogMessage("t", level) << "x";
    return ::testing::internal::GetCapturedStderr().substr(2, 1);
}

TEST(FormatsPage, LevelsHaveTheirLetters) {
    for (const Cells& row : rows("Level")) {
        const int level = std::stoi(codeOf(row[0]));
        EXPECT_EQ(logging::getLogLevelStr(level), codeOf(row[2]));
        EXPECT_EQ(letterOf(level, 1), codeOf(row[2])) << level;
        EXPECT_EQ(letterOf(level, 3), codeOf(row[3])) << level;
    }
}

}  // namespace
}  // namespace vyn
