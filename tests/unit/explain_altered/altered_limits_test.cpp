// The same questions as in tests/unit/explain, to a module in which four limits are others: what explain says follows.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/explain/detections.h"
#include "host/explain/module_in_process.h"
#include "tests/support/child_process.h"
#include "tests/support/staged_shell.h"

namespace Host {
namespace {

using ServiceTests::ChildProcess;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;

class AlteredModule : public testing::Test {
protected:
    static std::vector<std::string> TextsOf(const Judgement& judgement, Mark mark) {
        std::vector<std::string> texts;
        for (const Reason& reason : judgement.reasons) {
            if (reason.mark == mark) {
                texts.push_back(reason.text);
            }
        }
        return texts;
    }

    const ModuleInProcess module_{R"({"abnormalShell":{},"reverseShell":{}})"};
};

TEST_F(AlteredModule, ParentWithMoreDescriptorsThanItAllowsSilencesTheInstantScan) {
    const StagedShell shell;
    if (!shell.Waits()) {
        GTEST_SKIP() << "the kernel does not show where a process waits";
    }
    const Judgement judgement = JudgeByInstantScan(ReadScene(shell.Pid())).at(0);
    EXPECT_FALSE(judgement.reported);
    EXPECT_EQ(judgement.verdict, "though it finds it");
    EXPECT_THAT(TextsOf(judgement, Mark::no), ElementsAre(HasSubstr("shows no descriptors or more than 2, ")));
    EXPECT_THAT(TextsOf(judgement, Mark::note), Contains(HasSubstr("first seen at most 7 s before the look")));
}

TEST_F(AlteredModule, NumberOfShortCommandsIsTheModules) {
    const ChildProcess child("/bin/cat", {"cat"});
    const Judgement judgement = JudgeByShortCommands(ReadScene(child.Pid()));
    EXPECT_THAT(TextsOf(judgement, Mark::note), Contains(HasSubstr("it takes 5 short commands")));
}

TEST_F(AlteredModule, NamesOfThePeriodScanAreTheModules) {
    const StagedShell shell;
    const ChildProcess child("/bin/cat", {"cat"});
    EXPECT_THAT(TextsOf(JudgeByPeriodScan(ReadScene(shell.Pid())), Mark::no),
                ElementsAre("its program file is called bash, and only cat and sh are looked at"));
    EXPECT_THAT(TextsOf(JudgeByPeriodScan(ReadScene(child.Pid())), Mark::ok),
                Contains("its program file is called cat"));
}

}  // namespace
}  // namespace Host
