#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>

#include "host/program/check_command.h"
#include "host/program/check_kernel.h"
#include "host/program/check_report.h"
#include "host/program/check_rights.h"
#include "host/program/check_setup.h"
#include "host/program/check_stack.h"
#include "tests/support/temporary_directory.h"

namespace Host {
namespace {

using testing::HasSubstr;
using testing::MatchesRegex;
using testing::StartsWith;

TEST(CheckReport, OneLineACall) {
    CheckReport report;
    report.Ok("a", "b\nc");
    report.Limited("d", "e");
    EXPECT_FALSE(report.SomethingMissing());
    report.Missing("f", "g");
    EXPECT_TRUE(report.SomethingMissing());
    EXPECT_EQ(report.Text(), "OK      a: b\\nc\nLIMITED d: e\nMISSING f: g\n");
}

TEST(CheckRights, CapabilitiesAreReadFromStatus) {
    EXPECT_EQ(EffectiveCapabilities("Name:\tx\nCapPrm:\t00ff\nCapEff:\t000001ffffffffff\n"), 0x1ffffffffffU);
    EXPECT_EQ(EffectiveCapabilities("Name:\tCapEff: ff\n"), 0U);
}

TEST(CheckRights, HidepidIsReadFromTheMountThatCounts) {
    const struct {
        const char* mounts;
        const char* option;
    } rows[] = {
        {"proc /proc proc rw,nosuid 0 0\n", ""},
        {"proc /proc proc rw,hidepid=2,gid=4 0 0\n", "2"},
        {"proc /proc proc rw,hidepid=invisible 0 0\n", "invisible"},
        {"proc /jail/proc proc rw,hidepid=2 0 0\n", ""},
        {"proc /proc proc rw,hidepid=2 0 0\nproc /proc proc rw 0 0\n", ""},
        {"", ""},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(HidepidOption(row.mounts), row.option) << row.mounts;
    }
}

TEST(CheckShells, ListedShellsAreLookedUp) {
    const TemporaryDirectory directory;
    WriteFile(directory.Path("default_shells"), "# none\n/nowhere/sh\n");
    WriteFile(directory.Path("shells"), "/bin/sh\n");
    CheckReport report;
    const std::set<std::string> shells = CheckShellLists(directory.Path(), directory.Path("shells"), report);
    EXPECT_EQ(shells, std::set<std::string>{"/bin/sh"});
    EXPECT_FALSE(report.SomethingMissing());
    EXPECT_EQ(report.Text(), "OK      " + directory.Path("default_shells") +
                                 ": lists no shell that exists; passed over because they do not exist: /nowhere/sh\n"
                                 "OK      " +
                                 directory.Path("shells") +
                                 ": lists /bin/sh\n"
                                 "OK      shells: 1 to look after\n");
}

TEST(CheckShells, NoShellAtAllIsEssential) {
    const TemporaryDirectory directory;
    CheckReport report;
    EXPECT_TRUE(CheckShellLists(directory.Path(), directory.Path("shells"), report).empty());
    EXPECT_TRUE(report.SomethingMissing());
    EXPECT_THAT(report.Text(), HasSubstr("MISSING shells: neither list names a shell that exists"));
}

TEST(CheckShells, FlagsThatCannotBeReadAreNamed) {
    CheckReport report;
    CheckShellFlags({"/dev/null"}, report);
    EXPECT_THAT(report.Text(), StartsWith("LIMITED file flags: cannot be read of /dev/null: "));
}

TEST(CheckModule, AbsentModuleIsEssential) {
    CheckReport report;
    CheckModule("/nowhere/x.so", report);
    EXPECT_TRUE(report.SomethingMissing());
    EXPECT_THAT(report.Text(), StartsWith("MISSING module: module /nowhere/x.so cannot be found"));
}

TEST(CheckKernel, EachProbeGivesOneLineOfItsName) {
    const struct {
        void (*check)(CheckReport&);
        const char* line;
    } rows[] = {
        {CheckKernelStacks, "(OK     |LIMITED) kernel stacks: [^\n]+\n"},
        {CheckFanotify, "(OK     |LIMITED) fanotify: [^\n]+\n"},
        {CheckInotify, "(OK     |LIMITED|MISSING) inotify: [^\n]+\n"},
        {CheckOthersDescriptors, "(OK     |LIMITED|MISSING) open files of processes: [^\n]+\n"},
        {CheckHidepid, "(OK     |MISSING) hidepid: [^\n]+\n"},
        {CheckUser, "(OK     |LIMITED) user: [^\n]+\n"},
    };
    for (const auto& row : rows) {
        CheckReport report;
        row.check(report);
        EXPECT_THAT(report.Text(), MatchesRegex(row.line));
    }
}

TEST(CheckKernel, StackProbeLeavesNoChildBehind) {
    CheckReport report;
    CheckKernelStacks(report);
    errno = 0;
    EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1);
    EXPECT_EQ(errno, ECHILD);
}

TEST(CheckRights, UserWithoutRightsLacksThem) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "needs root, to become another user in a child";
    }
    const pid_t child = ::fork();
    if (child == 0) {
        CheckReport report;
        const bool changed = ::setuid(65534) == 0;
        CheckCapabilities(report);
        CheckOthersDescriptors(report);
        const bool told =
            report.Text().find("MISSING CAP_SYS_PTRACE") != std::string::npos &&
            report.Text().find("LIMITED CAP_NET_ADMIN") != std::string::npos &&
            report.Text().find("MISSING open files of processes: cannot be read of ") != std::string::npos;
        ::_exit(changed && told ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
}

TEST(CheckCommand, WrongConfigurationGivesTwoAndTheOtherLines) {
    const TemporaryDirectory directory;
    WriteFile(directory.Path("c"), "{\"log\":7}");
    Options options;
    options.command = Command::check;
    options.configFile = directory.Path("c");
    testing::internal::CaptureStdout();
    const int status = CheckCommand(options);
    const std::string text = testing::internal::GetCapturedStdout();
    EXPECT_EQ(status, 2);
    EXPECT_THAT(text, StartsWith("MISSING configuration: " + directory.Path("c") + ": log: found 7"));
    EXPECT_THAT(text, HasSubstr("process events: "));
}

TEST(CheckCommand, MissingModuleGivesOne) {
    Options options;
    options.command = Command::check;
    options.moduleFile = "/nowhere/x.so";
    testing::internal::CaptureStdout();
    const int status = CheckCommand(options);
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(status, 1);
}

}  // namespace
}  // namespace Host
