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

TEST(AgentConfig, ReadsEveryKey) {
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

TEST(AgentConfig, AcceptsTheLowestAndHighestNumbers) {
    EXPECT_EQ(Parsed(R"({"events":{"perMinuteLimit":1000000}})").perMinuteLimit, 1000000U);
    EXPECT_EQ(Parsed(R"({"log":{"level":0}})").logLevel, LOG_LEVEL_DETAIL);
    EXPECT_THAT(Parsed(R"({"module":{"reverseShell":{"detectInterval":86400}}})").warnings, IsEmpty());
}

TEST(AgentConfig, AcceptsSixteenSinks) {
    std::string sinks;
    for (int i = 0; i < 16; ++i) {
        sinks += std::string(i == 0 ? "" : ",") + R"({"type":"stdout"})";
    }
    EXPECT_EQ(Parsed(R"({"events":{"sinks":[)" + sinks + "]}}").sinks.size(), 16U);
    EXPECT_EQ(ErrorOf(R"({"events":{"sinks":[)" + sinks + R"(,{"type":"stdout"}]}})"),
              "f: events.sinks: expected an array of 1 to 16 sinks, found 17 sinks. For example, write "
              "[{\"type\":\"stdout\"}].");
}

TEST(AgentConfig, KeepsTheOrderOfTheModulesKeys) {
    const AgentConfig config = Parsed(R"({"module":{"reverseShell":{},"abnormalShell":{}}})");
    EXPECT_EQ(config.moduleText, R"({"reverseShell":{},"abnormalShell":{}})");
}

TEST(AgentConfig, HasNoReverseShellTextWithoutThatSection) {
    const AgentConfig config = Parsed(R"({"module":{"abnormalShell":{}}})");
    EXPECT_EQ(config.moduleText, R"({"abnormalShell":{}})");
    EXPECT_EQ(config.reverseShellText, std::nullopt);
}

TEST(AgentConfig, ErrorNamesPlaceExpectedAndFoundValueAndRemedy) {
    const auto object = [](const std::string& found) {
        return "expected an object, found " + found + ". Write {...}, or omit the key for the default.";
    };
    const auto unknown = [](const std::string& expected) {
        return "expected " + expected + ", found an unknown key. Correct the name or remove the key.";
    };
    const auto limit = [](const std::string& found) {
        return "f: events.perMinuteLimit: expected a whole number from 0 to 1000000, found " + found +
               ". Write 0 for no limit.";
    };
    const auto level = [](const std::string& found) {
        return "f: log.level: expected a whole number from 0 to 3, found " + found +
               ". Write 0 for detail, 1 for info, 2 for warnings, 3 for errors.";
    };
    const auto sinks = [](const std::string& found) {
        return "f: events.sinks: expected an array of 1 to 16 sinks, found " + found +
               ". For example, write [{\"type\":\"stdout\"}].";
    };
    const auto type = [](const std::string& found) {
        return "expected \"stdout\" or \"file\", found " + found +
               ". Write {\"type\":\"stdout\"} or {\"type\":\"file\",\"path\":\"/...\"}.";
    };
    const auto path = [](const std::string& found) {
        return "expected the absolute path of a file, found " + found + ". Write the full path, starting with \"/\".";
    };
    const std::string syntax = ". Correct the text at this place or shortly before it. Comments are // or /* */.";
    const std::string twice = "expected the key once, found it a second time. Keep one of the two.";
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
        {"[]", "f: " + object("[]")},
        {"7", "f: " + object("7")},
        {R"({"modul":{}})", "f: modul: " + unknown("one of module, settings, events or log")},
        {R"({"a b\n":1})", "f: [\"a b\\n\"]: " + unknown("one of module, settings, events or log")},
        {R"({"module":[]})", "f: module: " + object("[]")},
        {R"({"settings":"x"})", "f: settings: " + object("\"x\"")},
        {R"({"settings":{"A":1}})", "f: settings.A: expected a string, found 1. Put the value in double quotes."},
        {R"({"events":null})", "f: events: " + object("null")},
        {R"({"events":{"x":1}})", "f: events.x: " + unknown("one of perMinuteLimit or sinks")},
        {R"({"events":{"perMinuteLimit":-1}})", limit("-1")},
        {R"({"events":{"perMinuteLimit":1000001}})", limit("1000001")},
        {R"({"events":{"perMinuteLimit":18446744073709551615}})", limit("18446744073709551615")},
        {R"({"events":{"perMinuteLimit":60.0}})", limit("60.0")},
        {R"({"events":{"perMinuteLimit":"60"}})", limit("\"60\"")},
        {R"({"events":{"perMinuteLimit":true}})", limit("true")},
        {R"({"events":{"sinks":[]}})", sinks("0 sinks")},
        {R"({"events":{"sinks":{}}})", sinks("{}")},
        {R"({"events":{"sinks":[{"type":"stdout"},7]}})", "f: events.sinks[1]: " + object("7")},
        {R"({"events":{"sinks":[{}]}})", "f: events.sinks[0].type: " + type("nothing")},
        {R"({"events":{"sinks":[{"type":"syslog"}]}})", "f: events.sinks[0].type: " + type("\"syslog\"")},
        {R"({"events":{"sinks":[{"type":"stdout","path":"/x"}]}})", "f: events.sinks[0].path: " + unknown("only type")},
        {R"({"events":{"sinks":[{"type":"file","path":"/x","mode":1}]}})",
         "f: events.sinks[0].mode: " + unknown("one of type or path")},
        {R"({"events":{"sinks":[{"type":"file"}]}})", "f: events.sinks[0].path: " + path("nothing")},
        {R"({"events":{"sinks":[{"type":"stdout"},{"type":"file","path":"log/x"}]}})",
         "f: events.sinks[1].path: " + path("\"log/x\"")},
        {R"({"events":{"sinks":[{"type":"file","path":"/var/log/"}]}})",
         "f: events.sinks[0].path: " + path("\"/var/log/\"")},
        {R"({"events":{"sinks":[{"type":"file","path":"/x\u0000y"}]}})",
         "f: events.sinks[0].path: " + path("\"/x\\u0000y\"")},
        {R"({"log":{"level":4}})", level("4")},
        {R"({"log":{"level":"info"}})", level("\"info\"")},
        {R"({"log":{"target":"syslog"}})",
         "f: log.target: expected \"stderr\", found \"syslog\". To log elsewhere, redirect standard error."},
        {R"({"log":{"file":"x"}})", "f: log.file: " + unknown("one of level or target")},
        {R"({"log":{},"log":{}})", "f: log: " + twice},
        {R"({"events":{"sinks":[{"type":"stdout"},{"type":"stdout","type":"file"}]}})",
         "f: events.sinks[1].type: " + twice},
        {R"({"module":{"reverseShell":{"whitelist":[{},{"a":1,"a":2}]}}})",
         "f: module.reverseShell.whitelist[1].a: " + twice},
        {R"({"events":{"perMinuteLimit":1e999}})", "f:1:33: not valid JSON: number overflow parsing '1e999'" + syntax},
        {std::string("{}\0{", 4), "f: byte 3: expected text, found a zero byte. Name a text file that contains JSON."},
        {"{\"module\":{\"x\":" + std::string(63, '[') + std::string(63, ']') + "}}",
         "f: expected at most 64 levels of nesting, found more. Nest the values less deeply."},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(ErrorOf(row.text), row.error);
    }
}

TEST(AgentConfig, ReportsInvalidUtf8AndOpenCommentsAsSyntaxErrors) {
    EXPECT_THAT(ErrorOf("{\"settings\":{\"a\":\"\xff\"}}"), HasSubstr("f:1:19: not valid JSON: "));
    EXPECT_THAT(ErrorOf("{}\n/* open"), HasSubstr("not valid JSON: "));
}

TEST(AgentConfig, CutsLongValuesInMessages) {
    const std::string error = ErrorOf(R"({"log":{"target":")" + std::string(100000, 'x') + R"("}})");
    EXPECT_LT(error.size(), 300U);
    EXPECT_THAT(error, HasSubstr("xxx..."));
}

TEST(AgentConfig, AcceptsSixtyFourLevels) {
    const std::string text = "{\"module\":{\"x\":" + std::string(62, '[') + std::string(62, ']') + "}}";
    EXPECT_EQ(Parsed(text).warnings.size(), 1U);
}

TEST(AgentConfig, WarnsOfEachPartThatTheModuleIgnores) {
    std::string fiftyOne;
    for (int i = 0; i < 51; ++i) {
        fiftyOne += (i == 0 ? "\"" : ",\"") + std::to_string(i) + "\"";
    }
    const std::string end = "; the module ignores it";
    const auto interval = [&end](const std::string& found) {
        return "module.reverseShell.detectInterval: expected a whole number of seconds from 30 to 86400, found " +
               found + end;
    };
    const struct {
        std::string module;
        std::vector<std::string> warnings;
    } rows[] = {
        {R"({"x":1})", {"module.x: expected abnormalShell or reverseShell, found an unknown key" + end}},
        {R"({"reverseShell":[]})", {"module.reverseShell: expected an object, found []" + end}},
        {R"({"reverseShell":{"interval":40}})",
         {"module.reverseShell.interval: expected detectInterval or whitelist, found an unknown key" + end}},
        {R"({"reverseShell":{"detectInterval":29}})", {interval("29")}},
        {R"({"reverseShell":{"detectInterval":86401}})", {interval("86401")}},
        {R"({"reverseShell":{"detectInterval":90.0}})", {interval("90.0")}},
        {R"({"reverseShell":{"detectInterval":"90"}})", {interval("\"90\"")}},
        {R"({"reverseShell":{"detectInterval":18446744073709551615}})", {interval("18446744073709551615")}},
        {R"({"reverseShell":{"whitelist":"a"}})",
         {"module.reverseShell.whitelist: expected an array of strings, found \"a\"" + end}},
        {R"({"reverseShell":{"whitelist":["a",1,"b",{}]}})",
         {"module.reverseShell.whitelist[1]: expected a string, found 1" + end,
          "module.reverseShell.whitelist[3]: expected a string, found {}" + end}},
        {"{\"reverseShell\":{\"whitelist\":[" + fiftyOne + "]}}",
         {"module.reverseShell.whitelist: expected at most 50 different strings, found 51; the module ignores the "
          "rest"}},
        {"{\"reverseShell\":{\"whitelist\":[\"1\"," + fiftyOne.substr(4) + "]}}", {}},
    };
    for (const auto& row : rows) {
        const AgentConfig config = Parsed("{\"module\":" + row.module + "}");
        EXPECT_EQ(config.warnings, row.warnings);
        EXPECT_EQ(config.moduleText, row.module) << "the module still gets its text";
    }
}

TEST(AgentConfig, LimitsTheNumberOfWarnings) {
    std::string numbers = "1";
    for (int i = 0; i < 1000; ++i) {
        numbers += ",1";
    }
    const AgentConfig config = Parsed("{\"module\":{\"reverseShell\":{\"whitelist\":[" + numbers + "]}}}");
    EXPECT_EQ(config.warnings.size(), 33U);
    EXPECT_EQ(config.warnings.back(), "module: further warnings are omitted");
}

TEST(AgentConfig, ReadsAFile) {
    const TemporaryDirectory directory;
    WriteFile(directory.Path("c"), "{\"log\":{\"level\":2}}");
    std::string error;
    const std::optional<AgentConfig> config = ReadAgentConfig(directory.Path("c"), error);
    ASSERT_TRUE(config) << error;
    EXPECT_EQ(config->logLevel, LOG_LEVEL_WARNING);
}

TEST(AgentConfig, RefusesAFileThatIsMissingTooLargeOrNotRegular) {
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
         ": cannot open the file: No such file or directory. Name an existing configuration file that this user "
         "may read."},
        {"big", ": expected at most 1 MiB, found more. Name a configuration file, or shorten this one."},
        {"fifo", ": expected a regular file, found something else. Name a file that contains JSON."},
        {".", ": expected a regular file, found something else. Name a file that contains JSON."},
    };
    for (const auto& row : rows) {
        EXPECT_FALSE(ReadAgentConfig(directory.Path(row.name), error));
        EXPECT_EQ(error, directory.Path(row.name) + row.problem);
    }
}

// The comments of the packaged file promise that its values are the defaults.
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
