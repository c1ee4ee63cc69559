#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>

#include "host/check/confinement.h"
#include "host/check/kernel.h"
#include "host/check/kernel_stack.h"
#include "host/check/report.h"
#include "host/check/rights.h"
#include "host/check/setup.h"
#include "host/program/check_command.h"
#include "module/published.h"
#include "tests/support/emulation.h"
#include "tests/support/temporary_directory.h"

namespace Host {
namespace {

using testing::HasSubstr;
using testing::MatchesRegex;
using testing::StartsWith;

TEST(CheckReport, AddsOneLinePerCall) {
    CheckReport report;
    report.Ok("a", "b\nc");
    report.Limited("d", "e", "Do this");
    EXPECT_FALSE(report.SomethingMissing());
    report.Missing("f", "g", "Do that");
    EXPECT_TRUE(report.SomethingMissing());
    EXPECT_EQ(report.Text(), "OK      a: b\\nc\nLIMITED d: e. Do this\nMISSING f: g. Do that\n");
}

TEST(CheckReport, LackAddsNoLine) {
    CheckReport report;
    report.Lacks(Facility::inotify, "x");
    EXPECT_EQ(report.Text(), "");
    EXPECT_FALSE(report.SomethingMissing());
    EXPECT_TRUE(report.IsLacking(Facility::inotify));
    EXPECT_FALSE(report.IsLacking(Facility::fanotify));
}

TEST(CheckReport, ListsOneBlindDetectionPerLine) {
    CheckReport report;
    EXPECT_EQ(BlindLines(report, AgentConfig{}), "no detection is blind\n");
    report.Lacks(Facility::fanotify, "a\nb");
    report.Lacks(Facility::inotify, "c");
    EXPECT_EQ(BlindLines(report, AgentConfig{}),
              "blind: shell file protection, change: because c\n"
              "blind: shell file protection, flags: because a\\nb\n");
}

TEST(CheckRights, ReadsCapabilitiesFromStatus) {
    EXPECT_EQ(EffectiveCapabilities("Name:\tx\nCapPrm:\t00ff\nCapEff:\t000001ffffffffff\n"), 0x1ffffffffffU);
    EXPECT_EQ(EffectiveCapabilities("Name:\tCapEff: ff\n"), 0U);
}

TEST(CheckShells, ReturnsListedShellsThatExist) {
    const TemporaryDirectory directory;
    WriteFile(directory.Path("default_shells"), "# none\n/nowhere/sh\n");
    WriteFile(directory.Path("shells"), "/bin/sh\n");
    CheckReport report;
    const std::set<std::string> shells = CheckShellLists(directory.Path(), directory.Path("shells"), report);
    EXPECT_EQ(shells, std::set<std::string>{"/bin/sh"});
    EXPECT_FALSE(report.SomethingMissing());
    EXPECT_EQ(report.Text(), "OK      " + directory.Path("default_shells") +
                                 ": lists no shell that exists; ignored because they do not exist: /nowhere/sh\n"
                                 "OK      " +
                                 directory.Path("shells") +
                                 ": lists /bin/sh\n"
                                 "OK      shells: 1 found\n");
}

TEST(CheckShells, ReportsMissingIfNoListedShellExists) {
    const TemporaryDirectory directory;
    CheckReport report;
    EXPECT_TRUE(CheckShellLists(directory.Path(), directory.Path("shells"), report).empty());
    EXPECT_TRUE(report.SomethingMissing());
    EXPECT_THAT(report.Text(), HasSubstr("MISSING shells: neither list names a shell that exists"));
}

TEST(CheckShells, NamesShellsWithoutReadableFlags) {
    CheckReport report;
    CheckShellFlags({"/dev/null"}, report);
    EXPECT_THAT(report.Text(), StartsWith("LIMITED file flags: not readable for /dev/null: "));
    EXPECT_TRUE(report.IsLacking(Facility::fileFlags));
}

TEST(CheckModule, ReportsMissingIfThereIsNoModule) {
    CheckReport report;
    CheckModule("/nowhere/x.so", report);
    EXPECT_TRUE(report.SomethingMissing());
    EXPECT_THAT(report.Text(), StartsWith("MISSING module: cannot find the module /nowhere/x.so: "));
    EXPECT_THAT(report.Text(), HasSubstr(" with --module FILE. Without it the agent does not start\n"));
    EXPECT_TRUE(report.IsLacking(Facility::module));
}

TEST(CheckLocation, ReportsTheVariableThatTurnsTheSearchOff) {
    ::setenv(Published::locationVariable, "", 1);
    CheckReport report;
    CheckLocation(report);
    ::unsetenv(Published::locationVariable);
    EXPECT_TRUE(report.IsLacking(Facility::location));
    CheckReport without;
    CheckLocation(without);
    EXPECT_TRUE(without.Lacking().empty());
}

TEST(CheckKernel, EachCheckAddsOneLineWithItsName) {
    const struct {
        void (*check)(CheckReport&);
        const char* line;
    } rows[] = {
        {CheckKernelWaits, "(OK     |LIMITED) waits of processes: [^\n]+\n"},
        {CheckProcessEvents, "(OK     |LIMITED) process events: [^\n]+\n"},
        {CheckYama, "(OK     |LIMITED) Yama: [^\n]+\n"},
        {CheckLockdown, "OK      lockdown: [^\n]+\n"},
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

TEST(CheckKernel, DoesNotRequestProcessEventsInANamespaceWithoutThem) {
    CheckReport report;
    report.Lacks(Facility::processEvents, "x");
    CheckProcessEvents(report);
    EXPECT_THAT(report.Text(), StartsWith("LIMITED process events: not tried"));
    EXPECT_EQ(report.Lacking().size(), 1U);
}

// While an object exists, this process cannot open descriptors.
class NoDescriptors {
public:
    NoDescriptors() {
        ::getrlimit(RLIMIT_NOFILE, &before_);
        const rlimit none{0, before_.rlim_max};
        ::setrlimit(RLIMIT_NOFILE, &none);
    }
    ~NoDescriptors() { ::setrlimit(RLIMIT_NOFILE, &before_); }
    NoDescriptors(const NoDescriptors&) = delete;
    NoDescriptors& operator=(const NoDescriptors&) = delete;

private:
    rlimit before_{};
};

TEST(CheckKernel, ReportsAFacilityThatFailsAsLacking) {
    const struct {
        void (*check)(CheckReport&);
        Facility facility;
    } rows[] = {
        {CheckKernelWaits, Facility::kernelWaits},
        {CheckProcessEvents, Facility::processEvents},
        {CheckConnectionTables, Facility::connectionTables},
        {CheckInotify, Facility::inotify},
        {CheckFanotify, Facility::fanotify},
    };
    for (const auto& row : rows) {
        CheckReport report;
        {
            const NoDescriptors none;
            row.check(report);
        }
        EXPECT_TRUE(report.IsLacking(row.facility)) << report.Text();
        // An emulator may not implement the facility; it then returns another error first.
        if (!runsEmulated) {
            EXPECT_THAT(report.Text(), HasSubstr("Too many open files"));
        }
    }
}

TEST(CheckKernel, CheckOfWaitsLeavesNoChildProcess) {
    CheckReport report;
    CheckKernelWaits(report);
    errno = 0;
    EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1);
    EXPECT_EQ(errno, ECHILD);
}

TEST(CheckRights, ReportsMissingRightsOfAnUnprivilegedUser) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "needs root, to become another user in a child";
    }
    const pid_t child = ::fork();
    if (child == 0) {
        CheckReport report;
        const bool changed = ::setuid(65534) == 0;
        CheckCapabilities(report);
        CheckOthersDescriptors(report);
        const bool reported =
            report.Text().find("MISSING CAP_SYS_PTRACE") != std::string::npos &&
            report.Text().find("LIMITED CAP_NET_ADMIN") != std::string::npos &&
            report.Text().find("MISSING open files of processes: not readable for ") != std::string::npos &&
            report.IsLacking(Facility::processes) && report.IsLacking(Facility::descriptors);
        ::_exit(changed && reported ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
}

TEST(CheckCommand, ReturnsTwoAndPrintsAllLinesIfTheConfigurationIsInvalid) {
    const TemporaryDirectory directory;
    WriteFile(directory.Path("c"), "{\"log\":7}");
    Options options;
    options.command = Command::check;
    options.configFile = directory.Path("c");
    testing::internal::CaptureStdout();
    const int status = CheckCommand(options);
    const std::string text = testing::internal::GetCapturedStdout();
    EXPECT_EQ(status, 2);
    EXPECT_THAT(text, HasSubstr("\nblind: period scan: because the configuration is invalid"));
    EXPECT_THAT(text,
                StartsWith("MISSING configuration: " + directory.Path("c") + ": log: expected an object, found 7."));
    EXPECT_THAT(text, HasSubstr("process events: "));
}

TEST(CheckCommand, ReturnsOneIfTheModuleIsMissing) {
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
