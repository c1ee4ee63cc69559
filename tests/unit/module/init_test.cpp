#include <sys/stat.h>
#include <unistd.h>

#include "module/host_shells.h"
#include "module/published.h"
#include "module_fixture.h"
#include "shellfile/shell_baseline.h"

namespace {

class InitEntry : public ModuleTest {
protected:
    void SetUp() override {
        ModuleTest::SetUp();
        etc.emplace();
        SetSetting(Published::folderSetting, etc->Path());
    }

    // Creates a file and lists it as a shell.
    std::string AddShell(const std::string& name) {
        const std::string path = etc->Write(name, "#!/bin/true\n");
        shells += path + "\n";
        etc->Write("default_shells", shells);
        return path;
    }

    std::optional<TemporaryDirectory> etc;
    std::string shells;
};

TEST_F(InitEntry, CollectsListedShellsBothAsListedAndResolved) {
    const std::string target = AddShell("real-shell");
    const std::string link = etc->Path("linked-shell");
    ASSERT_EQ(symlink("real-shell", link.c_str()), 0);
    etc->Write("default_shells", link + "\n/no/such/shell\n");

    EXPECT_EQ(InitModule(), 1);

    EXPECT_TRUE(shellPaths.contains(link));
    EXPECT_TRUE(shellPaths.contains(std::filesystem::canonical(target)));
    EXPECT_FALSE(shellPaths.contains("/no/such/shell"));
    EXPECT_FALSE(shellPaths.contains(""));
}

TEST_F(InitEntry, RecordsTheBaselineOfTheShells) {
    AddShell("own-shell");
    EXPECT_EQ(InitModule(), 1);
    EXPECT_TRUE(IsShellByHash(etc->Write("copy", "#!/bin/true\n")));
}

TEST_F(InitEntry, RecordsTheBaselineAfterTheStatusReports) {
    const std::string own = etc->Write("own-shell", "#!/bin/true\n# of this test only\n");
    etc->Write("default_shells", own + "\n");
    std::vector<std::string> calls;
    std::vector<bool> baselines;
    Fake::TheAgent().atEachCall = [&](const std::string& call) {
        calls.push_back(call);
        baselines.push_back(IsShellByHash(own));
    };
    EXPECT_EQ(InitModule(), 1);
    ASSERT_GE(calls.size(), 3U);
    EXPECT_EQ(calls[0], Line("status", tampering, "off"));
    EXPECT_EQ(calls[1], Line("status", reverseShell, "off"));
    EXPECT_FALSE(baselines[1]);
    EXPECT_EQ(calls.back(), "log Shell detection module init success.");
    EXPECT_TRUE(baselines.back());
}

TEST_F(InitEntry, ReadsTheHostsListAndTheAgents) {
    const std::string own = AddShell("own-shell");
    EXPECT_EQ(InitModule(), 1);
    EXPECT_TRUE(shellPaths.contains(own));
    if (access("/etc/shells", R_OK) == 0 && access("/bin/sh", X_OK) == 0) {
        EXPECT_TRUE(shellPaths.contains("/bin/sh"));
    }
}

TEST_F(InitEntry, ReportsBothFunctionsAsStoppedAndLogsSuccess) {
    AddShell("own-shell");
    EXPECT_EQ(InitModule(), 1);
    EXPECT_EQ(TakeStatuses(), (std::vector<Fake::StatusReport>{{tampering, false, ""}, {reverseShell, false, ""}}));
    EXPECT_EQ(Fake::TheAgent().LogTexts(LOG_LEVEL_LIFECYCLE),
              std::vector<std::string>{"Shell detection module init success."});
}

TEST_F(InitEntry, StartsNothing) {
    AddShell("own-shell");
    InitModule();
    EXPECT_TRUE(Fake::TheAgent().tasks.empty());
    EXPECT_TRUE(Fake::TheAgent().callbacks.empty());
    EXPECT_EQ(moduleRunning, 0);
}

TEST_F(InitEntry, TreatsAMissingSettingAsAnEmptyDirectory) {
    Fake::ResetAgent();
    if (access("/etc/shells", R_OK) != 0) {
        GTEST_SKIP() << "needs a readable /etc/shells";
    }
    EXPECT_EQ(InitModule(), 1);
    TavUtils::Config& config = TavUtils::Config::GetInstance();
    const std::lock_guard<TavUtils::Config> guard(config);
    EXPECT_TRUE(config.GetConfigMap<std::string>().empty()) << "reading a setting must not create it";
}

TEST_F(InitEntry, FailsSilentlyIfMemoryRunsOut) {
    AddShell("own-shell");
    shellPaths = {"/left/from/before"};
    FailingCalls::FailAllocation(1);
    EXPECT_EQ(InitModule(), 0);
    EXPECT_TRUE(shellPaths.empty());
    EXPECT_TRUE(Fake::TheAgent().statuses.empty());
    EXPECT_TRUE(Fake::TheAgent().log.empty());
}

TEST_F(InitEntry, ResolvesNoPathsIfMemoryRunsOut) {
    std::set<std::string> paths;
    FailingCalls::FailAllocation(1);
    EXPECT_FALSE(ResolveShellPaths({AddShell("own-shell")}, paths));
    EXPECT_TRUE(paths.empty());
    EXPECT_TRUE(ResolveShellPaths({AddShell("own-shell")}, paths));
    EXPECT_FALSE(paths.empty());
}

TEST_F(InitEntry, HasTheInodesOfTheSshServerIfMemoryRunsOut) {
    AddShell("own-shell");
    struct stat info {};
    ASSERT_EQ(stat(etc->Write("bin/sshd", "1").c_str(), &info), 0);
    Fake::TheAgent().environment["PATH"] = etc->Path("bin");
    sshdInodes = {1};
    FailingCalls::FailAllocation(1);
    EXPECT_EQ(InitModule(), 0);
    EXPECT_EQ(sshdInodes, std::set<unsigned long>{static_cast<unsigned long>(info.st_ino)});
}

TEST_F(InitEntry, CollectsTheInodesOfTheSshServerOnPath) {
    AddShell("own-shell");
    const std::string first = etc->Write("one/sshd", "1");
    const std::string second = etc->Write("two/sshd", "2");
    Fake::TheAgent().environment["PATH"] = etc->Path("one") + ":" + etc->Path("none") + "::" + etc->Path("two");
    sshdInodes = {1};

    EXPECT_EQ(InitModule(), 1);

    std::set<unsigned long> expected;
    std::set<std::string> lines;
    for (const std::string& path : {first, second}) {
        struct stat info {};
        ASSERT_EQ(stat(path.c_str(), &info), 0);
        expected.insert(static_cast<unsigned long>(info.st_ino));
        lines.insert("[cmdPath=" + path + " inode=" + std::to_string(info.st_ino) + "]");
    }
    EXPECT_EQ(sshdInodes, expected);
    std::set<std::string> logged;
    for (const Fake::LogLine& line : Fake::TheAgent().log) {
        if (line.text.starts_with("[cmdPath=")) {
            EXPECT_EQ(line.level, LOG_LEVEL_DETAIL);
            logged.insert(line.text);
        }
    }
    EXPECT_EQ(logged, lines);
}

TEST_F(InitEntry, ForgetsTheFormerSshServerBeforeItLooksForTheCurrentOne) {
    AddShell("own-shell");
    const std::string current = etc->Write("bin/sshd", "1");
    Fake::TheAgent().environment["PATH"] = etc->Path("bin");
    sshdInodes = {1};
    std::vector<size_t> knownAtFinding;
    Fake::TheAgent().atEachCall = [&](const std::string& call) {
        if (call.starts_with("log [cmdPath=" + current)) {
            knownAtFinding.push_back(sshdInodes.size());
        }
    };
    EXPECT_EQ(InitModule(), 1);
    EXPECT_EQ(knownAtFinding, std::vector<size_t>{0});
    EXPECT_EQ(sshdInodes.size(), 1U);
}

TEST_F(InitEntry, FindsNoSshServerWithoutPath) {
    AddShell("own-shell");
    sshdInodes = {1};
    EXPECT_EQ(InitModule(), 1);
    EXPECT_TRUE(sshdInodes.empty());
}

TEST_F(InitEntry, ReplacesEarlierResultsWhenRunAgain) {
    const std::string gone = AddShell("short-lived");
    EXPECT_EQ(InitModule(), 1);
    EXPECT_TRUE(shellPaths.contains(gone));
    shells.clear();
    AddShell("own-shell");
    EXPECT_EQ(InitModule(), 1);
    EXPECT_FALSE(shellPaths.contains(gone));
}

// Mounts a file over /etc/shells, so that the host's list has no existing shell.
TEST_F(InitEntry, FailsSilentlyIfNoShellResolves) {
    if (!MayMount()) {
        GTEST_SKIP() << "needs the right to mount over /etc/shells (root)";
    }
    const FileOverlay emptyList("/etc/shells", "# no shell\n/no/such/shell\n");
    EXPECT_EQ(InitModule(), 0);
    EXPECT_TRUE(shellPaths.empty());
    EXPECT_TRUE(Fake::TheAgent().statuses.empty());
    EXPECT_TRUE(Fake::TheAgent().log.empty());
}

}  // namespace
