// SPDX-License-Identifier: Apache-2.0

#include <vyn/helper.h>
#include <vyn/xml_codec.h>

#include <cfloat>

#include "support/support.h"

namespace vyn::testing {
namespace {

struct Part : XmlDocument {
    Buffer data{"x", 1};

    void writeXml(XmlCodec* codec) override {
        if (data.size == 2) codec->put("data", data);
    }
    void readXml(XmlCodec* codec) override { codec->get("data", data); }
};

struct Machine : XmlDocument {
    std::string name = "none";
    int limit = -1;
    Part part;

    void writeXml(XmlCodec* codec) override {
        codec->enter("machine", true);
        codec->put("name", name);
        codec->put("limit", limit);
        codec->put("part", &part);
        codec->leave();
    }
    void readXml(XmlCodec* codec) override {
        codec->enter("machine", false);
        codec->get("name", name);
        codec->get("limit", limit);
        codec->enter("part", false);
        codec->get(&part);
    }
};

TEST(XmlDocument, ComesBackFromItsText) {
    Machine written, read;
    EXPECT_EQ(written.encode(), "<machine name=\"none\" limit=\"-1\"/>\n\n");
    written.name = "<a> & \"b\" 'c'\n";
    written.limit = -12;
    written.part.data.assign("\x01\xab", 2);
    EXPECT_EQ(written.encode(),
              "<machine name='&lt;a&gt; &amp; \"b\" &apos;c&apos;\n' limit=\"-12\">\n"
              "\t<part data=\"01AB\"/>\n</machine>\n\n");
    read.decode(written.encode());
    EXPECT_EQ(read.encode(), written.encode());
}

TEST(XmlCodec, ReadsAttributesOfOneNameInTheOrderTheyWerePut) {
    XmlCodec codec("<a n='12 apples' n='' n='-3000000000'/>");
    codec.enter("a", false);
    codec.put("n", 4);
    std::string read;
    for (int i = 0, number = -1; i < 5; ++i) {
        codec.get("n", number);
        read += std::to_string(number) + " ";
    }
    codec.get("n", read);
    EXPECT_EQ(read, "12 0 -2147483648 4 0 ") << "also as a string that is not there";
}

template <typename Number>
void expectSame(Number number, bool isAnInt) {
    XmlCodec codec;
    codec.enter("e", true);
    for (int i = 0; i < 2; ++i) codec.put("n", number);
    XmlCodec read(codec.text());
    read.enter("e", false);
    Number same{};
    int narrow = 0;
    EXPECT_TRUE(read.get("n", same) && same == number) << codec.text();
    EXPECT_EQ(read.get("n", narrow), isAnInt) << codec.text();
}

TEST(XmlCodec, GivesEveryNumberThatWasWritten) {
    expectSame(INT64_MIN, false);
    expectSame(UINT64_MAX, false);
    expectSame<short>(-5, true);
    for (const double number : {-1.0 / 3, DBL_MAX, DBL_MIN, 1e22}) expectSame(number, false);
}

TEST(XmlCodec, WalksOverChildrenAndTellsTheirText) {
    XmlCodec codec("<a>one<b x='1' y='2'>two<!-- --> three<c/></b><![CDATA[<four>]]><d/></a>");
    for (const std::string name : {"A", "b", "x"}) EXPECT_FALSE(codec.has(name));
    codec.enter("a", false);
    EXPECT_EQ(codec.getText(), "one<four>");
    std::string seen;
    codec.forEachChild([&](const std::string& name) {
        seen += name + ":" + codec.getText() + ";" + helper::implode(codec.attributes(), ",");
        codec.forEachChild([&](const std::string& inner) { seen += "(" + inner + ")"; });
    });
    EXPECT_EQ(seen, "b:two three;x,y(c)d:;");
    EXPECT_EQ(codec.name(), "a");
    codec.enter("d", false);
    codec.leave();
    EXPECT_FALSE(codec.has("d")) << "gone once it is read";
    codec.forEachChild([&](const std::string&) { codec.enter("lost", false); });
    EXPECT_FALSE(codec.ok());
}

TEST(XmlCodec, DoesNothingMoreOnceItsCursorIsLost) {
    XmlCodec codec("<part data='01AB'/>");
    Part part;
    codec.get("part", &part);
    EXPECT_TRUE(part.data.isEmpty()) << "read from a new element";
    codec.leave();
    EXPECT_TRUE(codec.has("part")) << "there was nothing to leave";
    codec.enter("missing", false);
    codec.leave();
    EXPECT_FALSE(codec.has("part"));
    codec.put("name", "value");
    codec.put("part", &part);
    EXPECT_EQ(codec.text(), "<part data=\"01AB\"/>\n\n");
}

TEST(XmlCodec, WritesWhatCanBeReadAgainAndEndsNamesAndValuesInFrontOfANul) {
    LogCapture log;
    XmlCodec codec("\xef\xbb\xbf<?xml version='1.0'?><a>1 &lt; 2<b n='&#228;&amp;'/></a>");
    for (const std::string name : {"", "a b", "a/", "!a", "a>", "a?"}) {
        codec.put(name, "lost");
        codec.enter(name, true);
        codec.enter("lost", true);
        codec.leave();
        codec.leave();
    }
    codec.enter(std::string("c\0b", 3), true);
    codec.put(std::string("d\0d", 3), std::string("e\0f", 3));
    codec.put("a=", "lost");
    codec.put("\u00e4'", 'x');
    for (const char* piece : {"a <", " b"}) codec.putText(piece);
    EXPECT_EQ(codec.text(),
              "<a>\n\t1 &lt; 2\n\t<b n=\"\xc3\xa4&amp;\"/>\n</a>\n"
              "<c d=\"e\" \u00e4'=\"120\">a &lt; b</c>\n\n");
    EXPECT_EQ(log.count("can not be read again, what it stands for is not written."), 13);
}

std::string repeated(int count, const std::string& text) {
    std::string all;
    for (int i = 0; i < count; ++i) all += text;
    return all;
}

bool isUnderstood(const std::string& xml) { return XmlCodec(xml).has("a"); }

// The text of so many elements, each inside of the one before.
std::string nested(int levels) {
    XmlCodec codec;
    for (int i = 0; i < levels; ++i) codec.enter("a", true);
    return codec.text();
}

TEST(XmlCodec, Understands256LevelsOfElementsAndWritesNoMore) {
    LogCapture log;
    EXPECT_TRUE(isUnderstood(nested(256)));
    EXPECT_EQ(nested(257) + nested(100000), "");
    EXPECT_EQ(log.count("XML is nested deeper than 256 levels, it is not written."), 2);
    EXPECT_FALSE(isUnderstood(repeated(256, "<a>") + "<a/>" + repeated(256, "</a>")));
    for (const std::string element :
         {"<a></a>", "<a b='>'/>", "<!--<b>-->", "<![CDATA[<b>]]>", "<?b <b>?>", "<!b>"}) {
        EXPECT_TRUE(isUnderstood("<a>" + repeated(1000, element) + "</a>")) << element;
    }
    EXPECT_TRUE(isUnderstood("<!DOCTYPE a [" + repeated(1000, "<!b []>") + "]><a/>"));
}

TEST(XmlCodec, RefusesAnyDepthWithoutUsingTheStackForIt) {
    const std::string deep = repeated(1000000, "<a>");
    // What looks like the end of a tag, or hides the beginning of the next, to a careless reader.
    for (const std::string start :
         {"", "<a b='>'/>", "<a b=\"'\"/>", "<a><!-- ' -->", "<a><?p ' ?>",
          "<!DOCTYPE a [ <!ENTITY ' > ]>", "<a>'", "<a><![CDATA[ ' </a> ]]>", "<a '='x'>", "<a'>",
          "<a<'>", "<a \"b='x'>", "<a><!x'>", "<a><!-- > -->", "<a><!-- </a></a> -->", "<a b='/'>",
          "<a b='</a>'>", "<a></a >"}) {
        LogCapture log;
        EXPECT_FALSE(isUnderstood(start + deep)) << start;
        EXPECT_EQ(log.count("nested deeper than 256 levels"), 1) << start;
    }
}

}  // namespace
}  // namespace vyn::testing
