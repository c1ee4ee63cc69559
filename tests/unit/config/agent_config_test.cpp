#include "host/config/agent_config.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <string>

#include "tests/support/temporary_directory.h"

namespace Host {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

const SinkSpec standardOutput{};

AgentConfig Parsed(const std::string& text) {
    std::string error;
    const std::optional<AgentConfig> config = ParseAgentConfig(text, "f", error);
    EXPECT_TRUE(config.has_value()) << error;
    return config.value_or(AgentConfig());
}

std::string ErrorOf(const std::string& text) {
    std::string error;
    EXPECT_FALSE(ParseAgentConfig(text, "f", error).has_value()) << text;
    return error;
}

TEST(AgentConfig, EmptyObjectGivesTheDefaults) {
    const AgentConfig config = Parsed("{}");
    EXPECT_EQ(config.moduleText, R"({"abnormalShell":{},"reverseShell":{}})");
    EXPECT_EQ(config.reverseShellText, R"({"reverseShell":{}})");
    EXPECT_TRUE(config.abnormalShell);
    EXPECT_EQ(config.settings, (std::map<std::string, std::string>{{"TAVORIN_ETC", "/etc/orlim"}}));
    EXPECT_EQ(config.perMinuteLimit, 60U);
    EXPECT_THAT(config.sinks, ElementsAre(standardOutput));
    EXPECT_EQ(config.logLevel, std::nullopt);
    EXPECT_THAT(config.warnings, IsEmpty());
}

TEST(AgentConfig, AllValuesAreTaken) {
    const AgentConfig config = Parsed(R"(/* head */ {
        "module": {"reverseShell": {"detectInterval": 30, "whitelist": ["a"]}}, // tail
        "settings": {"TAVORIN_ETC": "/opt/etc", "OTHER": ""},
        "events": {"perMinuteLimit": 0, "sinks": [{"type": "file", "path": "/var/log/e"}, {"type": "stdout"}]},
        "log": {"level": 3, "target": "stderr"}
    })");
    EXPECT_EQ(config.moduleText, R"({"reverseShell":{"detectInterval":30,"whitelist":["a"]}})");
    EXPECT_FALSE(config.abnormalShell);
    EXPECT_EQ(config.reverseShellText, config.moduleText);
    EXPECT_EQ(config.settings, (std::map<std::string, std::string>{{"TAVORIN_ETC", "/opt/etc"}, {"OTHER", ""}}));
    EXPECT_EQ(config.perMinuteLimit, 0U);
    EXPECT_THAT(config.sinks, ElementsAre(SinkSpec{SinkType::file, "/var/log/e"}, standardOutput));
    EXPECT_EQ(config.logLevel, LOG_LEVEL_ERROR);
    EXPECT_THAT(config.warnings, IsEmpty());
}

TEST(AgentConfig, BoundsOfNumbersBelongToThem) {
    EXPECT_EQ(Parsed(R"({"events":{"perMinuteLimit":1000000}})").perMinuteLimit, 1000000U);
    EXPECT_EQ(Parsed(R"({"log":{"level":0}})").logLevel, LOG_LEVEL_DETAIL);
    EXPECT_THAT(Parsed(R"({"module":{"reverseShell":{"detectInterval":86400}}})").warnings, IsEmpty());
}

TEST(AgentConfig, SixteenSinksAreAllowed) {
    std::string sinks;
    for (int i = 0; i < 16; ++i) {
        sinks += std::string(i == 0 ? "" : ",") + R"({"type":"stdout"})";
    }
    EXPECT_EQ(Parsed(R"({"events":{"sinks":[)" + sinks + "]}}").sinks.size(), 16U);
    EXPECT_EQ(ErrorOf(R"({"events":{"sinks":[)" + sinks + R"(,{"type":"stdout"}]}})"),
              "f: events.sinks: found 17 sinks, expected an array of 1 to 16 sinks. Write for example "
              "[{\"type\":\"stdout\"}].");
}

TEST(AgentConfig, ModuleTextKeepsTheOrderOfItsKeys) {
    const AgentConfig config = Parsed(R"({"module":{"reverseShell":{},"abnormalShell":{}}})");
    EXPECT_EQ(config.moduleText, R"({"reverseShell":{},"abnormalShell":{}})");
}

TEST(AgentConfig, ModuleWithoutReverseShellHasNothingToScanFor) {
    const AgentConfig config = Parsed(R"({"module":{"abnormalShell":{}}})");
    EXPECT_EQ(config.moduleText, R"({"abnormalShell":{}})");
    EXPECT_EQ(config.reverseShellText, std::nullopt);
}

TEST(AgentConfig, WrongTextIsRefusedWithPlaceAndRemedy) {
    const std::string object = ", expected an object. Write {...}; leave it away for the default.";
    const std::string syntax = ". Correct the text there or shortly before; comments are written // or /* */.";
    const std::string unknown = "found an unknown key, expected ";
    const std::string correct = ". Correct the name or remove the key.";
    const std::string sinkRemedy = ". Write {\"type\":\"stdout\"} or {\"type\":\"file\",\"path\":\"/...\"}.";
    const std::string limit = ", expected a whole number from 0 to 1000000. Write 0 for no limit.";
    const std::string level =
        ", expected a whole number from 0 to 3. Write 0 for detail, 1 for info, 2 for warnings, 3 for errors.";
    const std::string path = ", expected the absolute path of a file. Write the whole path, beginning with \"/\".";
    const struct {
        std::string text;
        std::string error;
    } rows[] = {
        {"",
         "f:1:1: not valid JSON: syntax error while parsing value - unexpected end of input; expected '[', '{', or a "
         "literal" +
             syntax},
        {"{\n \"log\": }",
         "f:2:9: not valid JSON: syntax error while parsing value - unexpected '}'; expected '[', '{', or a literal" +
             syntax},
        {"{} x",
         "f:1:4: not valid JSON: syntax error while parsing value - invalid literal; last read: '{} x'; "
         "expected end of input" +
             syntax},
        {"[]", "f: found []" + object},
        {"7", "f: found 7" + object},
        {R"({"modul":{}})", "f: modul: " + unknown + "one of module, settings, events, log" + correct},
        {R"({"a b\n":1})", "f: [\"a b\\n\"]: " + unknown + "one of module, settings, events, log" + correct},
        {R"({"module":[]})", "f: module: found []" + object},
        {R"({"settings":"x"})", "f: settings: found \"x\"" + object},
        {R"({"settings":{"A":1}})", "f: settings.A: found 1, expected a string. Put the value in double quotes."},
        {R"({"events":null})", "f: events: found null" + object},
        {R"({"events":{"x":1}})", "f: events.x: " + unknown + "one of perMinuteLimit, sinks" + correct},
        {R"({"events":{"perMinuteLimit":-1}})", "f: events.perMinuteLimit: found -1" + limit},
        {R"({"events":{"perMinuteLimit":1000001}})", "f: events.perMinuteLimit: found 1000001" + limit},
        {R"({"events":{"perMinuteLimit":18446744073709551615}})",
         "f: events.perMinuteLimit: found 18446744073709551615" + limit},
        {R"({"events":{"perMinuteLimit":60.0}})", "f: events.perMinuteLimit: found 60.0" + limit},
        {R"({"events":{"perMinuteLimit":"60"}})", "f: events.perMinuteLimit: found \"60\"" + limit},
        {R"({"events":{"perMinuteLimit":true}})", "f: events.perMinuteLimit: found true" + limit},
        {R"({"events":{"sinks":[]}})",
         "f: events.sinks: found 0 sinks, expected an array of 1 to 16 sinks. Write for "
         "example [{\"type\":\"stdout\"}]."},
        {R"({"events":{"sinks":{}}})",
         "f: events.sinks: found {}, expected an array of 1 to 16 sinks. Write for "
         "example [{\"type\":\"stdout\"}]."},
        {R"({"events":{"sinks":[{"type":"stdout"},7]}})", "f: events.sinks[1]: found 7" + object},
        {R"({"events":{"sinks":[{}]}})",
         "f: events.sinks[0].type: found nothing, expected \"stdout\" or \"file\"" + sinkRemedy},
        {R"({"events":{"sinks":[{"type":"syslog"}]}})",
         "f: events.sinks[0].type: found \"syslog\", expected \"stdout\" or \"file\"" + sinkRemedy},
        {R"({"events":{"sinks":[{"type":"stdout","path":"/x"}]}})",
         "f: events.sinks[0].path: " + unknown + "only type" + correct},
        {R"({"events":{"sinks":[{"type":"file","path":"/x","mode":1}]}})",
         "f: events.sinks[0].mode: " + unknown + "one of type, path" + correct},
        {R"({"events":{"sinks":[{"type":"file"}]}})", "f: events.sinks[0].path: found nothing" + path},
        {R"({"events":{"sinks":[{"type":"stdout"},{"type":"file","path":"log/x"}]}})",
         "f: events.sinks[1].path: found \"log/x\"" + path},
        {R"({"events":{"sinks":[{"type":"file","path":"/var/log/"}]}})",
         "f: events.sinks[0].path: found \"/var/log/\"" + path},
        {R"({"events":{"sinks":[{"type":"file","path":"/x\u0000y"}]}})",
         "f: events.sinks[0].path: found \"/x\\u0000y\"" + path},
        {R"({"log":{"level":4}})", "f: log.level: found 4" + level},
        {R"({"log":{"level":"info"}})", "f: log.level: found \"info\"" + level},
        {R"({"log":{"target":"syslog"}})",
         "f: log.target: found \"syslog\", expected \"stderr\". Direct standard error "
         "to where the log is wanted."},
        {R"({"log":{"file":"x"}})", "f: log.file: " + unknown + "one of level, target" + correct},
        {R"({"log":{},"log":{}})", "f: log: found the key a second time, expected it once. Keep one of the two."},
        {R"({"events":{"sinks":[{"type":"stdout"},{"type":"stdout","type":"file"}]}})",
         "f: events.sinks[1].type: found the key a second time, expected it once. Keep one of the two."},
        {R"({"module":{"reverseShell":{"whitelist":[{},{"a":1,"a":2}]}}})",
         "f: module.reverseShell.whitelist[1].a: found the key a second time, expected it once. Keep one of the two."},
        {R"({"events":{"perMinuteLimit":1e999}})", "f:1:33: not valid JSON: number overflow parsing '1e999'" + syntax},
        {std::string("{}\0{", 4), "f: byte 3: found a zero byte, expected text. Name a text file with JSON in it."},
        {"{\"module\":{\"x\":" + std::string(63, '[') + std::string(63, ']') + "}}",
         "f: found more than 64 levels of nesting, expected at most 64. Make the text flatter."},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(ErrorOf(row.text), row.error);
    }
}

TEST(AgentConfig, InvalidUtf8AndOpenCommentsAreSyntaxErrors) {
    EXPECT_THAT(ErrorOf("{\"settings\":{\"a\":\"\xff\"}}"), HasSubstr("f:1:19: not valid JSON: "));
    EXPECT_THAT(ErrorOf("{}\n/* open"), HasSubstr("not valid JSON: "));
}

TEST(AgentConfig, LongValuesAreCutInMessages) {
    const std::string error = ErrorOf(R"({"log":{"target":")" + std::string(100000, 'x') + R"("}})");
    EXPECT_LT(error.size(), 300U);
    EXPECT_THAT(error, HasSubstr("xxx..."));
}

TEST(AgentConfig, SixtyFourLevelsAreAllowed) {
    const std::string text = "{\"module\":{\"x\":" + std::string(62, '[') + std::string(62, ']') + "}}";
    EXPECT_EQ(Parsed(text).warnings.size(), 1U);
}

TEST(AgentConfig, WhatTheModuleWouldPassOverIsWarnedOf) {
    std::string fiftyOne;
    for (int i = 0; i < 51; ++i) {
        fiftyOne += (i == 0 ? "\"" : ",\"") + std::to_string(i) + "\"";
    }
    const std::string end = "; the module passes it over";
    const std::string interval = ", expected a whole number of seconds from 30 to 86400" + end;
    const struct {
        std::string module;
        std::vector<std::string> warnings;
    } rows[] = {
        {R"({"x":1})", {"module.x: found an unknown key, expected abnormalShell or reverseShell" + end}},
        {R"({"reverseShell":[]})", {"module.reverseShell: found [], expected an object" + end}},
        {R"({"reverseShell":{"interval":40}})",
         {"module.reverseShell.interval: found an unknown key, expected detectInterval or whitelist" + end}},
        {R"({"reverseShell":{"detectInterval":29}})", {"module.reverseShell.detectInterval: found 29" + interval}},
        {R"({"reverseShell":{"detectInterval":86401}})",
         {"module.reverseShell.detectInterval: found 86401" + interval}},
        {R"({"reverseShell":{"detectInterval":90.0}})", {"module.reverseShell.detectInterval: found 90.0" + interval}},
        {R"({"reverseShell":{"detectInterval":"90"}})",
         {"module.reverseShell.detectInterval: found \"90\"" + interval}},
        {R"({"reverseShell":{"detectInterval":18446744073709551615}})",
         {"module.reverseShell.detectInterval: found 18446744073709551615" + interval}},
        {R"({"reverseShell":{"whitelist":"a"}})",
         {"module.reverseShell.whitelist: found \"a\", expected an array of strings" + end}},
        {R"({"reverseShell":{"whitelist":["a",1,"b",{}]}})",
         {"module.reverseShell.whitelist[1]: found 1, expected a string" + end,
          "module.reverseShell.whitelist[3]: found {}, expected a string" + end}},
        {"{\"reverseShell\":{\"whitelist\":[" + fiftyOne + "]}}",
         {"module.reverseShell.whitelist: found 51 different strings, expected at most 50" + end}},
        {"{\"reverseShell\":{\"whitelist\":[\"1\"," + fiftyOne.substr(4) + "]}}", {}},
    };
    for (const auto& row : rows) {
        const AgentConfig config = Parsed("{\"module\":" + row.module + "}");
        EXPECT_EQ(config.warnings, row.warnings);
        EXPECT_EQ(config.moduleText, row.module) << "the module gets its text all the same";
    }
}

TEST(AgentConfig, WarningsAreBounded) {
    std::string numbers = "1";
    for (int i = 0; i < 1000; ++i) {
        numbers += ",1";
    }
    const AgentConfig config = Parsed("{\"module\":{\"reverseShell\":{\"whitelist\":[" + numbers + "]}}}");
    EXPECT_EQ(config.warnings.size(), 33U);
    EXPECT_EQ(config.warnings.back(), "module: further warnings are left out");
}

TEST(AgentConfig, FileIsRead) {
    const TemporaryDirectory directory;
    WriteFile(directory.Path("c"), "{\"log\":{\"level\":2}}");
    std::string error;
    const std::optional<AgentConfig> config = ReadAgentConfig(directory.Path("c"), error);
    ASSERT_TRUE(config) << error;
    EXPECT_EQ(config->logLevel, LOG_LEVEL_WARNING);
}

TEST(AgentConfig, UnfitFileIsRefused) {
    const TemporaryDirectory directory;
    WriteFile(directory.Path("big"), "{}" + std::string(size_t{1024} * 1024 - 1, ' '));
    WriteFile(directory.Path("fits"), "{}" + std::string(size_t{1024} * 1024 - 2, ' '));
    ASSERT_EQ(::mkfifo(directory.Path("fifo").c_str(), 0600), 0);
    std::string error;
    EXPECT_TRUE(ReadAgentConfig(directory.Path("fits"), error));
    const struct {
        std::string name;
        std::string problem;
    } rows[] = {
        {"absent",
         ": cannot be opened: No such file or directory. Name an existing configuration file that this user "
         "may read."},
        {"big", ": found more than 1 MiB, expected at most 1 MiB. Name a configuration file, or shorten it."},
        {"fifo", ": found something that is not a regular file, expected a file with JSON in it. Name that."},
        {".", ": found something that is not a regular file, expected a file with JSON in it. Name that."},
    };
    for (const auto& row : rows) {
        EXPECT_FALSE(ReadAgentConfig(directory.Path(row.name), error));
        EXPECT_EQ(error, directory.Path(row.name) + row.problem);
    }
}

// The packaged file says that its values are the defaults.
TEST(AgentConfig, PackagedFileHoldsTheDefaults) {
    const std::filesystem::path root = ORLIM_SOURCE_FOLDER;
    std::string error;
    const std::optional<AgentConfig> config = ReadAgentConfig(root / "packaging/orlim-agent.json", error);
    ASSERT_TRUE(config) << error;
    const AgentConfig defaults;
    EXPECT_EQ(config->settings, defaults.settings);
    EXPECT_EQ(config->perMinuteLimit, defaults.perMinuteLimit);
    EXPECT_EQ(config->sinks, defaults.sinks);
    EXPECT_EQ(config->logLevel, LOG_LEVEL_LIFECYCLE);
    EXPECT_THAT(config->warnings, IsEmpty());
    EXPECT_EQ(config->moduleText, R"({"abnormalShell":{},"reverseShell":{"detectInterval":90,"whitelist":[]}})");
}

}  // namespace
}  // namespace Host
