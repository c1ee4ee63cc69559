#include "host/detector/supervisor.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "agent/status.h"

namespace Host {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

// A module whose entries record their calls.
std::vector<std::string> calls;
int initAnswer = 1;
std::string startRefuses;
std::string throwing;  // the entry that throws

void Enter(const std::string& name) {
    calls.push_back(name);
    if (!throwing.empty() && name.rfind(throwing, 0) == 0) {
        throw std::runtime_error("out of tasks");
    }
}

const ModuleEntries module = {
    [] {
        Enter("init");
        return initAnswer;
    },
    [](const char* config) {
        Enter(std::string("start ") + config);
        const bool works = startRefuses.empty() || std::string(config).find(startRefuses) == std::string::npos;
        Plugs::StatusCollect::ReportDetectStatus("reverseShell", works, works ? "0000" : "0105");
        return works ? 1 : 0;
    },
    [](const char* code) { Enter(std::string("stop ") + code); },
    [] { Enter("deinit"); },
};

AgentConfig Config(const std::string& text) {
    AgentConfig config;
    config.moduleText = text;
    return config;
}

class SupervisorTest : public testing::Test {
protected:
    void SetUp() override {
        calls.clear();
        initAnswer = 1;
        startRefuses.clear();
        throwing.clear();
        testing::internal::CaptureStderr();
    }
    void TearDown() override { Log(); }

    std::string Log() {
        if (captured_) {
            captured_ = false;
            log_ = testing::internal::GetCapturedStderr();
        }
        return log_;
    }

    Supervisor supervisor_{module, [](const AgentConfig& config) { calls.push_back("apply " + config.moduleText); }};

private:
    bool captured_ = true;
    std::string log_;
};

TEST_F(SupervisorTest, StartsAndStopsInOrder) {
    EXPECT_TRUE(supervisor_.Start(Config("a"), "a"));
    supervisor_.Stop();
    supervisor_.Stop();
    EXPECT_THAT(calls, ElementsAre("init", "start a", "stop 0000", "deinit"));
}

TEST_F(SupervisorTest, LogsTheShellListsAfterAFailedInit) {
    initAnswer = 0;
    EXPECT_FALSE(supervisor_.Start(Config("a"), "a"));
    supervisor_.Stop();
    EXPECT_THAT(calls, ElementsAre("init"));
    EXPECT_THAT(Log(), HasSubstr("no shell listed in /etc/orlim/default_shells or /etc/shells exists"));
}

TEST_F(SupervisorTest, UndoesAFailedStartAndLogsTheFunction) {
    startRefuses = "a";
    EXPECT_FALSE(supervisor_.Start(Config("a"), "a"));
    supervisor_.Stop();
    EXPECT_THAT(calls, ElementsAre("init", "start a", "stop 0000", "deinit"));
    EXPECT_THAT(Log(), HasSubstr("not running: reverseShell (code 0105)"));
}

TEST_F(SupervisorTest, StopsAModuleWhoseStartThrows) {
    throwing = "start";
    EXPECT_FALSE(supervisor_.Start(Config("a"), "a"));
    EXPECT_THAT(calls, ElementsAre("init", "start a", "stop 0000", "deinit"));
    EXPECT_THAT(Log(), HasSubstr("the entry StartModule of the module failed: out of tasks; stopping the module"));
}

TEST_F(SupervisorTest, StopsAModuleWhoseInitThrows) {
    throwing = "init";
    EXPECT_FALSE(supervisor_.Start(Config("a"), "a"));
    EXPECT_THAT(calls, ElementsAre("init", "stop 0000", "deinit"));
}

TEST_F(SupervisorTest, DeinitialisesAModuleWhoseStopThrows) {
    supervisor_.Start(Config("a"), "a");
    throwing = "stop";
    supervisor_.Stop();
    EXPECT_THAT(calls, ElementsAre("init", "start a", "stop 0000", "deinit"));
}

TEST_F(SupervisorTest, ReturnsToThePreviousConfigurationIfAStartThrows) {
    supervisor_.Start(Config("a"), "a");
    calls.clear();
    throwing = "start b";
    EXPECT_TRUE(supervisor_.Replace(Config("b")));
    EXPECT_EQ(calls.back(), "start a");
}

TEST_F(SupervisorTest, EndStopsARunningModule) {
    {
        Supervisor supervisor(module, [](const AgentConfig&) {});
        supervisor.Start(Config("a"), "a");
    }
    EXPECT_THAT(calls, ElementsAre("init", "start a", "stop 0000", "deinit"));
}

TEST_F(SupervisorTest, ReplaceAppliesBetweenStopAndStart) {
    supervisor_.Start(Config("a"), "a");
    calls.clear();
    EXPECT_TRUE(supervisor_.Replace(Config("b")));
    EXPECT_THAT(calls, ElementsAre("stop 0000", "deinit", "apply b", "init", "start b"));
}

TEST_F(SupervisorTest, ReplaceGoesBackIfTheNewConfigurationFails) {
    supervisor_.Start(Config("a"), "a");
    calls.clear();
    startRefuses = "b";
    EXPECT_TRUE(supervisor_.Replace(Config("b")));
    EXPECT_THAT(calls, ElementsAre("stop 0000", "deinit", "apply b", "init", "start b", "stop 0000", "deinit",
                                   "apply a", "init", "start a"));
    EXPECT_THAT(Log(), HasSubstr("going back to the previous one"));
    calls.clear();
    startRefuses.clear();
    EXPECT_TRUE(supervisor_.Replace(Config("c")));
    supervisor_.Stop();
    EXPECT_THAT(calls, ElementsAre("stop 0000", "deinit", "apply c", "init", "start c", "stop 0000", "deinit"));
}

TEST_F(SupervisorTest, ReplaceFailsIfThePreviousConfigurationFailsToo) {
    supervisor_.Start(Config("a"), "a");
    initAnswer = 0;
    EXPECT_FALSE(supervisor_.Replace(Config("b")));
    calls.clear();
    supervisor_.Stop();
    EXPECT_THAT(calls, ElementsAre());
}

}  // namespace
}  // namespace Host
