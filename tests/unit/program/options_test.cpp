#include "host/program/options.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <initializer_list>
#include <vector>

namespace Host {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

ParsedOptions Parse(std::initializer_list<const char*> arguments) {
    std::vector<const char*> argv{"orlim-agent"};
    argv.insert(argv.end(), arguments);
    return ParseOptions(static_cast<int>(argv.size()), argv.data());
}

TEST(Options, ReadsCommandsAndFiles) {
    const struct {
        std::initializer_list<const char*> arguments;
        Command command;
        std::optional<std::string> config;
        std::optional<std::string> module;
    } rows[] = {
        {{"run"}, Command::run, std::nullopt, std::nullopt},
        {{"scan", "--config", "a"}, Command::scan, "a", std::nullopt},
        {{"check", "--module=b", "--config=c"}, Command::check, "c", "b"},
    };
    for (const auto& row : rows) {
        const ParsedOptions parsed = Parse(row.arguments);
        ASSERT_TRUE(parsed.options) << parsed.error;
        EXPECT_EQ(parsed.options->command, row.command);
        EXPECT_EQ(parsed.options->configFile, row.config);
        EXPECT_EQ(parsed.options->moduleFile, row.module);
    }
}

TEST(Options, ExplainRequiresAProcess) {
    const ParsedOptions plain = Parse({"explain", "4711"});
    ASSERT_TRUE(plain.options) << plain.error;
    EXPECT_EQ(plain.options->command, Command::explain);
    EXPECT_EQ(plain.options->pid, 4711);
    EXPECT_FALSE(plain.options->dot);
    const ParsedOptions full = Parse({"explain", "--dot", "--config", "a", "1"});
    ASSERT_TRUE(full.options) << full.error;
    EXPECT_EQ(full.options->pid, 1);
    EXPECT_EQ(full.options->configFile, "a");
    EXPECT_TRUE(full.options->dot);
}

TEST(Options, DemoPassesItsArgumentsOnUnchanged) {
    const ParsedOptions plain = Parse({"demo"});
    ASSERT_TRUE(plain.options) << plain.error;
    EXPECT_EQ(plain.options->command, Command::demo);
    EXPECT_TRUE(plain.options->demoArguments.empty());
    const ParsedOptions full = Parse({"demo", "--only", "a", "--json", "--only=b", "--help", "walk"});
    ASSERT_TRUE(full.options) << full.error;
    EXPECT_EQ(full.options->demoArguments,
              (std::vector<std::string>{"--only", "a", "--json", "--only=b", "--help", "walk"}));
}

TEST(Options, WrongUseExitsWithTwoAndAHint) {
    const struct {
        std::initializer_list<const char*> arguments;
        const char* error;
    } rows[] = {
        {{}, "a command is missing"},      {{"walk"}, "walk is not a command"},
        {{"run", "--fast"}, "--fast"},     {{"run", "extra"}, "extra"},
        {{"run", "--config"}, "--config"}, {{"run", "--config", "a", "--config", "b"}, "--config"},
        {{"run", "scan"}, "scan"},         {{"explain"}, "PID"},
        {{"explain", "bash"}, "PID"},      {{"explain", "0"}, "PID"},
        {{"explain", "-1"}, "-1"},         {{"explain", "99999999999"}, "PID"},
        {{"explain", "1", "2"}, "2"},      {{"explain", "1", "--module", "m"}, "--module"},
        {{"explain", "1x"}, "PID"},        {{"run", "--dot"}, "--dot"},
    };
    for (const auto& row : rows) {
        const ParsedOptions parsed = Parse(row.arguments);
        EXPECT_FALSE(parsed.options) << row.error;
        EXPECT_EQ(parsed.exitStatus, 2) << row.error;
        EXPECT_EQ(parsed.output, "");
        EXPECT_THAT(parsed.error, StartsWith("orlim-agent: "));
        EXPECT_THAT(parsed.error, HasSubstr(row.error));
        EXPECT_THAT(parsed.error, HasSubstr("\nTry: orlim-agent --help"));
    }
}

TEST(Options, HelpListsExamplesSignalsAndExitStatus) {
    const ParsedOptions parsed = Parse({"--help"});
    EXPECT_FALSE(parsed.options);
    EXPECT_EQ(parsed.exitStatus, 0);
    EXPECT_EQ(parsed.error, "");
    for (const char* part : {"run", "scan", "check", "explain", "demo", "Examples:", "SIGHUP", "Exit status:"}) {
        EXPECT_THAT(parsed.output, HasSubstr(part));
    }
}

TEST(Options, EachCommandHasItsOwnHelp) {
    const ParsedOptions parsed = Parse({"scan", "--help"});
    EXPECT_EQ(parsed.exitStatus, 0);
    EXPECT_THAT(parsed.output, HasSubstr("--config FILE"));
    EXPECT_THAT(parsed.output, HasSubstr("--module FILE"));
}

TEST(Options, PrintsTheVersion) {
    const ParsedOptions parsed = Parse({"--version"});
    EXPECT_FALSE(parsed.options);
    EXPECT_EQ(parsed.exitStatus, 0);
    EXPECT_THAT(parsed.output, testing::MatchesRegex("orlim-agent [0-9]+\\.[0-9]+\\.[0-9]+\n"));
}

}  // namespace
}  // namespace Host
