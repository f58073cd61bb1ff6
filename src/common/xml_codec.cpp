// SPDX-License-Identifier: Apache-2.0

#include <vyn/logging.h>
#include <vyn/xml_codec.h>

#include <iterator>
#include <rapidxml/rapidxml.hpp>
#include <rapidxml/rapidxml_print.hpp>

#include "common/xml_depth.h"
#include "common/xml_names.h"

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
    if (mRefused > 0 ||
        (create && !xml_names::isReadable(name.c_str(), xml_names::kEndsOfElement))) {
        ++mRefused;
    } else if (create) {
        Node* child = mDocument->allocate_node(rapidxml::node_element, pooled(name));
        mCursor->append_node(child);
        mCursor = child;
    } else {
        mCursor = mCursor->first_node(name.c_str(), name.size());
    }
}

void XmlCodec::leave() {
    if (mRefused > 0) {
        --mRefused;
        return;
    }
    if (mCursor == nullptr || mCursor->parent() == nullptr) return;
    Node* left = mCursor;
    mCursor = left->parent();
    const bool used = left->first_node() != nullptr || left->first_attribute() != nullptr;
    if (!used) mCursor->remove_node(left);
}

bool XmlCodec::has(const std::string& name) const {
    return element() != nullptr && element()->first_node(name.c_str(), name.size()) != nullptr;
}

std::string XmlCodec::name() const {
    return element() == nullptr ? "" : std::string(element()->name(), element()->name_size());
}

std::vector<std::string> XmlCodec::attributes() const {
    std::vector<std::string> names;
    if (element() == nullptr) return names;
    for (auto* next = element()->first_attribute(); next != nullptr;
         next = next->next_attribute()) {
        names.emplace_back(next->name(), next->name_size());
    }
    return names;
}

void XmlCodec::forEachChild(const std::function<void(const std::string& name)>& visit) {
    Node* const parent = element();
    if (parent == nullptr) return;
    Node* child = parent->first_node();
    while (child != nullptr) {
        // Asked for beforehand: the child may have been left, and thereby removed, in between.
        Node* const next = child->next_sibling();
        if (child->type() == rapidxml::node_element) {
            mCursor = child;
            visit(name());
            mRefused = 0;
            if (mCursor == nullptr) return;
        }
        child = next;
    }
    mCursor = parent;
}

// Two pieces would be printed on a line each, so what follows text becomes one with it.
void XmlCodec::putText(const std::string& text) {
    Node* const target = element();
    if (target == nullptr || text.empty()) return;
    Node* const last = target->first_node() == nullptr ? nullptr : target->last_node();
    if (last != nullptr && last->type() == rapidxml::node_data) {
        const std::string before(last->value(), last->value_size());
        last->value(pooled(before + text));
    } else {
        target->append_node(mDocument->allocate_node(rapidxml::node_data, nullptr, pooled(text)));
    }
}

std::string XmlCodec::getText() const {
    std::string text;
    if (element() == nullptr) return text;
    for (auto* next = element()->first_node(); next != nullptr; next = next->next_sibling()) {
        if (next->type() != rapidxml::node_data && next->type() != rapidxml::node_cdata) continue;
        text.append(next->value(), next->value_size());
    }
    return text;
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

// Where things are put and got; null when the cursor is lost or in what is not written.
XmlCodec::Node* XmlCodec::element() const { return mRefused > 0 ? nullptr : mCursor; }

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

bool XmlDocument::decode(const std::string& xml) {
    XmlCodec codec(xml);
    readXml(&codec);
    return codec.ok();
}

}  // namespace vyn
