#include <gtest/gtest.h>
#include <vyn/helper.h>

namespace vyn::helper {
namespace {

using Pieces = std::vector<std::string>;

TEST(Trim, RemovesTheSetAtBothEndsOnly) {
    EXPECT_EQ(trim("  a b \r\n", " \r\n"), "a b");
    EXPECT_EQ(trim("\t a b\r\n"), "a b");
    EXPECT_EQ(trim("xxaxx", "x"), "a");
    EXPECT_EQ(trim(" \n ", " \n"), "");
    EXPECT_EQ(trim(""), "");
    EXPECT_EQ(trim(" a ", ""), " a ");
}

Pieces lines(const std::string& text) {
    std::list<std::string> list{"old"};
    Pieces vector{"old"};
    const int count = split(text, list, ',');
    EXPECT_EQ(split(text, vector, ','), count);
    EXPECT_EQ(vector.size(), static_cast<size_t>(count));
    EXPECT_EQ(l2v(list), vector);
    EXPECT_EQ(v2l(vector), list);
    return vector;
}

TEST(Split, IntoAContainerEndsAPieceAtEachDelimiter) {
    EXPECT_EQ(lines("a,,b"), (Pieces{"a", "", "b"}));
    EXPECT_EQ(lines("a,"), Pieces{"a"});
    EXPECT_EQ(lines(",a"), (Pieces{"", "a"}));
    EXPECT_EQ(lines(","), Pieces{""});
    EXPECT_EQ(lines(""), Pieces{});
}

TEST(Split, ByItselfSeparatesPiecesByEachDelimiter) {
    EXPECT_EQ(split("a,,b", ','), (Pieces{"a", "", "b"}));
    EXPECT_EQ(split("a,", ','), (Pieces{"a", ""}));
    EXPECT_EQ(split("", ','), Pieces{""});
}

TEST(Join, PutsSeparatorsBetweenOrAround) {
    EXPECT_EQ(implode({"a", "", "b"}, ", "), "a, , b");
    EXPECT_EQ(implode({"a"}, ", "), "a");
    EXPECT_EQ(implode({}, ", "), "");
    EXPECT_EQ(dumplist({"a", "b"}, '|'), "|a|b|");
    EXPECT_EQ(dumplist({}, '|'), "|");
}

TEST(StartsWith, IsFalseForAnEmptyOrLongerPrefix) {
    EXPECT_TRUE(startsWith("abc", "ab"));
    EXPECT_TRUE(startsWith("abc", "abc"));
    EXPECT_FALSE(startsWith("ab", "abc"));
    EXPECT_FALSE(startsWith("abc", "b"));
    EXPECT_FALSE(startsWith("abc", ""));
}

}  // namespace
}  // namespace vyn::helper
