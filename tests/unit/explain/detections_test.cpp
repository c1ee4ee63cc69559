#include "host/explain/detections.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <stdexcept>

#include "host/explain/module_in_process.h"
#include "tests/support/child_process.h"
#include "tests/support/staged_shell.h"
#include "tests/support/temporary_directory.h"

namespace Host {
namespace {

using ServiceTests::ChildProcess;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

class Detections : public testing::Test {
protected:
    const ModuleInProcess module_{R"({"abnormalShell":{},"reverseShell":{}})"};
    const TemporaryDirectory directory_;
};

TEST_F(Detections, DoesNotReportAShellAsItsOwnCopy) {
    const ChildProcess child("/bin/bash", {"bash"});
    const Judgement judgement = JudgeByShellFile(ReadScene(child.Pid()));
    EXPECT_FALSE(judgement.reported);
    ASSERT_EQ(judgement.reasons.size(), 1U);
    EXPECT_THAT(judgement.reasons[0].text, HasSubstr("is one of the host's shells: "));
}

TEST_F(Detections, ReportsACopyUnderAnotherNameWithTheShell) {
    std::filesystem::copy_file("/bin/bash", directory_.Path("updater"));
    const ChildProcess child(directory_.Path("updater"), {"updater"});
    const Judgement judgement = JudgeByShellFile(ReadScene(child.Pid()));
    EXPECT_TRUE(judgement.reported);
    EXPECT_THAT(judgement.verdict, HasSubstr("as a copy of " + std::filesystem::canonical("/bin/bash").string()));
    for (const auto& reason : judgement.reasons) {
        EXPECT_EQ(reason.mark, Mark::ok) << reason.text;
    }
}

TEST_F(Detections, RefusesAnotherProgramBySizeOrContent) {
    std::filesystem::copy_file("/bin/bash", directory_.Path("altered"));
    std::fstream(directory_.Path("altered"), std::ios::in | std::ios::out | std::ios::ate).seekp(-1, std::ios::end)
        << '?';
    const struct {
        std::string program;
        const char* refusal;
    } rows[] = {{"/bin/cat", "not have the size of a shell"},
                {directory_.Path("altered"), "not have the content of a shell"}};
    for (const auto& row : rows) {
        const ChildProcess child(row.program, {"x"});
        const Judgement judgement = JudgeByShellFile(ReadScene(child.Pid()));
        EXPECT_FALSE(judgement.reported);
        size_t refusals = 0;
        for (const auto& reason : judgement.reasons) {
            if (reason.mark == Mark::no) {
                EXPECT_THAT(reason.text, HasSubstr(row.refusal));
                ++refusals;
            }
        }
        EXPECT_EQ(refusals, 1U) << row.program;
    }
}

std::vector<std::string> TextsOf(const Judgement& judgement, Mark mark) {
    std::vector<std::string> texts;
    for (const Reason& reason : judgement.reasons) {
        if (reason.mark == mark) {
            texts.push_back(reason.text);
        }
    }
    return texts;
}

TEST_F(Detections, ReportsAShellOnAConnectionWithTheLimitsOfTheModule) {
    const StagedShell shell;
    if (!shell.Waits()) {
        GTEST_SKIP() << "the kernel does not show where a process waits";
    }
    const std::vector<Judgement> judgements = JudgeByInstantScan(ReadScene(shell.Pid()));
    const Judgement& judgement = judgements.at(0);
    EXPECT_TRUE(judgement.reported);
    EXPECT_THAT(judgement.verdict, HasSubstr("with the connection 127.0.0.1:"));
    EXPECT_THAT(TextsOf(judgement, Mark::no), IsEmpty());
    EXPECT_THAT(TextsOf(judgement, Mark::ok), Contains(HasSubstr("descriptors, at most 401 are allowed")));
    EXPECT_THAT(TextsOf(judgement, Mark::ok), Contains(HasSubstr("it waits for input from socket ")));
    EXPECT_THAT(TextsOf(judgement, Mark::ok), Not(Contains(HasSubstr("socket 0 "))));
    EXPECT_THAT(TextsOf(judgement, Mark::note), Contains(HasSubstr("only within 3 s after it has first seen it")));
    for (size_t other = 1; other < judgements.size(); ++other) {
        EXPECT_FALSE(judgements[other].reported);
        EXPECT_THAT(TextsOf(judgements[other], Mark::no),
                    ElementsAre("not tested, the scan has already recognised: " + judgement.detection));
    }
}

TEST_F(Detections, CountsARepeatedAlarmAsAReport) {
    const StagedShell shell;
    if (!shell.Waits()) {
        GTEST_SKIP() << "the kernel does not show where a process waits";
    }
    const Scene scene = ReadScene(shell.Pid());
    ASSERT_TRUE(JudgeByInstantScan(scene).at(0).reported);
    const Judgement again = JudgeByInstantScan(scene).at(0);
    EXPECT_THAT(TextsOf(again, Mark::note), Contains(HasSubstr("already raised above")));
    EXPECT_THAT(TextsOf(again, Mark::no), IsEmpty());
    EXPECT_TRUE(again.reported);
}

TEST_F(Detections, ShortCommandWatcherListsItsRequirementsAsNotes) {
    const ChildProcess child("/bin/cat", {"cat"});
    const Judgement judgement = JudgeByShortCommands(ReadScene(child.Pid()));
    EXPECT_FALSE(judgement.reported);
    EXPECT_THAT(TextsOf(judgement, Mark::note), ElementsAre(HasSubstr("at least 200 ms after the process"),
                                                            HasSubstr("at least 200 ms after the previous one"),
                                                            HasSubstr("it must start at least 2 short commands")));
    EXPECT_THAT(TextsOf(judgement, Mark::no),
                ElementsAre(HasSubstr("it does not wait for input from an internet socket")));
}

TEST_F(Detections, PeriodScanNamesTheProgramsThatItInspects) {
    const ChildProcess child("/bin/cat", {"cat"});
    const StagedShell connection;
    const Judgement judgement = JudgeByPeriodScan(ReadScene(child.Pid()));
    EXPECT_FALSE(judgement.reported);
    EXPECT_THAT(TextsOf(judgement, Mark::no),
                ElementsAre("its program file is called cat; only bash and sh are inspected"));
}

TEST(ModuleInProcess, RefusesAnInvalidConfiguration) {
    EXPECT_THROW(ModuleInProcess("no JSON"), std::runtime_error);
}

}  // namespace
}  // namespace Host
