// Any text is decoded: what is understood keeps its elements and attributes when it is written and
// read again. The bytes behind the first NUL, where the text ends, then move the cursor about.

#include <vyn/logging.h>
#include <vyn/xml_codec.h>

#include <algorithm>
#include <cstring>
#include <rapidxml/rapidxml.hpp>
#include <string>

#include "common/xml_depth.h"

namespace vyn {
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
            add(*child);
            addChildren(*child, level + 1);
            elements += '/';
        }
    }

    void add(const rapidxml::xml_node<char>& element) {
        elements.append("<").append(element.name(), element.name_size());
        for (auto* each = element.first_attribute(); each != nullptr;
             each = each->next_attribute()) {
            elements.append(" ").append(each->name(), each->name_size());
            elements.append("=").append(each->value(), each->value_size());
        }
        elements += '>';
    }

    bool understood = false;
    int depth = 0;
    std::string elements;
};

bool isTooDeep(const std::string& xml, int levels) {
    return xml_depth::exceeds(xml.c_str(), levels);
}

void checkDecoding(const std::string& xml) {
    const std::string text = XmlCodec(xml).text();
    // The parser must not be let loose on what would take too much stack.
    if (isTooDeep(xml, 256)) {
        VYN_CHECK(text == "\n");
        return;
    }
    const Outline outline(xml);
    if (!outline.understood) {
        VYN_CHECK(text == "\n");
        return;
    }
    for (const int levels : {0, 1, 2, 5}) {
        VYN_CHECK(isTooDeep(xml, levels) == (outline.depth > levels)) << xml;
    }
    // A reference can bring in a NUL, which no text can hold.
    if (text.find('\0') != std::string::npos) return;
    const Outline written(text);
    VYN_CHECK(written.understood) << text;
    VYN_CHECK(written.elements == outline.elements) << text;
}

struct Fields : XmlDocument {
    std::string text;
    int number = 0;
    Buffer bytes;

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

// One byte of the input: an operation and the name it gets.
struct Step {
    explicit Step(char byte) : operation(byte & 7), name(kNames[(byte >> 6) & 3]) {}

    void take(XmlCodec& codec) const {
        Fields fields;
        switch (operation) {
            case 0:
                return codec.enter(name, false);
            case 1:
                return codec.enter(name, true);
            case 2:
                return codec.leave();
            case 3:
                return codec.put(name, &fields);
            case 4:
                return codec.get(name, &fields);
            case 5:
                return codec.put(name, name);
            case 6:
                return codec.get(name, fields.number);
            default:
                return codec.get(&fields);
        }
    }
    bool losesCursor(const XmlCodec& codec) const { return operation == 0 && !codec.has(name); }

    static constexpr const char* kNames[] = {"a", "b", "item", ""};
    int operation;
    std::string name;
};

// Once the cursor is lost, nothing changes any more.
void checkWalk(const std::string& xml, const std::string& steps) {
    XmlCodec codec(xml);
    auto next = steps.begin();
    for (bool isLost = false; next != steps.end() && !isLost; ++next) {
        const Step step(*next);
        isLost = step.losesCursor(codec);
        step.take(codec);
    }
    const std::string text = codec.text();
    for (; next != steps.end(); ++next) {
        Step(*next).take(codec);
        for (const char* name : Step::kNames) VYN_CHECK(!codec.has(name)) << name;
    }
    VYN_CHECK(codec.text() == text) << text;
}

}  // namespace
}  // namespace vyn

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string input(reinterpret_cast<const char*>(data), size);
    const std::string xml = input.c_str();
    vyn::checkDecoding(xml);
    vyn::checkValues(input);
    if (xml.size() < size) vyn::checkWalk(xml, input.substr(xml.size() + 1));
    return 0;
}
