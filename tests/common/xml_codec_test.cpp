#include <gtest/gtest.h>
#include <vyn/xml_codec.h>

#include <climits>

#include "support/log_capture.h"

namespace vyn {
namespace {

using testing::LogCapture;

struct Part : XmlDocument {
    Buffer data;

    void writeXml(XmlCodec* codec) override {
        if (!data.isEmpty()) codec->put("data", data);
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
        if (codec->has("part")) {
            codec->enter("part", false);
            codec->get(&part);
            codec->leave();
        }
        codec->leave();
    }
};

TEST(XmlDocument, ComesBackFromItsText) {
    Machine written;
    written.name = "<a> & \"b\" 'c'\n";
    written.limit = -12;
    written.part.data.assign("\x01\xab", 2);
    Machine read;
    read.decode(written.encode());
    EXPECT_EQ(read.name, written.name);
    EXPECT_EQ(read.limit, -12);
    EXPECT_EQ(read.part.data.toHexString(), "01AB");
}

TEST(XmlDocument, IsAnElementWithAttributesAndChildElements) {
    Machine machine;
    machine.part.data.assign("\x01\xab", 2);
    EXPECT_EQ(machine.encode(),
              "<machine name=\"none\" limit=\"-1\">\n\t<part data=\"01AB\"/>\n</machine>\n\n");
}

TEST(XmlDocument, LeavesNoElementForANestedObjectWithoutFields) {
    EXPECT_EQ(Machine().encode(), "<machine name=\"none\" limit=\"-1\"/>\n\n");
}

TEST(XmlDocument, ResetsOnlyNumbersAndBuffersWhenTheTextIsMalformed) {
    LogCapture capture;
    for (const std::string text :
         {"abc", "<machine", "<machine name='x'", "<machine name='x></machine>", "<machine name>",
          "<machine name='x'>", "<machine name='x'/>abc", "<machine name='&#xFFFFFFF;'/>", "</>",
          "<machine name='x'><!-- </machine>", "<machine name='x'><![CDATA[]></machine>", "<?",
          "<!", "<machine name='x'/><!DOCTYPE [>", "<machine name='x'/><",
          "<machine name='&#65'/>"}) {
        Machine machine;
        machine.decode(text);
        EXPECT_EQ(machine.name, "none") << text;
        EXPECT_EQ(machine.limit, 0) << text;
        EXPECT_EQ(XmlCodec(text).text(), "\n") << text;
    }
    Part part;
    part.data.assign("x");
    part.decode("abc");
    EXPECT_TRUE(part.data.isEmpty());
    EXPECT_TRUE(capture.lines().empty()) << "malformed text is not logged";
}

TEST(XmlCodec, ReadsAttributesOfOneNameInTheOrderTheyWerePut) {
    XmlCodec codec;
    codec.put("count", 3);
    codec.put("count", 4);
    int number = -1;
    codec.get("count", number);
    EXPECT_EQ(number, 3);
    std::string text = "unchanged";
    codec.get("count", text);
    EXPECT_EQ(text, "4");
    codec.get("count", text);
    EXPECT_EQ(text, "4");
    codec.get("count", number);
    EXPECT_EQ(number, 0);
}

TEST(XmlCodec, ReadsTheNumberAtTheBeginningOfAnAttribute) {
    XmlCodec codec("<a n='12 apples' n='x' n='-7' n='' n='99999999999999999999' n='-3000000000'/>");
    codec.enter("a", false);
    for (const int expected : {12, 0, -7, 0, INT_MAX, INT_MIN}) {
        int number = -1;
        codec.get("n", number);
        EXPECT_EQ(number, expected);
    }
}

TEST(XmlCodec, FindsChildrenByTheirExactName) {
    XmlCodec codec("<a child='x'><Item/><items/>text</a>");
    EXPECT_FALSE(codec.has("b"));
    ASSERT_TRUE(codec.has("a"));
    codec.enter("a", false);
    EXPECT_TRUE(codec.has("Item"));
    for (const std::string name : {"item", "child", "Ite", "a"}) EXPECT_FALSE(codec.has(name));
    EXPECT_FALSE(codec.has(std::string("Item\0", 5)));
}

TEST(XmlCodec, WalksRepeatedElementsBecauseReadingConsumesThem) {
    XmlCodec codec("<list><item n='1'/><item n='2'/><item n='3'/></list>");
    codec.enter("list", false);
    int sum = 0;
    while (codec.has("item")) {
        int number = 0;
        codec.enter("item", false);
        codec.get("n", number);
        codec.leave();
        sum = sum * 10 + number;
    }
    EXPECT_EQ(sum, 123);
}

TEST(XmlCodec, DoesNothingMoreOnceItsCursorIsLost) {
    XmlCodec codec("<a><b/></a>");
    codec.enter("missing", false);
    codec.leave();
    EXPECT_FALSE(codec.has("a"));
    codec.enter("a", true);
    codec.put("name", "value");
    Part part;
    part.data.assign("x");
    codec.put("part", &part);
    codec.get("part", &part);
    EXPECT_TRUE(part.data.isEmpty());
    EXPECT_EQ(codec.text(), XmlCodec("<a><b/></a>").text());
}

TEST(XmlCodec, ReadsANamedObjectFromANewElement) {
    XmlCodec codec("<a><part data='01AB'/></a>");
    codec.enter("a", false);
    Part part;
    part.data.assign("x");
    codec.get("part", &part);
    EXPECT_TRUE(part.data.isEmpty());
    EXPECT_EQ(codec.text(), XmlCodec("<a><part data='01AB'/></a>").text());
}

TEST(XmlCodec, StaysOnTheDocumentWhenThereIsNothingToLeave) {
    XmlCodec codec;
    codec.leave();
    codec.enter("a", true);
    codec.put("b", "c");
    EXPECT_EQ(codec.text(), "<a b=\"c\"/>\n\n");
}

TEST(XmlCodec, KeepsTextAndTranslatesReferences) {
    XmlCodec codec("\xef\xbb\xbf<?xml version='1.0'?><a>1 &lt; 2<b n='&#228;&amp;'/></a>");
    EXPECT_EQ(codec.text(), "<a>\n\t1 &lt; 2\n\t<b n=\"\xc3\xa4&amp;\"/>\n</a>\n\n");
}

TEST(XmlCodec, EndsNamesAndValuesInFrontOfANul) {
    XmlCodec codec;
    codec.enter(std::string("a\0b", 3), true);
    codec.put(std::string("c\0d", 3), std::string("e\0f", 3));
    EXPECT_EQ(codec.text(), "<a c=\"e\"/>\n\n");
}

std::string repeated(int count, const std::string& text) {
    std::string all;
    for (int i = 0; i < count; ++i) all += text;
    return all;
}

bool isUnderstood(const std::string& xml) { return XmlCodec(xml).has("a"); }

TEST(XmlCodec, Understands256LevelsAndNoMore) {
    LogCapture capture;
    EXPECT_TRUE(isUnderstood(repeated(256, "<a>") + repeated(256, "</a>")));
    EXPECT_TRUE(isUnderstood(repeated(255, "<a>") + "<a/>" + repeated(255, "</a>")));
    EXPECT_TRUE(capture.lines().empty());
    EXPECT_FALSE(isUnderstood(repeated(257, "<a>") + repeated(257, "</a>")));
    EXPECT_FALSE(isUnderstood(repeated(256, "<a>") + "<a/>" + repeated(256, "</a>")));
    EXPECT_EQ(capture.count("nested deeper than 256 levels"), 2);
}

TEST(XmlCodec, RefusesAnyDepthWithoutUsingTheStackForIt) {
    const std::string deep = repeated(1000000, "<a>");
    EXPECT_FALSE(isUnderstood(deep));
    // What looks like the end of a tag, or hides the beginning of the next, to a careless reader.
    for (const std::string start :
         {"<a b='>'/>", "<a b=\"'\"/>", "<a><!-- ' -->", "<a><?p ' ?>",
          "<!DOCTYPE a [ <!ENTITY ' > ]>", "<a>'", "<a><![CDATA[ ' </a> ]]>", "<a '='x'>", "<a'>",
          "<a<'>", "<a \"b='x'>", "<a><!x'>", "<a><!-- > -->", "<a><!-- </a></a> -->", "<a b='/'>",
          "<a b='</a>'>", "<a></a >"}) {
        LogCapture capture;
        EXPECT_FALSE(isUnderstood(start + deep)) << start;
        EXPECT_EQ(capture.count("nested deeper"), 1) << start;
    }
}

TEST(XmlCodec, CountsOnlyElementsAsLevels) {
    EXPECT_TRUE(isUnderstood(repeated(1000, "<a></a>")));
    EXPECT_TRUE(isUnderstood(repeated(1000, "<a b='>'/>")));
    EXPECT_TRUE(
        isUnderstood("<a>" + repeated(1000, "<!--<b>--><![CDATA[<b>]]><?b <b>?><!b>") + "</a>"));
    EXPECT_TRUE(isUnderstood("<!DOCTYPE a [" + repeated(1000, "<!b []>") + "]><a/>"));
    EXPECT_TRUE(isUnderstood("<a b='" + repeated(1000, "<b>") + "'/>"));
}

}  // namespace
}  // namespace vyn
