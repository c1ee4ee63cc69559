#include "demo/scoreboard.h"

#include <gtest/gtest.h>

#include "demo_fixture.h"

namespace Host {
namespace {

TEST(Scoreboard, FindingByTheExpectedDetectionMeetsTheExpectation) {
    Scoreboard board({&shellScenario});
    board.Staged("shell", Parts(10, 11, 2));
    EXPECT_EQ(board.Results()[0].Judged(), Verdict::missed);
    EXPECT_FALSE(board.AllFound());

    Finding finding = ReverseShellOf(11, 10, Detection::instantScan, 6.5);
    EXPECT_EQ(board.Add(finding), &board.Results()[0]);
    EXPECT_EQ(board.Results()[0].Judged(), Verdict::found);
    EXPECT_DOUBLE_EQ(board.Results()[0].after[0].value(), 4.5);
    EXPECT_TRUE(board.AllFound());
    EXPECT_TRUE(board.Passed());
}

TEST(Scoreboard, FindingByAnotherDetectionIsKeptButMeetsNoExpectation) {
    Scoreboard board({&shellScenario});
    board.Staged("shell", Parts(10, 11, 0));
    Finding finding = ReverseShellOf(11, 10, Detection::periodScan, 20);
    board.Add(finding);
    EXPECT_EQ(board.Results()[0].Judged(), Verdict::missed);
    EXPECT_EQ(board.Results()[0].findings.size(), 1U);
}

TEST(Scoreboard, FindingAboutAnotherProcessOfTheScenarioMeetsNoExpectation) {
    Scoreboard board({&shellScenario});
    board.Staged("shell", Parts(10, 11, 0));
    Finding finding = ReverseShellOf(12, 10, Detection::instantScan, 5);
    EXPECT_EQ(board.Add(finding), &board.Results()[0]);
    EXPECT_EQ(board.Results()[0].Judged(), Verdict::missed);
}

TEST(Scoreboard, FirstFindingSetsTheSeconds) {
    Scoreboard board({&shellScenario});
    board.Staged("shell", Parts(10, 11, 0));
    for (const double seconds : {4.0, 8.0}) {
        Finding finding = ReverseShellOf(11, 10, Detection::instantScan, seconds);
        board.Add(finding);
    }
    EXPECT_DOUBLE_EQ(board.Results()[0].after[0].value(), 4);
}

TEST(Scoreboard, FindingAboutACommandOfAProgramIsFromTheShortCommandWatcher) {
    Scoreboard board({&programScenario});
    StagedParts parts;
    parts.stagehand = 10;
    parts.programs = {10};
    board.Staged("program", parts);
    Finding finding = ReverseShellOf(12, 10, Detection::instantScan, 11);
    board.Add(finding);
    EXPECT_EQ(finding.detection, Detection::shortCommandWatcher);
    EXPECT_EQ(board.Results()[0].Judged(), Verdict::found);
}

TEST(Scoreboard, ScenarioIsFoundIfAllItsExpectationsAreMet) {
    Scoreboard board({&copyScenario});
    StagedParts parts = Parts(10, 11, 0);
    parts.files = {"/t/copy"};
    board.Staged("copy", parts);
    Finding copied = ChangeOf("/usr/bin/bash", "/t/copy", "copy");
    board.Add(copied);
    EXPECT_EQ(board.Results()[0].Judged(), Verdict::missed);
    Finding shell = ReverseShellOf(11, 10, Detection::instantScan, 5);
    board.Add(shell);
    EXPECT_EQ(board.Results()[0].Judged(), Verdict::found);
}

TEST(Scoreboard, AnotherOperationOnTheFileMeetsNoExpectation) {
    Scoreboard board({&copyScenario});
    StagedParts parts = Parts(10, 11, 0);
    parts.files = {"/t/copy"};
    board.Staged("copy", parts);
    Finding modified = ChangeOf("/t/copy", "", "modify");
    EXPECT_NE(board.Add(modified), nullptr);
    EXPECT_FALSE(board.Results()[0].after[0]);
}

TEST(Scoreboard, HarmlessScenarioFailsWithAnyFinding) {
    Scoreboard board({&quietScenario});
    board.Staged("quiet", Parts(20, 21, 0));
    EXPECT_EQ(board.Results()[0].Judged(), Verdict::silent);
    EXPECT_TRUE(board.Passed());
    Finding finding = ReverseShellOf(25, 24, Detection::periodScan, 20);
    finding.lineage = {25, 24, 20, 1};
    board.Add(finding);
    EXPECT_EQ(board.Results()[0].Judged(), Verdict::notSilent);
    EXPECT_FALSE(board.Passed());
}

TEST(Scoreboard, KeepsFindingsAboutOtherProcessesSeparately) {
    Scoreboard board({&quietScenario, &shellScenario});
    board.Staged("quiet", Parts(20, 21, 0));
    Finding shell = ReverseShellOf(99, 98, Detection::instantScan, 3);
    Finding change = ChangeOf("/bin/sh", "", "modify");
    EXPECT_EQ(board.Add(shell), nullptr);
    EXPECT_EQ(board.Add(change), nullptr);
    EXPECT_EQ(board.Others().size(), 2U);
    EXPECT_EQ(board.Results()[0].Judged(), Verdict::silent);
}

TEST(Scoreboard, SkippedScenarioPassesAndOneThatIsNotStagedFails) {
    Scoreboard board({&shellScenario, &quietScenario});
    board.Skipped("shell", "no such flags");
    EXPECT_EQ(board.Results()[0].Judged(), Verdict::skipped);
    EXPECT_TRUE(board.AllFound());
    EXPECT_TRUE(board.Passed());
    board.NotStaged("quiet", "no memory");
    EXPECT_EQ(board.Results()[1].Judged(), Verdict::notStaged);
    EXPECT_FALSE(board.Passed());
}

}  // namespace
}  // namespace Host
