// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

#include <vyn/buffer.h>
#include <vyn/export.h>

namespace rapidxml {
template <class Ch>
class xml_document;
template <class Ch>
class xml_node;
}  // namespace rapidxml

namespace vyn {

class XmlDocument;

// A cursor over an XML tree, through which objects write and read themselves: an object is an
// element, a scalar field an attribute of it, a nested object a child element. Numbers are decimal,
// booleans 1 and 0, byte buffers upper-case hexadecimal.
//
//     codec.enter("device", true);      // <device name="pump" limit="12">
//     codec.put("name", "pump");        //     <child data="01AB"/>
//     codec.put("limit", 12);           // </device>
//     codec.put("child", &child);
//     codec.leave();
//
// A CURSOR CAN BE LOST: when the text was not understood, or enter() without `create` found no such
// child. From then on nothing can be entered, left, put or found, and only a new codec recovers.
// Ask has() before entering, and ok() in the end.
//
// Text is understood when rapidxml's parser takes it, and has no elements nested deeper than 256
// levels (which is logged as an error).
//
// Memory of names and values is given back when the codec is destroyed, not before. Not
// synchronised: one thread at a time.
class VYN_API XmlCodec {
  public:
    // An empty document with the cursor on it. A document holds any number of elements; attributes
    // put on itself do not appear in the text.
    XmlCodec();
    // The document of `xml`, of which a copy is made, with the cursor on it. Text that is not
    // understood gives an empty document and a lost cursor.
    explicit XmlCodec(const std::string& xml);
    ~XmlCodec();
    XmlCodec(const XmlCodec&) = delete;
    XmlCodec& operator=(const XmlCodec&) = delete;

    // False while the cursor is lost.
    [[nodiscard]] bool ok() const { return mCursor != nullptr; }

    // Moves to the first child of that name, or loses the cursor. With `create`, always appends a
    // new child and moves to that.
    //
    // A name that could not be read again (an empty one, one with a blank, "/", ">" or "?" in it or
    // "!" in front) is an error line; what is put until the leave() that belongs to it is not
    // written.
    void enter(const std::string& name, bool create);

    // Moves back to the parent. An element that has neither children nor attributes is removed, so
    // what was entered for writing and got nothing leaves no trace, and what was read whole is not
    // found again. To be called once for each enter().
    void leave();

    // True when there is a child of that name. Attributes do not count.
    [[nodiscard]] bool has(const std::string& name) const;

    // The name of the element under the cursor, empty for the document and a lost cursor; and those
    // of its attributes, in their order.
    [[nodiscard]] std::string name() const;
    [[nodiscard]] std::vector<std::string> attributes() const;

    // Calls `visit` with the cursor on each child element in turn, and the child's name; then the
    // cursor is back, wherever `visit` has moved it. What `visit` reads is taken away, but no
    // element. When it has lost the cursor, that stays lost and the remaining children are left
    // out.
    void forEachChild(const std::function<void(const std::string& name)>& visit);

    // Append an attribute; attributes of one name queue up. XML cannot hold a NUL, so names and
    // values end in front of their first. A name that could not be read again (as for enter(), or
    // with
    // "<", "=" or "!" in it) is an error line, and nothing is written.
    void put(const std::string& name, const std::string& value);
    void put(const std::string& name, int value);
    void put(const std::string& name, Buffer& value);
    void put(const std::string& name, const Buffer& value);
    // Every other type of numbers, whole; bool as 1 or 0.
    template <typename Number, std::enable_if_t<std::is_arithmetic_v<Number>, int> = 0>
    void put(const std::string& name, Number value) {
        if constexpr (std::is_floating_point_v<Number>) {
            putDouble(name, static_cast<double>(value));
        } else if constexpr (std::is_signed_v<Number>) {
            putSigned(name, value);
        } else {
            putUnsigned(name, value);
        }
    }

    // Take the first attribute of that name away. Without one a string stays as it was, a number
    // becomes 0, a boolean false and a buffer empty; so they do with a lost cursor. A number is the
    // one at the value's beginning, 0 when there is none, and the nearest one that the type has. A
    // boolean is one of the words for switches (see setting_value.h), else false.
    //
    // True when there was such an attribute and all of it is a value of the type.
    bool get(const std::string& name, std::string& value);
    bool get(const std::string& name, int& value);
    bool get(const std::string& name, bool& value);
    bool get(const std::string& name, double& value);
    bool get(const std::string& name, Buffer& value);
    // Every other type of integers.
    template <typename Number, std::enable_if_t<std::is_integral_v<Number>, int> = 0>
    bool get(const std::string& name, Number& value) {
        using Limits = std::numeric_limits<Number>;
        if constexpr (std::is_signed_v<Number>) {
            int64_t number = 0;
            const bool isWhole = getSigned(name, number, Limits::min(), Limits::max());
            value = static_cast<Number>(number);
            return isWhole;
        } else {
            uint64_t number = 0;
            const bool isWhole = getUnsigned(name, number, Limits::max());
            value = static_cast<Number>(number);
            return isWhole;
        }
    }

    // Append text to the current element, and give all the text that is directly in it, children's
    // not included. Text of nothing but blanks is lost on reading, and beside child elements text
    // gains the line feeds and tabs between them.
    void putText(const std::string& text);
    [[nodiscard]] std::string getText() const;

    // Let an object write or read itself at the cursor. The object is not kept; null does nothing.
    void put(XmlDocument* document);
    void get(XmlDocument* document);

    // Writes an object as a child element; an object without fields leaves none.
    void put(const std::string& name, XmlDocument* document);

    // Lets an object read from a NEW, EMPTY child, in which it finds nothing. To read a nested
    // object, enter its element:
    //
    //     if (codec.has("child")) {
    //         codec.enter("child", false);
    //         codec.get(&child);
    //         codec.leave();
    //     }
    void get(const std::string& name, XmlDocument* document);

    // The whole document as text, one node a line, indented with tabs. Elements that are nested
    // deeper than 256 levels, which nobody here would read, are an error line and no text at all.
    [[nodiscard]] std::string text() const;

  private:
    using Document = rapidxml::xml_document<char>;
    using Node = rapidxml::xml_node<char>;

    void putSigned(const std::string& name, int64_t value);
    void putUnsigned(const std::string& name, uint64_t value);
    void putDouble(const std::string& name, double value);
    bool getSigned(const std::string& name, int64_t& value, int64_t min, int64_t max);
    bool getUnsigned(const std::string& name, uint64_t& value, uint64_t max);
    [[nodiscard]] Node* element() const;
    const char* pooled(const std::string& text);

    std::unique_ptr<Document> mDocument;
    Buffer mSource;
    Node* mCursor;
    // How many elements were entered from the first whose name was refused.
    int mRefused = 0;
};

// An object that turns itself into XML text and back.
class VYN_API XmlDocument {
  public:
    virtual ~XmlDocument();

    // Writes this object's fields. As the cursor is on the document at first, an object begins by
    // entering its element and ends by leaving it. The codec is not kept.
    virtual void writeXml(XmlCodec* codec) = 0;
    // Reads them.
    virtual void readXml(XmlCodec* codec) = 0;

    // The text that writeXml() makes.
    [[nodiscard]] std::string encode();
    // Lets readXml() read. Text that is not understood changes no strings, but makes numbers 0 and
    // buffers empty. False then, and when readXml() has lost the cursor.
    bool decode(const std::string& xml);
};

}  // namespace vyn
