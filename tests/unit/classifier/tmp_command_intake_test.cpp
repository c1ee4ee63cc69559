#include <unistd.h>

#include "tmp_command_fixture.h"

namespace {

using namespace std::chrono_literals;
using std::chrono::nanoseconds;

constexpr const char* commandWords[] = {
    "passwd", "pwd", "ifconfig", "ls",   "ps",    "time",  "chmod", "cat",
    "touch",  "cd",  "grep",     "find", "chown", "chgrp", "gcc",   "sleep",
};

class TmpCommandIntake : public TmpCommandTest {
protected:
    void SetUp() override {
        TmpCommandTest::SetUp();
        if (IsSkipped()) {
            return;
        }
        ls = folder.Write("bin/ls", "a program");
        Fake::TheAgent().environment["PATH"] = folder.Path("bin");
        InitTmpCommandPaths({});
        tree->Add({.pid = parent, .ppid = 1, .exe = "/opt/app/server"});
    }

    void RunLs(int pid, int ppid, unsigned long long timestamp, const std::string& cmdline = "") {
        AddCommand(pid, ppid, ls, cmdline);
        Exec(pid, timestamp);
    }

    // The pauses of reading a command line of one block, then those for the status lines up to the parent's pid.
    static std::vector<nanoseconds> ReadingPauses(size_t cmdlineBytes, size_t statusLines) {
        std::vector<nanoseconds> pauses(cmdlineBytes == 0 ? 0 : 1, 1ms);
        pauses.insert(pauses.end(), cmdlineBytes + statusLines, 500us);
        return pauses;
    }

    std::string ls;
};

TEST_F(TmpCommandIntake, AcceptsTheSixteenCommandsOnPath) {
    std::string other;
    for (const char* word : commandWords) {
        folder.Write(std::string("bin/") + word, "a program");
    }
    for (const char* word : {"id", "bash", "sh", "python3", "ls.old", "LS", "echo", "kill"}) {
        folder.Write(std::string("bin/") + word, "a program");
    }
    ASSERT_TRUE(InitTmpCommandPaths({}));
    int pid = 600;
    for (const char* word : commandWords) {
        AddCommand(++pid, parent, folder.Path(std::string("bin/") + word), "");
        Exec(pid, 1);
        ASSERT_EQ(tmpProcMap[parent].procList.size(), static_cast<size_t>(pid - 600)) << word;
        EXPECT_EQ(tmpProcMap[parent].procList.back().path, folder.Path(std::string("bin/") + word));
    }
    ASSERT_EQ(pid, 616);
    for (const char* word : {"id", "bash", "sh", "python3", "ls.old", "LS", "echo", "kill"}) {
        AddCommand(++pid, parent, folder.Path(std::string("bin/") + word), "");
        Exec(pid, 1);
        EXPECT_EQ(tmpProcMap[parent].procList.size(), 16U) << word;
    }
}

TEST_F(TmpCommandIntake, AcceptsEveryFileOfACommandsNameAndTheTargetsOfLinks) {
    const std::string box = folder.Write("lib/busybox", "a program");
    const std::string cat = folder.Write("sbin/cat", "a program");
    std::filesystem::create_symlink(box, folder.Path("bin/cat"));
    Fake::TheAgent().environment["PATH"] = folder.Path("bin") + ":" + folder.Path("sbin");
    ASSERT_TRUE(InitTmpCommandPaths({}));
    int pid = 600;
    for (const std::string& path : {box, cat}) {
        AddCommand(++pid, parent, path, "");
        Exec(pid, 1);
    }
    EXPECT_EQ(tmpProcMap[parent].procList.size(), 2U);
    AddCommand(++pid, parent, folder.Path("bin/cat"), "");
    Exec(pid, 1);
    EXPECT_EQ(tmpProcMap[parent].procList.size(), 2U) << "the link itself is not a program path";
}

TEST_F(TmpCommandIntake, AcceptsTheGivenShells) {
    Fake::TheAgent().environment.clear();
    EXPECT_TRUE(InitTmpCommandPaths({"/bin/sh", "/usr/bin/dash"}));
    int pid = 600;
    for (const char* path : {"/bin/sh", "/usr/bin/dash", "/usr/bin/bash", "sh"}) {
        AddCommand(++pid, parent, path, "");
        Exec(pid, 1);
    }
    ASSERT_EQ(tmpProcMap[parent].procList.size(), 2U);
    EXPECT_EQ(tmpProcMap[parent].procList[1].path, "/usr/bin/dash");
}

TEST_F(TmpCommandIntake, AcceptsAShellStartedByAShell) {
    InitTmpCommandPaths({"/usr/bin/bash"});
    tree->Add({.pid = 550, .ppid = 540, .exe = "/usr/bin/bash"});
    AddCommand(601, 550, "/usr/bin/bash", std::string("bash\0-i\0", 8));
    Exec(601, 1);
    ASSERT_TRUE(tmpProcMap.contains(550));
    EXPECT_EQ(tmpProcMap[550].procList.at(0).cmdline, "bash -i");
}

TEST_F(TmpCommandIntake, AcceptsNothingWithoutPathAndShells) {
    Fake::TheAgent().environment.clear();
    EXPECT_FALSE(InitTmpCommandPaths({}));
    RunLs(601, parent, 1);
    EXPECT_TRUE(tmpProcMap.empty()) << "the commands of SetUp are cleared";
}

TEST_F(TmpCommandIntake, RecordsProcessCommandAndTime) {
    KernelClocks::Set(20s, 7s + 5ns);
    RunLs(601, parent, 19 * second + 3, std::string("ls\0-l\0/tmp\0", 11));
    ASSERT_EQ(tmpProcMap.size(), 1U);
    const TmpProcListInfo& info = tmpProcMap[parent];
    EXPECT_FALSE(info.judged);
    EXPECT_FALSE(info.isRshell);
    ASSERT_EQ(info.procList.size(), 1U);
    EXPECT_EQ(info.procList[0].pid, 601);
    EXPECT_EQ(info.procList[0].path, ls);
    EXPECT_EQ(info.procList[0].cmdline, "ls -l /tmp");
    EXPECT_EQ(info.procList[0].timestamp, 19 * second + 3);
    EXPECT_EQ(info.procList[0].suspended, 7 * second + 5);
}

TEST_F(TmpCommandIntake, RecordsCommandsByParentInOrder) {
    tree->Add({.pid = 400, .ppid = 1, .exe = "/opt/other"});
    RunLs(603, parent, 1);
    RunLs(601, parent, 2);
    RunLs(602, 400, 3);
    ASSERT_EQ(tmpProcMap.size(), 2U);
    ASSERT_EQ(tmpProcMap[parent].procList.size(), 2U);
    EXPECT_EQ(tmpProcMap[parent].procList[0].pid, 603);
    EXPECT_EQ(tmpProcMap[parent].procList[1].pid, 601);
    EXPECT_EQ(tmpProcMap[400].procList.at(0).pid, 602);
}

TEST_F(TmpCommandIntake, RecordsTheProgramForAnEmptyCommandLine) {
    RunLs(601, parent, 1);
    EXPECT_EQ(tmpProcMap[parent].procList.at(0).cmdline, ls);
}

TEST_F(TmpCommandIntake, IgnoresAllButExecEvents) {
    OnTmpProcEvent(nullptr);
    AddCommand(601, parent, ls, "ls");
    proc_event event = ExecEvent(601, 1);
    using What = decltype(event.what);
    for (const What what : {What::PROC_EVENT_NONE, What::PROC_EVENT_FORK, What::PROC_EVENT_UID, What::PROC_EVENT_GID,
                            What::PROC_EVENT_SID, What::PROC_EVENT_PTRACE, What::PROC_EVENT_COMM,
                            What::PROC_EVENT_COREDUMP, What::PROC_EVENT_EXIT}) {
        event.what = what;
        OnTmpProcEvent(&event);
    }
    EXPECT_TRUE(tmpProcMap.empty());
    EXPECT_TRUE(TimeRecorder::Pauses().empty());
    EXPECT_TRUE(Fake::TheAgent().log.empty());
}

TEST_F(TmpCommandIntake, IgnoresTheModulesOwnProcessWithoutReading) {
    RunLs(getpid(), parent, 1, "ls");
    EXPECT_TRUE(tmpProcMap.empty());
    EXPECT_TRUE(TimeRecorder::Pauses().empty());
    EXPECT_EQ(Details(), std::vector<std::string>{"Match current process.[pid=" + std::to_string(getpid()) + "]"});
}

TEST_F(TmpCommandIntake, IgnoresAProcessWithoutAProgramBeforeReadingItsCommandLine) {
    AddCommand(601, parent, "", "ls");
    Exec(601, 1);
    Exec(699, 1);
    EXPECT_TRUE(tmpProcMap.empty());
    EXPECT_TRUE(TimeRecorder::Pauses().empty());
    EXPECT_TRUE(Fake::TheAgent().log.empty());
}

TEST_F(TmpCommandIntake, PausesPerByteOfTheCommandLineOfEveryProgram) {
    for (const size_t bytes : {size_t{0}, size_t{1}, size_t{20}, size_t{2000}}) {
        TimeRecorder::Reset();
        AddCommand(601, parent, "/opt/app/tool", std::string(bytes, 'x'));
        Exec(601, 1);
        EXPECT_EQ(TimeRecorder::Pauses(), ReadingPauses(bytes, 0)) << bytes;
    }
    EXPECT_TRUE(tmpProcMap.empty());
}

TEST_F(TmpCommandIntake, PausesPerStatusLineOfACommand) {
    RunLs(601, parent, 1, "ls -l");
    EXPECT_EQ(TimeRecorder::Pauses(), ReadingPauses(5, 7));
    EXPECT_EQ(tmpProcMap[parent].procList.size(), 1U);
}

TEST_F(TmpCommandIntake, IgnoresChildrenOfInitAndProcessesWithoutAParent) {
    RunLs(601, 1, 1);
    RunLs(602, 0, 1);
    AddCommand(603, parent, ls, "");
    std::filesystem::remove(tree->Folder() / "603" / "status");
    Exec(603, 1);
    EXPECT_TRUE(tmpProcMap.empty());
    EXPECT_EQ(Details(), (std::vector<std::string>{"Filter the child process of root.[pid=601 ppid=1]",
                                                   "Filter the child process of root.[pid=602 ppid=0]",
                                                   "Filter the child process of root.[pid=603 ppid=-1]"}));
}

TEST_F(TmpCommandIntake, AcceptsParentTwo) {
    RunLs(601, 2, 1);
    EXPECT_TRUE(tmpProcMap.contains(2));
    EXPECT_TRUE(Fake::TheAgent().log.empty());
}

TEST_F(TmpCommandIntake, HoldsNoLockWhileReading) {
    size_t looks = 0;
    TimeRecorder::AtEachPause([&looks](size_t) {
        CopyTmpProcMap();
        ++looks;
    });
    RunLs(601, parent, 1, "ls -l");
    EXPECT_EQ(looks, 13U);
}

TEST_F(TmpCommandIntake, ReplacesTheRecordOfAProcessThatExecutesAgain) {
    const std::string cat = folder.Write("bin/cat", "a program");
    InitTmpCommandPaths({});
    RunLs(601, parent, 1 * second);
    RunLs(602, parent, 2 * second);
    KernelClocks::Set(20s, 7s);
    AddCommand(601, parent, cat, std::string("cat\0-n\0", 7));
    Exec(601, 3 * second);
    ASSERT_EQ(tmpProcMap[parent].procList.size(), 2U);
    const TPROC_INFO& replaced = tmpProcMap[parent].procList[0];
    EXPECT_EQ(replaced.pid, 601);
    EXPECT_EQ(replaced.path, cat);
    EXPECT_EQ(replaced.cmdline, "cat -n");
    EXPECT_EQ(replaced.timestamp, 3 * second);
    EXPECT_EQ(replaced.suspended, 7 * second);
    EXPECT_EQ(tmpProcMap[parent].procList[1].timestamp, 2 * second);
}

TEST_F(TmpCommandIntake, RecordsNothingForAJudgedParent) {
    for (const bool isRshell : {false, true}) {
        tmpProcMap[parent] = {.judged = true, .isRshell = isRshell, .procList = {Command(601, 1)}};
        RunLs(601, parent, 2);
        RunLs(602, parent, 3);
        ASSERT_EQ(tmpProcMap[parent].procList.size(), 1U);
        EXPECT_EQ(tmpProcMap[parent].procList[0].timestamp, 1U);
        EXPECT_EQ(tmpProcMap[parent].isRshell, isRshell);
    }
}

TEST_F(TmpCommandIntake, RecordsAnyNumberOfCommandsAndParents) {
    for (int pid = 1000; pid < 1500; ++pid) {
        RecordTmpCommand(parent, Command(pid, 1));
        RecordTmpCommand(pid, Command(pid, 1));
    }
    EXPECT_EQ(tmpProcMap.size(), 501U);
    EXPECT_EQ(tmpProcMap[parent].procList.size(), 500U);
}

}  // namespace
