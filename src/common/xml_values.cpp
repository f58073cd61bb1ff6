// SPDX-License-Identifier: Apache-2.0

#include <vyn/xml_codec.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <rapidxml/rapidxml.hpp>

#include "common/number_text.h"
#include "common/xml_names.h"

// The attributes of an element as values of a type.
namespace vyn {

namespace {

// The number at the beginning of the text, by one of the C library's functions and brought into a
// range, and whether that is the whole text.
template <typename Number>
bool readNumber(Number (*convert)(const char*, char**, int), const std::string& text, Number min,
                Number max, Number& value) {
    char* end = nullptr;
    errno = 0;
    const Number number = convert(text.c_str(), &end, 10);
    value = std::clamp(number, min, max);
    return errno == 0 && value == number && !text.empty() && *end == '\0';
}

}  // namespace

void XmlCodec::put(const std::string& name, const std::string& value) {
    Node* const target = element();
    if (target == nullptr || !xml_names::isReadable(name.c_str(), xml_names::kEndsOfAttribute))
        return;
    target->append_attribute(mDocument->allocate_attribute(pooled(name), pooled(value)));
}

void XmlCodec::put(const std::string& name, int value) { put(name, std::to_string(value)); }

void XmlCodec::put(const std::string& name, Buffer& value) { put(name, value.toHexString()); }

void XmlCodec::put(const std::string& name, const Buffer& value) { put(name, value.toHexString()); }

void XmlCodec::putSigned(const std::string& name, int64_t value) {
    put(name, std::to_string(value));
}

void XmlCodec::putUnsigned(const std::string& name, uint64_t value) {
    put(name, std::to_string(value));
}

void XmlCodec::putDouble(const std::string& name, double value) {
    put(name, number_text::of(value));
}

bool XmlCodec::get(const std::string& name, std::string& value) {
    Node* const source = element();
    if (source == nullptr) return false;
    auto* attribute = source->first_attribute(name.c_str(), name.size());
    if (attribute == nullptr) return false;
    value.assign(attribute->value(), attribute->value_size());
    source->remove_attribute(attribute);
    return true;
}

bool XmlCodec::get(const std::string& name, int& value) {
    int64_t number = 0;
    const bool isWhole = getSigned(name, number, INT_MIN, INT_MAX);
    value = static_cast<int>(number);
    return isWhole;
}

bool XmlCodec::get(const std::string& name, bool& value) {
    std::string text;
    get(name, text);
    const std::optional<bool> read = number_text::readSwitch(text);
    value = read.value_or(false);
    return read.has_value();
}

bool XmlCodec::get(const std::string& name, double& value) {
    std::string text;
    get(name, text);
    bool isWhole = false;
    const std::optional<double> read = number_text::read(text, isWhole);
    value = read.value_or(0);
    return read && isWhole;
}

bool XmlCodec::get(const std::string& name, Buffer& value) {
    std::string text;
    const bool isThere = get(name, text);
    value.fromHexString(text);
    return isThere;
}

bool XmlCodec::getSigned(const std::string& name, int64_t& value, int64_t min, int64_t max) {
    std::string text;
    get(name, text);
    long long number = 0;
    const bool isWhole = readNumber<long long>(std::strtoll, text, min, max, number);
    value = number;
    return isWhole;
}

// strtoull() gives a negative number's counterpart.
bool XmlCodec::getUnsigned(const std::string& name, uint64_t& value, uint64_t max) {
    std::string text;
    get(name, text);
    unsigned long long number = 0;
    const bool isNegative = text.find('-') < text.find_first_of("0123456789");
    const bool isWhole =
        !isNegative && readNumber<unsigned long long>(std::strtoull, text, 0, max, number);
    value = isNegative ? 0 : number;
    return isWhole;
}

}  // namespace vyn
