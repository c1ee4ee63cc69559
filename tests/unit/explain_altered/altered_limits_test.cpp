// Runs explain with a module in which four limits differ, to show that explain takes its limits from the module.
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

TEST_F(AlteredModule, InstantScanFollowsTheModulesLimitOfDescriptors) {
    const StagedShell shell;
    if (!shell.Waits()) {
        GTEST_SKIP() << "the kernel does not show where a process waits";
    }
    const Judgement judgement = JudgeByInstantScan(ReadScene(shell.Pid())).at(0);
    EXPECT_FALSE(judgement.reported);
    EXPECT_EQ(judgement.verdict, "although it recognises the wiring");
    EXPECT_THAT(TextsOf(judgement, Mark::no), ElementsAre(HasSubstr("no readable descriptors or more than 2, ")));
    EXPECT_THAT(TextsOf(judgement, Mark::note), Contains(HasSubstr("only within 7 s after it has first seen it")));
}

TEST_F(AlteredModule, ShortCommandWatcherFollowsTheModulesNumberOfCommands) {
    const ChildProcess child("/bin/cat", {"cat"});
    const Judgement judgement = JudgeByShortCommands(ReadScene(child.Pid()));
    EXPECT_THAT(TextsOf(judgement, Mark::note), Contains(HasSubstr("it must start at least 5 short commands")));
}

TEST_F(AlteredModule, PeriodScanFollowsTheModulesProgramNames) {
    const StagedShell shell;
    const ChildProcess child("/bin/cat", {"cat"});
    EXPECT_THAT(TextsOf(JudgeByPeriodScan(ReadScene(shell.Pid())), Mark::no),
                ElementsAre("its program file is called bash; only cat and sh are inspected"));
    EXPECT_THAT(TextsOf(JudgeByPeriodScan(ReadScene(child.Pid())), Mark::ok),
                Contains("its program file is called cat"));
}

}  // namespace
}  // namespace Host
