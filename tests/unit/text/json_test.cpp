#include "agent/json.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <climits>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

namespace {

using namespace TavUtils::JsonAdaptor;

std::string TextOf(const JsonValue& value) {
    std::string text;
    EXPECT_TRUE(JsonStreamWriter(false).Write(value, text));
    return text;
}

JsonValue Parsed(const std::string& text) {
    JsonValue value(JSON_OBJECT);
    EXPECT_TRUE(JsonCharReader().Parse(text, value)) << text.substr(0, 200);
    return value;
}

TEST(JsonValue, StartsAsAnEmptyObject) {
    const JsonValue value(JSON_OBJECT);
    EXPECT_EQ(TextOf(value), "{}");
    EXPECT_FALSE(value.IsArray());
    EXPECT_FALSE(value.IsInt());
    EXPECT_FALSE(value.IsMember("a"));
}

TEST(JsonValue, MembersKeepTheOrderOfTheirFirstWriting) {
    JsonValue value(JSON_OBJECT);
    value["zebra"] = 1;
    value["apple"] = "first";
    value["middle"] = std::string("text");
    value["apple"] = "second";
    EXPECT_EQ(TextOf(value), R"({"zebra":1,"apple":"second","middle":"text"})");
    EXPECT_EQ(TextOf(Parsed(R"({"b":1,"a":{"y":1,"x":2},"B":3})")), R"({"b":1,"a":{"y":1,"x":2},"B":3})");
}

TEST(JsonWriter, EscapesTerminalControls) {
    JsonValue value(JSON_OBJECT);
    value["a"] =
        "\x1b[31m\x7f\xc2\x9b"
        "31m\xc2\x80\xc2\x9f\xc2\xa0\xc3\x9f";
    EXPECT_EQ(TextOf(value), "{\"a\":\"\\u001b[31m\\u007f\\u009b31m\\u0080\\u009f\xc2\xa0\xc3\x9f\"}");
    EXPECT_EQ(Parsed(TextOf(value)).AsString("a"), value.AsString("a"));
}

TEST(JsonValue, HandlesShareOneValue) {
    JsonValue value(JSON_OBJECT);
    JsonValue inner = value["outer"]["inner"];
    EXPECT_EQ(TextOf(value), "{}");
    const JsonValue copy = inner;
    inner = 5;
    EXPECT_EQ(TextOf(value), R"({"outer":{"inner":5}})");
    EXPECT_TRUE(copy.IsInt());
    value["outer"] = "gone";
    EXPECT_FALSE(copy.IsInt());
    inner["deep"] = 1;
    EXPECT_EQ(TextOf(value), R"({"outer":{"inner":{"deep":1}}})");
}

TEST(JsonValue, HandlesStayValidWhileTheDocumentGrows) {
    JsonValue value(JSON_OBJECT);
    JsonValue first = value["first"];
    first["a"] = 1;
    for (int i = 0; i < 1000; ++i) {
        value[("key" + std::to_string(i)).c_str()] = i;
    }
    first["b"] = 2;
    EXPECT_EQ(TextOf(first), R"({"a":1,"b":2})");
    EXPECT_EQ(value.AsInt("key999"), 999);
}

TEST(JsonValue, AHandleKeepsTheDocumentAlive) {
    auto root = std::make_unique<JsonValue>(JSON_OBJECT);
    (*root)["a"]["b"] = "text";
    JsonValue inner = (*root)["a"];
    root.reset();
    EXPECT_EQ(inner.AsString("b"), "text");
    inner["c"] = 1;
    EXPECT_EQ(TextOf(inner), R"({"b":"text","c":1})");
}

TEST(JsonValue, WritingAMemberReplacesAnythingButAnObject) {
    for (const char* before : {"5", "\"text\"", "[1,2]", "null", "true", "1.5"}) {
        JsonValue value = Parsed(std::string(R"({"a":)") + before + R"(,"z":1})");
        value["a"]["b"]["c"] = 1;
        EXPECT_EQ(TextOf(value), R"({"a":{"b":{"c":1}},"z":1})") << before;
    }
    JsonValue root = Parsed("[1]");
    root["a"] = 1;
    EXPECT_EQ(TextOf(root), R"({"a":1})");
}

TEST(JsonValue, ReadingAMissingMemberCreatesNothing) {
    JsonValue value = Parsed(R"({"text":"t","array":[1]})");
    const std::string before = TextOf(value);
    JsonValue missing = value["missing"]["below"];
    EXPECT_FALSE(missing.IsMember("a"));
    EXPECT_FALSE(missing.IsInt());
    EXPECT_FALSE(missing.IsArray());
    EXPECT_EQ(missing.AsInt("a"), 0);
    EXPECT_EQ(missing.AsString("a"), "");
    EXPECT_TRUE(missing.GetJsonStringArray("a").empty());
    EXPECT_FALSE(value["text"].IsMember("a"));
    EXPECT_FALSE(value["array"].IsMember("0"));
    EXPECT_EQ(value.AsInt("text"), 0);
    EXPECT_EQ(value.AsString("array"), "");
    EXPECT_TRUE(value.GetJsonStringArray("text").empty());
    EXPECT_EQ(TextOf(missing), "null");
    EXPECT_EQ(TextOf(value), before);
}

TEST(JsonValue, AcceptsNullPointers) {
    JsonValue value(JSON_OBJECT);
    const char* none = nullptr;
    value["text"] = none;
    EXPECT_EQ(TextOf(value), R"({"text":""})");
    EXPECT_FALSE(value.IsMember(none));
    EXPECT_EQ(value.AsInt(none), 0);
    EXPECT_EQ(value.AsString(none), "");
    EXPECT_TRUE(value.GetJsonStringArray(none).empty());
}

TEST(JsonValue, CountsANullMemberAsAMember) {
    const JsonValue value = Parsed(R"({"a":null})");
    EXPECT_TRUE(value.IsMember("a"));
    EXPECT_FALSE(value.IsMember("b"));
    EXPECT_FALSE(value.IsMember("A"));
}

TEST(JsonValue, AcceptsOnlyWholeNumbersInRangeAsInt) {
    struct Case {
        const char* text;
        bool isInt;
        int number;
    };
    const Case cases[] = {
        {"90", true, 90},
        {"0", true, 0},
        {"-0", true, 0},
        {"-90", true, -90},
        {"2147483647", true, INT_MAX},
        {"-2147483648", true, INT_MIN},
        {"2147483648", false, 0},
        {"-2147483649", false, 0},
        {"4294967386", false, 0},
        {"18446744073709551615", false, 0},
        {"99999999999999999999999999", false, 0},
        {"90.5", false, 0},
        {"90.0", false, 0},
        {"9e1", false, 0},
        {"\"90\"", false, 0},
        {"true", false, 0},
        {"null", false, 0},
        {"[90]", false, 0},
        {"{}", false, 0},
    };
    for (const Case& c : cases) {
        JsonValue value = Parsed(std::string(R"({"a":)") + c.text + "}");
        EXPECT_EQ(value["a"].IsInt(), c.isInt) << c.text;
        EXPECT_EQ(value.AsInt("a"), c.number) << c.text;
    }
    JsonValue value(JSON_OBJECT);
    value["a"] = -5;
    EXPECT_TRUE(value["a"].IsInt());
    EXPECT_EQ(value.AsInt("a"), -5);
}

TEST(JsonValue, AsStringReadsOnlyStrings) {
    const JsonValue value = Parsed(R"({"a":"text","b":5,"c":["x"],"d":"","e":"\u00e4\u0000z"})");
    EXPECT_EQ(value.AsString("a"), "text");
    EXPECT_EQ(value.AsString("b"), "");
    EXPECT_EQ(value.AsString("c"), "");
    EXPECT_EQ(value.AsString("d"), "");
    EXPECT_EQ(value.AsString("e"), std::string("\xc3\xa4\0z", 4));
}

TEST(JsonValue, StringArraysSkipOtherTypes) {
    const JsonValue value = Parsed(R"({"a":["x",1,null,"",["nested"],{"k":"v"},true,"y"],"b":[],"c":{"0":"x"}})");
    EXPECT_EQ(value.GetJsonStringArray("a"), (std::vector<std::string>{"x", "", "y"}));
    EXPECT_TRUE(value.GetJsonStringArray("b").empty());
    EXPECT_TRUE(value.GetJsonStringArray("c").empty());
}

TEST(JsonValue, BuildsArraysOfObjects) {
    JsonValue value(JSON_OBJECT);
    JsonValue list = value["list"];
    list.TypeChangeToArray();
    EXPECT_EQ(TextOf(value), R"({"list":[]})");
    JsonValue item(JSON_OBJECT);
    item["n"] = 1;
    list.JsonItemAddToArray(item);
    item["n"] = 2;
    list.JsonItemAddToArray(item);
    EXPECT_EQ(TextOf(value), R"({"list":[{"n":1},{"n":2}]})");
    list.TypeChangeToArray();
    EXPECT_TRUE(list.IsArray());
    EXPECT_EQ(TextOf(value), R"({"list":[{"n":1},{"n":2}]})");
}

TEST(JsonValue, AddingAnItemTurnsTheValueIntoAnArray) {
    JsonValue value = Parsed(R"({"a":{"x":1},"b":5})");
    JsonValue item(JSON_OBJECT);
    value["a"].JsonItemAddToArray(item);
    value["b"].JsonItemAddToArray(item);
    value["c"]["d"].JsonItemAddToArray(item["missing"]);
    EXPECT_EQ(TextOf(value), R"({"a":[{}],"b":[{}],"c":{"d":[null]}})");
}

TEST(JsonValue, AddingToAnObjectCopies) {
    JsonValue value = Parsed(R"({"a":1,"b":2})");
    JsonValue item(JSON_OBJECT);
    item["x"] = 1;
    value.JsonItemAddToObject("a", item);
    value.JsonItemAddToObject("c", item["x"]);
    value["b"].JsonItemAddToObject("d", item);
    item["x"] = 9;
    EXPECT_EQ(TextOf(value), R"({"a":{"x":1},"b":{"d":{"x":1}},"c":1})");
}

TEST(JsonValue, AValueCanBeAddedToItself) {
    JsonValue value(JSON_OBJECT);
    value["a"] = 1;
    value.JsonItemAddToObject("self", value);
    EXPECT_EQ(TextOf(value), R"({"a":1,"self":{"a":1}})");
    value.JsonItemAddToArray(value["a"]);
    EXPECT_EQ(TextOf(value), "[1]");
    value.JsonItemAddToArray(value);
    EXPECT_EQ(TextOf(value), "[1,[1]]");
}

TEST(JsonWriter, WritesValidUtf8OnOneLine) {
    JsonValue value(JSON_OBJECT);
    value["bad"] = "a\xff\xc3(\xe2\x82";
    value["key\xfe"] = "\xc3\xa4\xf0\x9f\x98\x80";
    value["zero"] = std::string("a\0b", 3);
    value["control"] = "\n\r\t\x01\x1f\x7f\"\\/";
    EXPECT_EQ(TextOf(value),
              "{\"bad\":\"a\xef\xbf\xbd\xef\xbf\xbd(\xef\xbf\xbd\","
              "\"key\xef\xbf\xbd\":\"\xc3\xa4\xf0\x9f\x98\x80\","
              "\"zero\":\"a\\u0000b\","
              "\"control\":\"\\n\\r\\t\\u0001\\u001f\\u007f\\\"\\\\/\"}");
    EXPECT_EQ(value.AsString("bad"), "a\xff\xc3(\xe2\x82");
    EXPECT_TRUE(value.IsMember("key\xfe"));
}

TEST(JsonWriter, WritesOnlyTextThatTheReaderAccepts) {
    for (int first = 0; first < 256; ++first) {
        for (int second = 0; second < 256; ++second) {
            JsonValue value(JSON_OBJECT);
            value["k"] = std::string{static_cast<char>(first), static_cast<char>(second)};
            JsonValue read(JSON_OBJECT);
            const std::string text = TextOf(value);
            ASSERT_EQ(text.find('\n'), std::string::npos);
            ASSERT_TRUE(JsonCharReader().Parse(text, read)) << first << " " << second;
        }
    }
}

TEST(JsonWriter, IndentsOnRequest) {
    const JsonValue value = Parsed(R"({"a":{"b":[1]}})");
    std::string text = "before";
    EXPECT_TRUE(JsonStreamWriter(true).Write(value, text));
    EXPECT_GT(std::count(text.begin(), text.end(), '\n'), 3);
    EXPECT_EQ(TextOf(Parsed(text)), R"({"a":{"b":[1]}})");
}

TEST(JsonReader, ReplacesOnlyTheHandlesValue) {
    JsonValue value = Parsed(R"({"a":1,"b":2})");
    JsonValue member = value["a"];
    EXPECT_TRUE(JsonCharReader().Parse(" [\"x\", 1.5, -3, false] ", member));
    EXPECT_EQ(TextOf(value), R"({"a":["x",1.5,-3,false],"b":2})");
}

TEST(JsonReader, KeepsTheLastValueOfARepeatedKeyInTheFirstPosition) {
    EXPECT_EQ(TextOf(Parsed(R"({"a":1,"b":{"a":0},"a":{"x":[1]},"a":[2]})")), R"({"a":[2],"b":{"a":0}})");
}

TEST(JsonReader, RejectsInvalidJsonAndKeepsTheValue) {
    const std::string texts[] = {"",
                                 " ",
                                 "{",
                                 "}",
                                 "{]",
                                 "[1,]",
                                 R"({"a":1,})",
                                 R"({"a" 1})",
                                 R"({a:1})",
                                 R"({'a':1})",
                                 "{} {}",
                                 "{}x",
                                 "01",
                                 "+1",
                                 "1.",
                                 "1e999",
                                 "nul",
                                 "NaN",
                                 "\"a",
                                 "\"\n\"",
                                 "\"\\x\"",
                                 "\"\\ud800\"",
                                 "\"\xff\"",
                                 "\"\xc0\x80\"",
                                 "\xff",
                                 "/* comment */ {}",
                                 "{} // comment",
                                 std::string("{}\0", 3),
                                 std::string("{}\0garbage", 10),
                                 std::string("{\"a\":\"x\0y\"}", 11),
                                 std::string("\0", 1)};
    for (const std::string& text : texts) {
        JsonValue value(JSON_OBJECT);
        value["a"] = 5;
        EXPECT_FALSE(JsonCharReader().Parse(text, value)) << text;
        EXPECT_EQ(TextOf(value), R"({"a":5})") << text;
    }
}

std::string Nested(size_t depth, const std::string& open, const std::string& inner, const std::string& close) {
    std::string text;
    for (size_t i = 0; i < depth; ++i) {
        text += open;
    }
    text += inner;
    for (size_t i = 0; i < depth; ++i) {
        text += close;
    }
    return text;
}

TEST(JsonReader, AcceptsAtMostSixtyFourLevels) {
    for (const size_t depth : {size_t{63}, size_t{64}, size_t{65}, size_t{66}}) {
        JsonValue value(JSON_OBJECT);
        EXPECT_EQ(JsonCharReader().Parse(Nested(depth, "[", "", "]"), value), depth <= 64) << depth;
        EXPECT_EQ(JsonCharReader().Parse(Nested(depth, "{\"a\":", "1", "}"), value), depth <= 64) << depth;
        EXPECT_EQ(JsonCharReader().Parse(Nested(depth / 2, "[{\"a\":", depth % 2 == 0 ? "1" : "[]", "}]"), value),
                  depth <= 64)
            << depth;
    }
    // Containers side by side add no depth.
    std::string wide = "[";
    for (int i = 0; i < 1000; ++i) {
        wide += "[{}],";
    }
    EXPECT_EQ(TextOf(Parsed(wide + "0]")), wide + "0]");
}

TEST(JsonReader, DeepTextDoesNotOverflowTheStack) {
    JsonValue value(JSON_OBJECT);
    EXPECT_FALSE(JsonCharReader().Parse(std::string(1024 * 1024, '['), value));
    EXPECT_FALSE(JsonCharReader().Parse(Nested(100000, "{\"a\":", "1", "}"), value));
    EXPECT_EQ(TextOf(value), "{}");
}

TEST(JsonReader, AcceptsAtMostOneMebibyte) {
    constexpr size_t limit = 1024 * 1024;
    JsonValue value(JSON_OBJECT);
    const std::string text = "\"" + std::string(limit - 2, 'x') + "\"";
    EXPECT_TRUE(JsonCharReader().Parse(text, value));
    EXPECT_EQ(TextOf(value).size(), limit);
    EXPECT_FALSE(JsonCharReader().Parse(text + " ", value));
    EXPECT_EQ(TextOf(value).size(), limit);
}

TEST(JsonReader, ReadsManyMembersQuickly) {
    std::string text = "{";
    int count = 0;
    for (; text.size() < 1000000; ++count) {
        text += "\"" + std::to_string(count) + "\":0,";
    }
    text += "\"last\":7}";
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(Parsed(text).AsInt("last"), 7);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(20));
    EXPECT_GT(count, 90000);
}

void ExpectLogged(const std::string& text, const std::string& reason) {
    EXPECT_EXIT(
        {
            JsonValue value(JSON_OBJECT);
            JsonCharReader().Parse(text, value);
            std::exit(0);
        },
        testing::ExitedWithCode(0), reason);
}

TEST(JsonReaderDeathTest, LogsWhyATextIsRejected) {
    ExpectLogged("{\n  \"a\": }", "line 2, column 8");
    ExpectLogged("{]", "line 1, column 2");
    ExpectLogged("[1e999]", "line 1, column [67].*number overflow");
    ExpectLogged(std::string("{}\n\0", 4), "line 2, column 1: zero byte");
    ExpectLogged(Nested(65, "[", "", "]"), "64 levels");
    ExpectLogged(std::string(1024 * 1024 + 1, ' '), "1048577 bytes");
}

}  // namespace
