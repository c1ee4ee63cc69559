#include "agent/convert.h"

#include <gtest/gtest.h>

#include <climits>
#include <string>

namespace {

using TavUtils::Convert::JsonToString;
using TavUtils::Convert::StringToInt;

TEST(StringToInt, AcceptsDecimalNumbersWithinTheRangeOfInt) {
    struct Case {
        const char* text;
        int number;
    };
    const Case cases[] = {
        {"0", 0}, {"-0", 0}, {"007", 7}, {"90", 90}, {"-1", -1}, {"2147483647", INT_MAX}, {"-2147483648", INT_MIN},
    };
    for (const Case& c : cases) {
        int number = 77;
        EXPECT_TRUE(StringToInt(c.text, number)) << c.text;
        EXPECT_EQ(number, c.number) << c.text;
    }
}

TEST(StringToInt, LeavesTheNumberUnchangedForOtherText) {
    const std::string texts[] = {"",
                                 " ",
                                 "1 ",
                                 " 1",
                                 "\t1",
                                 "1\n",
                                 "+1",
                                 "-",
                                 "--1",
                                 "1-",
                                 "2147483648",
                                 "-2147483649",
                                 "1.0",
                                 "1e2",
                                 "0x1",
                                 "abc",
                                 "1a",
                                 "\xff",
                                 std::string("1\0", 2),
                                 std::string(100, '9')};
    for (const std::string& text : texts) {
        int number = 77;
        EXPECT_FALSE(StringToInt(text, number)) << text;
        EXPECT_EQ(number, 77) << text;
    }
}

TEST(JsonToString, WritesOneLine) {
    TavUtils::JsonAdaptor::JsonValue value(TavUtils::JsonAdaptor::JSON_OBJECT);
    value["text"] = "a\nb";
    value["nested"]["number"] = 5;
    EXPECT_EQ(JsonToString(value), R"({"text":"a\nb","nested":{"number":5}})");
    EXPECT_EQ(JsonToString(value["nested"]), R"({"number":5})");
    EXPECT_EQ(JsonToString(value["missing"]), "null");
}

}  // namespace
