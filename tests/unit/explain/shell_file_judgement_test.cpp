#include "host/explain/shell_file_judgement.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <stdexcept>

#include "host/explain/module_in_process.h"
#include "tests/support/child_process.h"
#include "tests/support/temporary_directory.h"

namespace Host {
namespace {

using ServiceTests::ChildProcess;
using testing::HasSubstr;

class ShellFileJudgement : public testing::Test {
protected:
    const ModuleInProcess module_{R"({"abnormalShell":{}})"};
    const TemporaryDirectory directory_;
};

TEST_F(ShellFileJudgement, ShellItselfIsNoCopy) {
    const ChildProcess child("/bin/bash", {"bash"});
    const Judgement judgement = JudgeByShellFile(ReadScene(child.Pid()));
    EXPECT_FALSE(judgement.reported);
    ASSERT_EQ(judgement.tests.size(), 1U);
    EXPECT_THAT(judgement.tests[0].text, HasSubstr("is one of the host's shells: "));
}

TEST_F(ShellFileJudgement, CopyUnderAnotherNameIsReportedWithTheShell) {
    std::filesystem::copy_file("/bin/bash", directory_.Path("updater"));
    const ChildProcess child(directory_.Path("updater"), {"updater"});
    const Judgement judgement = JudgeByShellFile(ReadScene(child.Pid()));
    EXPECT_TRUE(judgement.reported);
    EXPECT_THAT(judgement.verdict, HasSubstr("as a copy of " + std::filesystem::canonical("/bin/bash").string()));
    for (const auto& test : judgement.tests) {
        EXPECT_EQ(test.mark, Mark::ok) << test.text;
    }
}

TEST_F(ShellFileJudgement, OtherProgramFailsByItsSizeOrItsContent) {
    std::filesystem::copy_file("/bin/bash", directory_.Path("altered"));
    std::fstream(directory_.Path("altered"), std::ios::in | std::ios::out | std::ios::ate).seekp(-1, std::ios::end)
        << '?';
    const struct {
        std::string program;
        const char* reason;
    } rows[] = {{"/bin/cat", "no shell is as long as it is"}, {directory_.Path("altered"), "the content of no shell"}};
    for (const auto& row : rows) {
        const ChildProcess child(row.program, {"x"});
        const Judgement judgement = JudgeByShellFile(ReadScene(child.Pid()));
        EXPECT_FALSE(judgement.reported);
        size_t refusals = 0;
        for (const auto& test : judgement.tests) {
            if (test.mark == Mark::no) {
                EXPECT_THAT(test.text, HasSubstr(row.reason));
                ++refusals;
            }
        }
        EXPECT_EQ(refusals, 1U) << row.program;
    }
}

TEST(ModuleInProcess, ConfigurationThatIsNoneIsRefused) {
    EXPECT_THROW(ModuleInProcess("no JSON"), std::runtime_error);
}

}  // namespace
}  // namespace Host
