#include "demo/options.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <initializer_list>
#include <vector>

namespace Host {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

ParsedDemoOptions Parse(std::initializer_list<const char*> arguments) {
    std::vector<const char*> words{"orlim-demo"};
    words.insert(words.end(), arguments);
    return ParseDemoOptions(static_cast<int>(words.size()), words.data());
}

TEST(DemoOptions, StagesAllScenariosByDefault) {
    const ParsedDemoOptions plain = Parse({});
    ASSERT_TRUE(plain.options) << plain.error;
    EXPECT_TRUE(plain.options->only.empty());
    EXPECT_FALSE(plain.options->list);
    EXPECT_FALSE(plain.options->json);
    EXPECT_FALSE(plain.options->moduleFile);
}

TEST(DemoOptions, ReadsScenariosAndModule) {
    const ParsedDemoOptions full = Parse({"--only", "a", "--json", "--only=b", "--list", "--module", "m"});
    ASSERT_TRUE(full.options) << full.error;
    EXPECT_EQ(full.options->only, (std::vector<std::string>{"a", "b"}));
    EXPECT_TRUE(full.options->list);
    EXPECT_TRUE(full.options->json);
    EXPECT_EQ(full.options->moduleFile, "m");
}

TEST(DemoOptions, WrongUseExitsWithTwoAndAHint) {
    const struct {
        std::initializer_list<const char*> arguments;
        const char* error;
    } rows[] = {{{"--only"}, "--only"}, {{"--only", "a", "b"}, "b"}, {{"--fast"}, "--fast"}, {{"a"}, "a"}};
    for (const auto& row : rows) {
        const ParsedDemoOptions parsed = Parse(row.arguments);
        EXPECT_FALSE(parsed.options) << row.error;
        EXPECT_EQ(parsed.exitStatus, 2) << row.error;
        EXPECT_EQ(parsed.output, "");
        EXPECT_THAT(parsed.error, StartsWith("orlim-agent: "));
        EXPECT_THAT(parsed.error, HasSubstr(row.error));
        EXPECT_THAT(parsed.error, HasSubstr("\nTry: orlim-agent demo --help"));
    }
}

TEST(DemoOptions, HelpListsTheOptions) {
    const ParsedDemoOptions parsed = Parse({"--help"});
    EXPECT_FALSE(parsed.options);
    EXPECT_EQ(parsed.exitStatus, 0);
    for (const char* part : {"orlim-agent demo", "--only", "--list", "--json", "--module"}) {
        EXPECT_THAT(parsed.output, HasSubstr(part));
    }
}

}  // namespace
}  // namespace Host
