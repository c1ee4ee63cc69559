#include "demo/report.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "demo/schedule.h"
#include "demo_fixture.h"

namespace Host {
namespace {

using testing::HasSubstr;
using testing::Not;

// A scenario that is found, one that is missed, one that is silent, and a finding about another process.
Scoreboard MixedBoard() {
    Scoreboard board({&copyScenario, &shellScenario, &quietScenario});
    StagedParts parts = Parts(10, 11, 0.5);
    parts.files = {"/t/copy"};
    board.Staged("copy", parts);
    board.Staged("shell", Parts(20, 21, 0.5));
    board.Staged("quiet", Parts(30, 31, 0.5));
    for (Finding finding :
         {ChangeOf("/usr/bin/bash", "/t/copy", "copy"), ReverseShellOf(11, 10, Detection::instantScan, 5),
          ReverseShellOf(21, 20, Detection::periodScan, 20.5), ReverseShellOf(99, 98, Detection::periodScan, 20.5)}) {
        finding.tree = "bash (" + std::to_string(finding.pid) + ")\n";
        board.Add(finding);
    }
    return board;
}

TEST(Report, TableHasOneLinePerExpectation) {
    const std::string table = ReportTable(MixedBoard(), {});
    EXPECT_EQ(table,
              "      scenario            expected                          found                             seconds\n"
              "ok    copy                shell file protection (copy)      shell file protection (copy)      0.5\n"
              "ok    copy                instant scan                      instant scan                      4.5\n"
              "FAIL  shell               instant scan                      only period scan\n"
              "ok    quiet               nothing                           nothing\n");
}

TEST(Report, TableShowsWhyAScenarioWasNotStaged) {
    Scoreboard board({&shellScenario, &quietScenario});
    board.Skipped("shell", "no flags here");
    board.NotStaged("quiet", "no\nmemory");
    const std::string table = ReportTable(board, {});
    EXPECT_THAT(table,
                HasSubstr("ok    shell               instant scan                      skipped: no flags here\n"));
    EXPECT_THAT(table, HasSubstr("FAIL  quiet               nothing                           not staged: no"));
    EXPECT_THAT(table, Not(HasSubstr("no\nmemory")));
}

TEST(Report, TableFailsAHarmlessScenarioWithAFinding) {
    Scoreboard board({&quietScenario});
    board.Staged("quiet", Parts(30, 31, 1));
    Finding finding = ReverseShellOf(31, 30, Detection::periodScan, 21);
    board.Add(finding);
    EXPECT_THAT(
        ReportTable(board, {}),
        HasSubstr("FAIL  quiet               nothing                           period scan                       "
                  "20.0\n"));
}

TEST(Report, TableColoursOnlyTheVerdicts) {
    const Colours colours{.good = "<g>", .bad = "<b>", .dim = "<d>", .strong = "<s>", .plain = "<p>"};
    const std::string table = ReportTable(MixedBoard(), colours);
    EXPECT_THAT(table, testing::StartsWith("<s>      scenario"));
    EXPECT_THAT(table, HasSubstr("\n<g>ok    <p>copy  "));
    EXPECT_THAT(table, HasSubstr("\n<b>FAIL  <p>shell  "));
}

TEST(Report, SummaryCountsScenariosAndOtherFindings) {
    EXPECT_EQ(ReportSummary(MixedBoard(), 21.26),
              "2 of 3 scenarios as expected; 1 finding about other processes of this host, see above; took 21.3 s");
    Scoreboard skipped({&shellScenario});
    skipped.Skipped("shell", "why");
    EXPECT_EQ(ReportSummary(skipped, 1), "0 of 1 scenarios as expected, 1 skipped; took 1.0 s");
}

TEST(Report, JsonContainsAllResults) {
    const auto json = nlohmann::json::parse(ReportJson(MixedBoard(), 21.26, true));
    EXPECT_EQ(json["passed"], false);
    EXPECT_EQ(json["complete"], true);
    EXPECT_EQ(json["seconds"], 21.3);
    ASSERT_EQ(json["scenarios"].size(), 3U);
    EXPECT_EQ(json["scenarios"][0]["name"], "copy");
    EXPECT_EQ(json["scenarios"][0]["verdict"], "found");
    EXPECT_EQ(json["scenarios"][0]["expected"][0]["operationType"], "copy");
    EXPECT_EQ(json["scenarios"][0]["expected"][1]["seconds"], 4.5);
    EXPECT_EQ(json["scenarios"][0]["findings"][1]["wiring"], "bash (11)\n");
    EXPECT_EQ(json["scenarios"][1]["verdict"], "missed");
    EXPECT_TRUE(json["scenarios"][1]["expected"][0]["seconds"].is_null());
    EXPECT_EQ(json["scenarios"][2]["verdict"], "silent");
    EXPECT_EQ(json["otherFindings"].size(), 1U);
    EXPECT_EQ(json["otherFindings"][0]["event"]["eventType"], "reverse-shell");
}

TEST(Report, JsonOfAnInterruptedRunHasNotPassed) {
    Scoreboard board({&quietScenario});
    EXPECT_TRUE(board.Passed());
    const auto json = nlohmann::json::parse(ReportJson(board, 3, false));
    EXPECT_EQ(json["passed"], false);
    EXPECT_EQ(json["complete"], false);
}

TEST(Report, JsonAcceptsAnyBytesInAReason) {
    Scoreboard board({&shellScenario});
    board.NotStaged("shell", "\xff\"\n");
    const auto json = nlohmann::json::parse(ReportJson(board, 1, true));
    EXPECT_EQ(json["scenarios"][0]["reason"], "\xEF\xBF\xBD\"\n");
}

TEST(Report, ListNamesEveryScenario) {
    const std::string list = ListText();
    for (const Scenario& scenario : AllScenarios()) {
        EXPECT_THAT(list, HasSubstr(scenario.name + " "));
    }
}

TEST(Schedule, CountdownShowsTheNextScanOfEachKind) {
    const struct {
        double seconds;
        const char* text;
    } rows[] = {
        {0, "period scan in 20 s, short-command sweep in 1 s"},
        {1.5, "period scan in 19 s, short-command sweep in 10 s"},
        {12.2, "period scan in 8 s, short-command sweep in 9 s"},
        {20, "period scan running, short-command sweep in 1 s"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(CountdownText(row.seconds), row.text) << row.seconds;
    }
}

}  // namespace
}  // namespace Host
