// SPDX-License-Identifier: Apache-2.0

// Prints the trees of XML files as XmlCodec reads them, for ./compare: a line for each file, "+"
// where it is understood or "-", then one for each element with its name, its text and its
// attributes. All but the signs is in hexadecimal.

#include <vyn/file_utils.h>
#include <vyn/logging.h>
#include <vyn/xml_codec.h>

#include <iostream>

namespace {

std::string hex(const std::string& text) {
    return vyn::Buffer(text.data(), static_cast<int>(text.size())).toHexString();
}

void print(vyn::XmlCodec& codec, const std::string& name) {
    std::cout << "E " << hex(name) << " T" << hex(codec.getText());
    for (const std::string& attribute : codec.attributes()) {
        std::string value;
        codec.get(attribute, value);
        std::cout << " " << hex(attribute) << "=" << hex(value);
    }
    std::cout << "\n";
    codec.forEachChild([&](const std::string& child) { print(codec, child); });
}

}  // namespace

int main(int argc, char** argv) {
    logging::setLogLevel(0);
    for (int i = 1; i < argc; ++i) {
        vyn::Buffer content;
        if (vyn::readToEnd(argv[i], content) < 0) return 1;
        vyn::XmlCodec codec{std::string(content.bytes())};
        std::cout << (codec.ok() ? "+\n" : "-\n");
        codec.forEachChild([&](const std::string& child) { print(codec, child); });
    }
    return 0;
}
