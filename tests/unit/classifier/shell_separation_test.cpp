#include "classifier_fixture.h"

namespace {

using ShellSeparation = ClassifierTest;

TEST_F(ShellSeparation, CollectsShellInodesAndSkipsMissingShells) {
    const std::string other = folder.Write("bin/dash", "another shell");
    const ReverseShell detector({folder.Path("bin/missing"), shell, other}, {}, 0, false, 10000);
    EXPECT_EQ(detector.shellInodes, (std::set<unsigned long>{InodeOf(shell), InodeOf(other)}));
    EXPECT_TRUE(Log().empty());
}

TEST_F(ShellSeparation, FollowsALinkToAShell) {
    const std::string link = folder.Path("bin/sh");
    std::filesystem::create_symlink(shell, link);
    const ReverseShell detector({link}, {}, 0, false, 10000);
    EXPECT_EQ(detector.shellInodes, std::set<unsigned long>{InodeOf(shell)});
}

TEST_F(ShellSeparation, KeepsTheArgumentsOfThePass) {
    const ReverseShell detector({"/no/shell"}, {7, 5, 7}, 1234, true, 99);
    EXPECT_EQ(detector.shells, std::set<std::string>{"/no/shell"});
    EXPECT_EQ(detector.pids, (std::vector<int>{7, 5, 7}));
    EXPECT_EQ(detector.minSockTime, 1234);
    EXPECT_TRUE(detector.sockTableRefreshed);
    EXPECT_EQ(detector.max, 99U);
    EXPECT_EQ(detector.edgeNum, 0U);
    EXPECT_TRUE(detector.procs.empty());
    EXPECT_TRUE(detector.bashPids.empty());
}

TEST_F(ShellSeparation, RecognizesAShellByItsPath) {
    AddShell(300, 200);
    ReverseShell detector = Detector({});
    detector.shellInodes.clear();
    EXPECT_TRUE(detector.IsBashProcess(300));
}

TEST_F(ShellSeparation, RecognizesAShellBehindALink) {
    const std::string link = folder.Path("bin/sh");
    std::filesystem::create_symlink(shell, link);
    AddProcess(300, 200, link, "sh");
    ReverseShell detector = Detector({});
    detector.shellInodes.clear();
    EXPECT_TRUE(detector.IsBashProcess(300));
}

TEST_F(ShellSeparation, RecognizesAHardLinkByItsInode) {
    const std::string tool = folder.Path("tool");
    std::filesystem::create_hard_link(shell, tool);
    AddProcess(300, 200, tool, "tool");
    EXPECT_TRUE(Detector({}).IsBashProcess(300));
}

TEST_F(ShellSeparation, RecognizesACopyByItsContent) {
    AddProcess(300, 200, folder.Write("tool", "a shell"), "tool");
    const ReverseShell detector = Detector({});
    EXPECT_FALSE(detector.IsBashProcess(300)) << "no baseline was taken";
    InitShellsHashSize(shellPaths);
    EXPECT_TRUE(detector.IsBashProcess(300));
}

TEST_F(ShellSeparation, RejectsOtherPrograms) {
    InitShellsHashSize(shellPaths);
    AddProcess(300, 200, folder.Write("tool", "a shelf"), "bash -i");
    EXPECT_FALSE(Detector({}).IsBashProcess(300));
}

TEST_F(ShellSeparation, RejectsAProcessWithoutAReadableProgram) {
    proc->Add({.pid = 300, .ppid = 200, .exe = "", .cmdline = Arguments(shell + " -i")});
    AddProcess(301, 200, folder.Path("removed"), shell + " -i");
    const ReverseShell detector = Detector({});
    EXPECT_FALSE(detector.IsBashProcess(300)) << "no link";
    EXPECT_FALSE(detector.IsBashProcess(301)) << "link to nothing";
    EXPECT_FALSE(detector.IsBashProcess(302)) << "no process";
}

TEST_F(ShellSeparation, RejectsAProgramThatDoesNotExist) {
    const ReverseShell detector = Detector({});
    EXPECT_FALSE(detector.IsShellProgram(folder.Path("missing")));
    EXPECT_FALSE(detector.IsShellProgram(""));
}

TEST_F(ShellSeparation, ReadsTheProgramOfAProcessAfterThePause) {
    AddProcess(300, 200, folder.Write("tool", "no shell"), "tool");
    ReverseShell detector = Detector({300});
    TimeRecorder::AtEachPause([this](auto...) {
        Remove(300);
        AddShell(300, 200);
    });
    detector.SeparateBashPids();
    EXPECT_EQ(detector.bashPids, std::vector<int>{300});
}

TEST_F(ShellSeparation, KeepsTheOrderOfThePids) {
    const std::string other = folder.Write("tool", "no shell");
    AddShell(305, 200);
    AddProcess(301, 200, other, "tool");
    AddShell(303, 200);
    AddProcess(304, 200, other, "tool");
    ReverseShell detector = Detector({305, 301, 303, 309, 304});
    detector.bashPids = {1, 2};
    detector.SeparateBashPids();
    EXPECT_EQ(detector.bashPids, (std::vector<int>{305, 303}));
    EXPECT_EQ(detector.pids, (std::vector<int>{301, 309, 304}));
}

TEST_F(ShellSeparation, PausesForEachPid) {
    AddShell(300, 200);
    ReverseShell detector = Detector({300, 301, 302});
    detector.SeparateBashPids();
    EXPECT_EQ(TimeRecorder::Pauses(), PauseList(3, microseconds(500)));
}

TEST_F(ShellSeparation, DropsThePidsAfterAStop) {
    for (const int pid : {300, 301, 302, 303}) {
        AddShell(pid, 200);
    }
    Remove(301);
    ReverseShell detector = Detector({300, 301, 302, 303});
    StopAtPause(2);
    detector.SeparateBashPids();
    EXPECT_EQ(detector.bashPids, std::vector<int>{300});
    EXPECT_EQ(detector.pids, std::vector<int>{301});
    EXPECT_EQ(Log(), std::vector<std::string>{stopped});
    EXPECT_EQ(TimeRecorder::Pauses().size(), 2U);
}

}  // namespace
