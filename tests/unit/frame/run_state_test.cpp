#include "frame/run_state.h"

#include <gtest/gtest.h>

#include "tests/fakes/fake_agent.h"

namespace {

TEST(RunState, NeedStopIsFalseWhileTheModuleRuns) {
    Fake::ResetAgent();
    moduleRunning = 1;
    EXPECT_FALSE(NeedStop());
    EXPECT_TRUE(Fake::TheAgent().log.empty());
    moduleRunning = 0;
}

TEST(RunState, NeedStopIsTrueAndLogsEachTimeOtherwise) {
    Fake::ResetAgent();
    moduleRunning = 0;
    EXPECT_TRUE(NeedStop());
    EXPECT_TRUE(NeedStop());
    EXPECT_EQ(Fake::TheAgent().LogTexts(LOG_LEVEL_DETAIL),
              std::vector<std::string>(2, "thread was stopped by StopModule run.[run=0]"));
    EXPECT_EQ(Fake::TheAgent().log[0].source, "detect_shell");
    EXPECT_EQ(Fake::TheAgent().log[0].channel, "NormalLog");
}

}  // namespace
