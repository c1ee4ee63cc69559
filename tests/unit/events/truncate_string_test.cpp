#include <gtest/gtest.h>

#include <string>

#include "agent/events.h"

namespace {

using EventAdapter::TruncateString;

TEST(TruncateString, CutsAnywhereIfCharactersNeedNotStayWhole) {
    EXPECT_EQ(TruncateString("abcdef", 3, false), "abc");
    EXPECT_EQ(TruncateString("a\xc3\xa4", 2, false), "a\xc3");
    EXPECT_EQ(TruncateString("abc", 3, false), "abc");
    EXPECT_EQ(TruncateString("abc", 4294967295U, false), "abc");
    EXPECT_EQ(TruncateString("abc", 0, false), "");
    EXPECT_EQ(TruncateString("", 0, false), "");
}

TEST(TruncateString, KeepsCharactersWhole) {
    const std::string text = "a\xc3\xa4\xe2\x82\xac\xf0\x9f\x98\x80z";
    const unsigned int whole[] = {0, 1, 1, 3, 3, 3, 6, 6, 6, 6, 10, 11, 11};
    for (unsigned int limit = 0; limit < std::size(whole); ++limit) {
        EXPECT_EQ(TruncateString(text, limit, true), text.substr(0, whole[limit])) << limit;
    }
}

TEST(TruncateString, CutsInvalidBytesAtTheLimit) {
    const std::string texts[] = {
        "abc\x80\x80\x80\x80\x80\x80\x80",          // continuation bytes without a lead byte
        "ab\xe2z\x82zzzzz",                         // a lead byte without continuation
        "\xff\xff\xff\xff\xff\xff\xff\xff",         // bytes that never occur in UTF-8
        "\xf8\x88\x80\x80\x80\xf8\x88\x80\x80\x80"  // the obsolete five-byte form
    };
    for (const std::string& text : texts) {
        for (unsigned int limit = 0; limit <= text.size(); ++limit) {
            EXPECT_EQ(TruncateString(text, limit, true).size(), limit) << text;
        }
    }
    EXPECT_EQ(TruncateString("abc\xe2\x82", 4, true), "abc\xe2");
}

TEST(TruncateString, KeepsZeroBytes) {
    const std::string text("a\0b\0c", 5);
    EXPECT_EQ(TruncateString(text, 4, true), std::string("a\0b\0", 4));
}

}  // namespace
