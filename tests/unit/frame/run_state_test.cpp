#include "frame/run_state.h"

#include <gtest/gtest.h>

#include "tests/fakes/fake_agent.h"

namespace {

// Taken before any test runs.
const int runningAtLoad = moduleRunning;

TEST(RunState, DoesNotRunBeforeTheFirstStart) {
    EXPECT_EQ(runningAtLoad, 0);
}

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

TEST(RunState, StopHasBegunIsTrueOnlyInAStop) {
    const struct {
        int running;
        bool begun;
        bool expected;
    } cases[] = {{0, false, false}, {1, false, false}, {1, true, false}, {0, true, true}};
    for (const auto& row : cases) {
        Fake::ResetAgent();
        moduleRunning = row.running;
        stopBegun = row.begun;
        EXPECT_EQ(StopHasBegun(), row.expected) << row.running << row.begun;
        EXPECT_EQ(Fake::TheAgent().LogTexts(LOG_LEVEL_DETAIL),
                  std::vector<std::string>(row.expected ? 1 : 0, "thread was stopped by StopModule run.[run=0]"));
    }
    moduleRunning = 0;
    stopBegun = false;
}

}  // namespace
