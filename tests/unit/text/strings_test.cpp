#include "agent/strings.h"

#include <gtest/gtest.h>

#include <chrono>
#include <set>
#include <string>
#include <vector>

namespace {

using TavUtils::StringProcess::IsMatchingShellWildcardList;
using TavUtils::StringProcess::StrSplit;
using TavUtils::StringProcess::StrTrim;

TEST(StrSplit, ReturnsThePiecesBetweenSeparators) {
    struct Case {
        std::string text;
        std::string separator;
        bool keepEmpty;
        std::vector<std::string> pieces;
    };
    const Case cases[] = {
        {"a,b,c", ",", false, {"a", "b", "c"}},
        {",a,,b,", ",", false, {"a", "b"}},
        {",a,,b,", ",", true, {"", "a", "", "b", ""}},
        {"a::b:c", "::", true, {"a", "b:c"}},
        {"a:::b", "::", true, {"a", ":b"}},
        {"abc", "", false, {"abc"}},
        {"", "", false, {}},
        {"", "", true, {""}},
        {"", ",", false, {}},
        {"", ",", true, {""}},
        {",", ",", true, {"", ""}},
        {"a", "longer than the text", false, {"a"}},
        {std::string("a\0b", 3), std::string("\0", 1), false, {"a", "b"}},
        {"a\xff"
         "b",
         "\xff",
         false,
         {"a", "b"}},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(StrSplit(c.text, c.separator, c.keepEmpty), c.pieces) << c.text << " by " << c.separator;
    }
}

TEST(StrTrim, TrimsACopyAtBothEnds) {
    struct Case {
        std::string text;
        std::string trimmed;
    };
    const Case cases[] = {
        {"", ""},
        {" ", ""},
        {" \t\n\v\f\r", ""},
        {"a", "a"},
        {" \t\n\v\f\ra b\r\f\v\n\t ", "a b"},
        {"\xa0"
         "a\xa0",
         "\xa0"
         "a\xa0"},
        {std::string(" \0 ", 3), std::string("\0", 1)},
    };
    for (const Case& c : cases) {
        std::string text = c.text;
        EXPECT_EQ(StrTrim(text), c.trimmed) << c.text;
        EXPECT_EQ(text, c.text);
    }
}

TEST(IsMatchingShellWildcardList, MatchesTheWholeText) {
    struct Case {
        std::string text;
        std::set<std::string> patterns;
        bool matches;
    };
    const Case cases[] = {
        {"/usr/bin/bash", {"/usr/*"}, true},
        {"/usr/bin/bash", {"/opt/*", "*bash"}, true},
        {"/usr/bin/bash", {"/usr?bin?bash"}, true},
        {"/usr/bin/bash", {"/usr"}, false},
        {"/usr/bin/bash", {"usr/bin/bash"}, false},
        {"/usr/bin/bash", {}, false},
        {"", {""}, true},
        {"", {"*"}, true},
        {"", {"?"}, false},
        {".hidden", {"*"}, true},
        {"a", {"[a-c]"}, true},
        {"d", {"[!a-c]"}, true},
        {"a", {"[a"}, false},
        {"*", {"\\*"}, true},
        {"a", {"\\*"}, false},
        {"\xff\xfe", {"??"}, true},
        {"line\nbreak", {"line*break"}, true},
        {std::string("ab\0c", 4), {"ab"}, true},
        {"ab", {std::string("ab\0c", 4)}, true},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(IsMatchingShellWildcardList(c.text, c.patterns), c.matches) << c.text;
    }
}

TEST(IsMatchingShellWildcardList, MatchesManyWildcardsOnALongTextQuickly) {
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_FALSE(IsMatchingShellWildcardList(std::string(4096, 'a'), {"*a*a*a*a*a*a*a*a*a*a*a*a*b"}));
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(10));
}

}  // namespace
