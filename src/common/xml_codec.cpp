#include <vyn/logging.h>
#include <vyn/xml_codec.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <iterator>
#include <rapidxml/rapidxml.hpp>
#include <rapidxml/rapidxml_print.hpp>

#include "common/xml_depth.h"

namespace vyn {

namespace {

// Parser and printer call themselves for every level, so the depth decides how much stack they
// take.
constexpr int kDeepestLevel = 256;

void reportDepth(const char* use) {
    VYN_LOG_ERROR << "XML is nested deeper than " << kDeepestLevel << " levels, it is not " << use
                  << ".";
}

// True when elements are nested deeper than `levels` below `top`. Goes from node to node, without
// calling itself.
bool isDeeper(const rapidxml::xml_node<char>& top, int levels) {
    int depth = 0;
    for (const auto* node = &top;;) {
        if (depth > levels && node->type() == rapidxml::node_element) return true;
        if (node->first_node() != nullptr) {
            node = node->first_node();
            ++depth;
            continue;
        }
        for (; node != &top && node->next_sibling() == nullptr; --depth) node = node->parent();
        if (node == &top) return false;
        node = node->next_sibling();
    }
}

// As atoi(), but beyond the range of int the result is its limit.
int toInt(const std::string& text) {
    const long number = std::strtol(text.c_str(), nullptr, 10);
    return static_cast<int>(std::clamp<long>(number, INT_MIN, INT_MAX));
}

}  // namespace

XmlCodec::XmlCodec() : mDocument(std::make_unique<Document>()), mCursor(mDocument.get()) {}

XmlCodec::XmlCodec(const std::string& xml)
    : mDocument(std::make_unique<Document>()), mSource(xml), mCursor(nullptr) {
    if (xml_depth::exceeds(mSource.data, kDeepestLevel)) {
        reportDepth("read");
        return;
    }
    try {
        mDocument->parse<0>(mSource.data);
        mCursor = mDocument.get();
    } catch (const rapidxml::parse_error&) {
        mDocument->clear();
    }
}

XmlCodec::~XmlCodec() = default;

void XmlCodec::enter(const std::string& name, bool create) {
    if (mCursor == nullptr) return;
    if (create) {
        Node* element = mDocument->allocate_node(rapidxml::node_element, pooled(name));
        mCursor->append_node(element);
        mCursor = element;
    } else {
        mCursor = mCursor->first_node(name.c_str(), name.size());
    }
}

void XmlCodec::leave() {
    if (mCursor == nullptr || mCursor->parent() == nullptr) return;
    Node* element = mCursor;
    mCursor = element->parent();
    const bool used = element->first_node() != nullptr || element->first_attribute() != nullptr;
    if (!used) mCursor->remove_node(element);
}

bool XmlCodec::has(const std::string& name) const {
    return mCursor != nullptr && mCursor->first_node(name.c_str(), name.size()) != nullptr;
}

void XmlCodec::put(const std::string& name, const std::string& value) {
    if (mCursor == nullptr) return;
    mCursor->append_attribute(mDocument->allocate_attribute(pooled(name), pooled(value)));
}

void XmlCodec::put(const std::string& name, int value) { put(name, std::to_string(value)); }

void XmlCodec::put(const std::string& name, Buffer& value) { put(name, value.toHexString()); }

void XmlCodec::get(const std::string& name, std::string& value) {
    if (mCursor == nullptr) return;
    auto* attribute = mCursor->first_attribute(name.c_str(), name.size());
    if (attribute == nullptr) return;
    value.assign(attribute->value(), attribute->value_size());
    mCursor->remove_attribute(attribute);
}

void XmlCodec::get(const std::string& name, int& value) {
    std::string text;
    get(name, text);
    value = toInt(text);
}

void XmlCodec::get(const std::string& name, Buffer& value) {
    std::string text;
    get(name, text);
    value.fromHexString(text);
}

void XmlCodec::put(XmlDocument* document) {
    if (document != nullptr) document->writeXml(this);
}

void XmlCodec::get(XmlDocument* document) {
    if (document != nullptr) document->readXml(this);
}

void XmlCodec::put(const std::string& name, XmlDocument* document) {
    enter(name, true);
    put(document);
    leave();
}

void XmlCodec::get(const std::string& name, XmlDocument* document) {
    enter(name, true);
    get(document);
    leave();
}

std::string XmlCodec::text() const {
    std::string text;
    if (isDeeper(*mDocument, kDeepestLevel)) {
        reportDepth("written");
        return text;
    }
    rapidxml::print(std::back_inserter(text), *mDocument, 0);
    return text;
}

// A copy that lives as long as the document.
const char* XmlCodec::pooled(const std::string& text) {
    return mDocument->allocate_string(text.c_str());
}

XmlDocument::~XmlDocument() = default;

std::string XmlDocument::encode() {
    XmlCodec codec;
    writeXml(&codec);
    return codec.text();
}

void XmlDocument::decode(const std::string& xml) {
    XmlCodec codec(xml);
    readXml(&codec);
}

}  // namespace vyn
