// SPDX-License-Identifier: Apache-2.0

// Any text is decoded: what is understood keeps its elements and attributes when it is written and
// read again.

#include <vyn/logging.h>
#include <vyn/xml_codec.h>

#include <algorithm>
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

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string input(reinterpret_cast<const char*>(data), size);
    checkDecoding(input.c_str());
    return 0;
}
