// SPDX-License-Identifier: Apache-2.0

// Any text is decoded: what is understood keeps its elements and attributes when it is written and
// read again. The bytes behind the first NUL, where the text ends, then move the cursor about.

#include <vyn/logging.h>
#include <vyn/xml_codec.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <rapidxml/rapidxml.hpp>
#include <string>

#include "common/xml_depth.h"

using vyn::XmlCodec;
using vyn::xml_depth::exceeds;

namespace {

// What the parser itself makes of a text: its elements and attributes, without the texts between,
// to which writing adds blanks.
struct Outline {
    explicit Outline(std::string xml) {
        rapidxml::xml_document<char> document;
        try {
            document.parse<0>(xml.data());
            understood = true;
            addChildren(document, 0);
        } catch (const rapidxml::parse_error&) {
        }
    }

    void addChildren(const rapidxml::xml_node<char>& parent, int level) {
        depth = std::max(depth, level);
        for (auto* child = parent.first_node(); child != nullptr; child = child->next_sibling()) {
            if (child->type() != rapidxml::node_element) continue;
            elements.append("<").append(child->name(), child->name_size());
            for (auto* a = child->first_attribute(); a != nullptr; a = a->next_attribute()) {
                elements.append(" ").append(a->name(), a->name_size());
                elements.append("=").append(a->value(), a->value_size());
            }
            elements += '>';
            addChildren(*child, level + 1);
            elements += '/';
        }
    }

    bool understood = false;
    int depth = 0;
    std::string elements;
};

void checkDecoding(const std::string& xml) {
    const std::string text = XmlCodec(xml).text();
    // The parser must not be let loose on what would take too much stack.
    const bool isTried = !exceeds(xml.c_str(), 256);
    const Outline outline(isTried ? xml : "<");
    if (!outline.understood) {
        VYN_CHECK(text == "\n");
        return;
    }
    for (const int levels : {0, 1, 2, 5}) {
        VYN_CHECK(exceeds(xml.c_str(), levels) == (outline.depth > levels)) << xml;
    }
    // A reference can bring in a NUL, which no text can hold.
    if (text.find('\0') != std::string::npos) return;
    const Outline written(text);
    VYN_CHECK(written.understood) << text;
    VYN_CHECK(written.elements == outline.elements) << text;
}

struct Fields : vyn::XmlDocument {
    std::string text;
    int number = 0;
    vyn::Buffer bytes;

    void writeXml(XmlCodec* codec) override {
        codec->put("text", text);
        codec->put("n", number);
        codec->put("data", bytes);
    }
    void readXml(XmlCodec* codec) override {
        codec->get("text", text);
        codec->get("n", number);
        codec->get("data", bytes);
    }
};

// Values come back through the text, whatever they hold.
void checkValues(const std::string& value) {
    Fields written;
    written.text = value;
    std::memcpy(&written.number, value.data(), std::min(value.size(), sizeof written.number));
    written.bytes.assign(value.data(), static_cast<int>(value.size()));
    XmlCodec writer;
    writer.put("a", &written);
    XmlCodec reader(writer.text());
    Fields read;
    reader.enter("a", false);
    reader.get(&read);
    VYN_CHECK(read.text == value.c_str()) << value;
    VYN_CHECK(read.number == written.number) << read.number;
    VYN_CHECK(read.bytes.toHexString() == written.bytes.toHexString());
}

// One byte of the input: an operation and the name it gets. Tells whether it loses the cursor.
bool take(char step, XmlCodec& codec) {
    const std::string name = std::array{"a", "b", "item", ""}[(step >> 6) & 3];
    const int operation = step & 7;
    const bool losesCursor = operation == 0 && !codec.has(name);
    Fields fields;
    if (operation < 2) codec.enter(name, operation == 1);
    if (operation == 2) codec.leave();
    if (operation == 3) codec.put(name, &fields);
    if (operation == 4) codec.get(name, &fields);
    if (operation == 5) codec.put(name, name);
    if (operation == 6) codec.get(name, fields.number);
    if (operation == 7) codec.get(&fields);
    return losesCursor;
}

// Once the cursor is lost, nothing changes any more.
void checkWalk(const std::string& xml, const std::string& steps) {
    XmlCodec codec(xml);
    auto next = steps.begin();
    while (next != steps.end() && !take(*next++, codec)) continue;
    if (next == steps.end()) return;
    const std::string text = codec.text();
    while (next != steps.end()) take(*next++, codec);
    VYN_CHECK(!codec.has("a") && !codec.has("item"));
    VYN_CHECK(codec.text() == text) << text;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string input(reinterpret_cast<const char*>(data), size);
    const std::string xml = input.c_str();
    checkDecoding(xml);
    checkValues(input);
    if (xml.size() < size) checkWalk(xml, input.substr(xml.size() + 1));
    return 0;
}
