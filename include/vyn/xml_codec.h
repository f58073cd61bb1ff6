#pragma once

#include <memory>
#include <string>

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
// element, a scalar field an attribute of it, a nested object a child element. Integers are
// decimal, byte buffers upper-case hexadecimal.
//
//     codec.enter("device", true);      // <device name="pump" limit="12">
//     codec.put("name", "pump");        //     <child data="01AB"/>
//     codec.put("limit", 12);           // </device>
//     codec.put("child", &child);
//     codec.leave();
//
// A CURSOR CAN BE LOST: when the text was not understood, or enter() without `create` found no such
// child. From then on nothing can be entered, left, put or found, and only a new codec recovers.
// Ask has() before entering.
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

    // Moves to the first child of that name, or loses the cursor. With `create`, always appends a
    // new child and moves to that.
    void enter(const std::string& name, bool create);

    // Moves back to the parent. An element that has neither children nor attributes is removed, so
    // what was entered for writing and got nothing leaves no trace, and what was read whole is not
    // found again. To be called once for each enter().
    void leave();

    // True when there is a child of that name. Attributes do not count.
    [[nodiscard]] bool has(const std::string& name) const;

    // Append an attribute; attributes of one name queue up. XML cannot hold a NUL, so names and
    // values end in front of their first.
    void put(const std::string& name, const std::string& value);
    void put(const std::string& name, int value);
    void put(const std::string& name, Buffer& value);

    // Take the first attribute of that name away. Without one a string stays as it was, an int
    // becomes 0 and a buffer empty; so they do with a lost cursor. An int is the number at the
    // value's beginning, 0 when there is none.
    void get(const std::string& name, std::string& value);
    void get(const std::string& name, int& value);
    void get(const std::string& name, Buffer& value);

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

    const char* pooled(const std::string& text);

    std::unique_ptr<Document> mDocument;
    Buffer mSource;
    Node* mCursor;
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
    // Lets readXml() read. Text that is not understood changes no strings, but makes ints 0 and
    // buffers empty.
    void decode(const std::string& xml);
};

}  // namespace vyn
