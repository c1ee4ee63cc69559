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

// One wiring found, one missed, one silent, one finding about another process.
Scoreboard MixedBoard() {
    Scoreboard board({&copyPlan, &shellPlan, &quietPlan});
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

TEST(Report, TableHasALineForEachExpectation) {
    const std::string table = ReportTable(MixedBoard(), {});
    EXPECT_EQ(table,
              "      wiring              expected                          found                             seconds\n"
              "ok    copy                shell file protection (copy)      shell file protection (copy)      0.5\n"
              "ok    copy                instant scan                      instant scan                      4.5\n"
              "FAIL  shell               instant scan                      only: period scan\n"
              "ok    quiet               nothing                           nothing\n");
}

TEST(Report, TableTellsWhyAWiringWasNotStaged) {
    Scoreboard board({&shellPlan, &quietPlan});
    board.Skipped("shell", "no flags here");
    board.NotStaged("quiet", "no\nmemory");
    const std::string table = ReportTable(board, {});
    EXPECT_THAT(table,
                HasSubstr("ok    shell               instant scan                      skipped: no flags here\n"));
    EXPECT_THAT(table, HasSubstr("FAIL  quiet               nothing                           not staged: no"));
    EXPECT_THAT(table, Not(HasSubstr("no\nmemory")));
}

TEST(Report, FindingAboutAHarmlessWiringFailsItsLine) {
    Scoreboard board({&quietPlan});
    board.Staged("quiet", Parts(30, 31, 1));
    Finding finding = ReverseShellOf(31, 30, Detection::periodScan, 21);
    board.Add(finding);
    EXPECT_THAT(
        ReportTable(board, {}),
        HasSubstr("FAIL  quiet               nothing                           period scan                       "
                  "20.0\n"));
}

TEST(Report, ColoursStandAroundTheVerdictsAlone) {
    const Colours colours{.good = "<g>", .bad = "<b>", .dim = "<d>", .strong = "<s>", .plain = "<p>"};
    const std::string table = ReportTable(MixedBoard(), colours);
    EXPECT_THAT(table, testing::StartsWith("<s>      wiring"));
    EXPECT_THAT(table, HasSubstr("\n<g>ok    <p>copy  "));
    EXPECT_THAT(table, HasSubstr("\n<b>FAIL  <p>shell  "));
}

TEST(Report, SummaryCountsWiringsAndOthers) {
    EXPECT_EQ(ReportSummary(MixedBoard(), 21.26),
              "2 of 3 wirings as expected; 1 finding about other processes of this host, above; 21.3 s in all");
    Scoreboard skipped({&shellPlan});
    skipped.Skipped("shell", "why");
    EXPECT_EQ(ReportSummary(skipped, 1), "0 of 1 wirings as expected, 1 skipped; 1.0 s in all");
}

TEST(Report, JsonTellsEverything) {
    const auto json = nlohmann::json::parse(ReportJson(MixedBoard(), 21.26, true));
    EXPECT_EQ(json["passed"], false);
    EXPECT_EQ(json["complete"], true);
    EXPECT_EQ(json["seconds"], 21.3);
    ASSERT_EQ(json["wirings"].size(), 3U);
    EXPECT_EQ(json["wirings"][0]["name"], "copy");
    EXPECT_EQ(json["wirings"][0]["verdict"], "found");
    EXPECT_EQ(json["wirings"][0]["expected"][0]["operationType"], "copy");
    EXPECT_EQ(json["wirings"][0]["expected"][1]["seconds"], 4.5);
    EXPECT_EQ(json["wirings"][0]["findings"][1]["wiring"], "bash (11)\n");
    EXPECT_EQ(json["wirings"][1]["verdict"], "missed");
    EXPECT_TRUE(json["wirings"][1]["expected"][0]["seconds"].is_null());
    EXPECT_EQ(json["wirings"][2]["verdict"], "silent");
    EXPECT_EQ(json["otherFindings"].size(), 1U);
    EXPECT_EQ(json["otherFindings"][0]["event"]["eventType"], "reverse-shell");
}

TEST(Report, JsonOfAnInterruptedRunIsNoSuccess) {
    Scoreboard board({&quietPlan});
    EXPECT_TRUE(board.Passed());
    const auto json = nlohmann::json::parse(ReportJson(board, 3, false));
    EXPECT_EQ(json["passed"], false);
    EXPECT_EQ(json["complete"], false);
}

TEST(Report, JsonHoldsWhateverBytesAReasonHas) {
    Scoreboard board({&shellPlan});
    board.NotStaged("shell", "\xff\"\n");
    const auto json = nlohmann::json::parse(ReportJson(board, 1, true));
    EXPECT_EQ(json["wirings"][0]["reason"], "\xEF\xBF\xBD\"\n");
}

TEST(Report, ListNamesEveryWiring) {
    const std::string list = ListText();
    for (const WiringPlan& plan : AllWirings()) {
        EXPECT_THAT(list, HasSubstr(plan.name + " "));
    }
}

TEST(Schedule, CountdownTellsTheNextOfEachScan) {
    const struct {
        double seconds;
        const char* text;
    } rows[] = {
        {0, "period scan in 20 s, short-command sweep in 1 s"},
        {1.5, "period scan in 19 s, short-command sweep in 10 s"},
        {12.2, "period scan in 8 s, short-command sweep in 9 s"},
        {20, "period scan at work, short-command sweep in 1 s"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(CountdownText(row.seconds), row.text) << row.seconds;
    }
}

}  // namespace
}  // namespace Host
