#include "module/published.h"
#include "module_fixture.h"

namespace {

class Configuration : public ModuleTest {
protected:
    static std::string Strings(int count, int distinct) {
        std::string list;
        for (int i = 0; i < count; ++i) {
            list += (i == 0 ? "\"entry" : ",\"entry") + std::to_string(i % distinct) + "\"";
        }
        return list;
    }

    static int Start(const std::string& config) { return StartModule(config.c_str()); }

    static long TimesLogged(const std::string& text) {
        return std::ranges::count(Fake::TheAgent().LogTexts(LOG_LEVEL_LIFECYCLE), text);
    }
};

TEST_F(Configuration, AcceptsAnIntervalFromThirtySecondsToADay) {
    // accepted is 0 for a value that is ignored.
    const struct {
        const char* value;
        int accepted;
    } cases[] = {
        {"30", 30},    {"86400", 86400}, {"61", 61},  {"90", 90}, {"29", 0},   {"86401", 0}, {"-30", 0},
        {"\"90\"", 0}, {"90.5", 0},      {"60.0", 0}, {"6e1", 0}, {"null", 0}, {"[60]", 0},  {"99999999999", 0},
    };
    for (const auto& row : cases) {
        detectInterval = 45;
        const int interval = row.accepted == 0 ? 45 : row.accepted;
        EXPECT_EQ(Start(std::string(R"({"reverseShell":{"detectInterval":)") + row.value + "}}"), 1) << row.value;
        EXPECT_EQ(detectInterval, interval) << row.value;
        const Fake::Task* task = Fake::TheAgent().FindTask(periodTask);
        ASSERT_NE(task, nullptr);
        EXPECT_EQ(task->condition.periodMs, static_cast<uint64_t>(interval) * 1000) << row.value;
        StopModule("0000");
    }
    EXPECT_TRUE(Fake::TheAgent().LogTexts(LOG_LEVEL_ERROR).empty());
}

TEST_F(Configuration, KeepsTheLastAcceptedIntervalAcrossAStop) {
    EXPECT_EQ(Start(R"({"reverseShell":{"detectInterval":45}})"), 1);
    StopModule("0000");
    EXPECT_EQ(Start(R"({"reverseShell":{}})"), 1);
    EXPECT_EQ(detectInterval, 45);
}

TEST_F(Configuration, RepeatsThePeriodScanIfTheIntervalIsAtLeastASecond) {
    const struct {
        int interval;
        TavUtils::TASKTYPE type;
    } cases[] = {{0, TavUtils::TASK_ONCE}, {1, TavUtils::TASK_REPEAT}};
    for (const auto& row : cases) {
        detectInterval = row.interval;
        EXPECT_EQ(Start(R"({"reverseShell":{}})"), 1);
        const Fake::Task* task = Fake::TheAgent().FindTask(periodTask);
        ASSERT_NE(task, nullptr);
        EXPECT_EQ(task->type, row.type) << row.interval;
        StopModule("0000");
    }
}

TEST_F(Configuration, AcceptsUpToFiftyDistinctWhitelistStrings) {
    const struct {
        int strings;
        int distinct;
        size_t kept;
        long messages;
    } cases[] = {
        {50, 50, 50, 0},  {51, 51, 50, 1}, {60, 40, 40, 0},
        {120, 60, 50, 1}, {0, 1, 0, 0},    {51, 50, 50, 1},  // a repeat, but the whitelist is full
        {50, 49, 49, 0},
    };
    for (const auto& row : cases) {
        Fake::TheAgent().log.clear();
        EXPECT_EQ(Start(R"({"reverseShell":{"whitelist":[)" + Strings(row.strings, row.distinct) + "]}}"), 1);
        EXPECT_EQ(CurrentWhitelist()->size(), row.kept) << row.strings;
        EXPECT_EQ(TimesLogged("Whitelist size exceeds the threshold."), row.messages) << row.strings;
    }
}

TEST_F(Configuration, KeepsTheFirstStringsOfAWhitelistThatIsTooLong) {
    Start(R"({"reverseShell":{"whitelist":[)" + Strings(51, 51) + "]}}");
    EXPECT_TRUE(CurrentWhitelist()->contains("entry0"));
    EXPECT_FALSE(CurrentWhitelist()->contains("entry50"));
}

TEST_F(Configuration, EmptiesTheWhitelistIfTheValueIsMissingOrNotAnArray) {
    for (const char* reverse : {R"({"whitelist":"bash"})", R"({"whitelist":null})", R"({"whitelist":{"a":1}})", "{}"}) {
        ReplaceWhitelist({"left from before"});
        EXPECT_EQ(Start(std::string(R"({"reverseShell":)") + reverse + "}"), 1) << reverse;
        EXPECT_TRUE(CurrentWhitelist()->empty()) << reverse;
    }
}

TEST_F(Configuration, KeepsIntervalAndWhitelistIfTheReverseShellFunctionIsNotEnabled) {
    ReplaceWhitelist({"left from before"});
    detectInterval = 45;
    EXPECT_EQ(Start(R"({"abnormalShell":{}})"), 1);
    EXPECT_EQ(*CurrentWhitelist(), std::set<std::string>{"left from before"});
    EXPECT_EQ(detectInterval, 45);
}

TEST_F(Configuration, EnablesAFunctionByItsKeyWhateverTheValue) {
    EXPECT_EQ(Start(R"({"abnormalShell":false,"reverseShell":null})"), 1);
    EXPECT_TRUE(abnormalShellEnabled);
    EXPECT_TRUE(reverseShellEnabled);
    EXPECT_NE(Fake::TheAgent().FindTask(periodTask), nullptr);
}

TEST_F(Configuration, IgnoresTheReverseShellSectionIfTheEnvironmentForbidsTheFunction) {
    for (const char* location : {"somewhere", ""}) {
        Fake::TheAgent().environment[Published::locationVariable] = location;
        ReplaceWhitelist({"left from before"});
        EXPECT_EQ(Start(R"({"abnormalShell":{},"reverseShell":{"detectInterval":45,"whitelist":["bash"]}})"), 1);
        EXPECT_EQ(TakeStatuses(), (std::vector<Fake::StatusReport>{{tampering, true, "0000"}})) << location;
        EXPECT_FALSE(reverseShellEnabled);
        EXPECT_EQ(detectInterval, Published::defaultDetectInterval);
        EXPECT_EQ(*CurrentWhitelist(), std::set<std::string>{"left from before"});
        EXPECT_TRUE(Fake::TheAgent().tasks.empty());
    }
}

TEST_F(Configuration, ChangesNothingIfItIsNotJson) {
    ASSERT_EQ(Start(R"({"reverseShell":{}})"), 1);
    TakeStatuses();
    Fake::TheAgent().journal.clear();
    for (const char* config : {static_cast<const char*>(nullptr), "", "{", "not json", R"({"reverseShell":})"}) {
        EXPECT_EQ(StartModule(config), 0);
        EXPECT_EQ(TakeStatuses(), (std::vector<Fake::StatusReport>{{tampering, false, ""}, {reverseShell, false, ""}}));
        EXPECT_TRUE(reverseShellEnabled);
        EXPECT_EQ(moduleRunning, 1);
        EXPECT_EQ(Fake::TheAgent().tasks.size(), 2U);
    }
    for (const Fake::LogLine& line : Fake::TheAgent().log) {
        EXPECT_TRUE(line.source != "detect_shell" || line.text == "Shell detection module start success.") << line.text;
    }
}

}  // namespace
