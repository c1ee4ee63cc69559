#include "tmp_command_fixture.h"

namespace {

using namespace std::chrono_literals;

class TmpCommandSweep : public TmpCommandTest {
protected:
    static constexpr char foundIt[] = "proc is reverse shell";
    static constexpr char foundNothing[] = "proc has no shell character";

    // Adds a parent that the next sweep reports.
    void AddAttack(int pid = parent, int commands = 2) {
        AddReader(pid);
        tmpProcMap[pid].procList = Commands(commands, pid + 102);
    }

    static size_t CountEvents() { return Fake::TheAgent().events.size(); }

    static bool IsJudged(int pid = parent) { return tmpProcMap.at(pid).judged; }
    static bool IsRshell(int pid = parent) { return tmpProcMap.at(pid).isRshell; }

    static bool IsCollecting(int pid = parent) { return !IsJudged(pid) && !IsRshell(pid); }
};

TEST_F(TmpCommandSweep, ReportsAParentOnceAndRemovesItInTheNextSweep) {
    AddAttack();
    Sweep();
    EXPECT_EQ(CountEvents(), 1U);
    EXPECT_TRUE(IsJudged());
    EXPECT_TRUE(IsRshell());
    EXPECT_TRUE(HasDetail("found type 6 rshell.[pid=602]"));
    EXPECT_TRUE(HasDetail(foundIt));
    Sweep();
    EXPECT_FALSE(tmpProcMap.contains(parent));
    EXPECT_EQ(CountEvents(), 1U);
    EXPECT_EQ(CountProbes(), 2U) << "the second sweep judges nothing";
}

TEST_F(TmpCommandSweep, CollectsAgainForARemovedParent) {
    AddAttack();
    Sweep();
    Sweep();
    RecordTmpCommand(parent, Command(700, 40 * second));
    EXPECT_TRUE(IsCollecting());
    RecordTmpCommand(parent, Command(701, 41 * second));
    Sweep();
    EXPECT_TRUE(IsRshell());
    EXPECT_EQ(CountEvents(), 1U) << "the same connection is reported once";
}

TEST_F(TmpCommandSweep, IgnoresADismissedParentUntilItEnds) {
    AddAttack();
    Block(parent, elsewhere);
    Sweep();
    EXPECT_TRUE(IsJudged());
    EXPECT_FALSE(IsRshell());
    EXPECT_EQ(Details(), std::vector<std::string>{foundNothing});
    Block(parent, reading);
    RecordTmpCommand(parent, Command(700, 40 * second));
    Sweep();
    EXPECT_EQ(CountProbes(), 5U);
    EXPECT_EQ(tmpProcMap.at(parent).procList.size(), 2U);
    End(parent);
    Sweep();
    EXPECT_TRUE(tmpProcMap.empty());
    EXPECT_EQ(CountEvents(), 0U);
}

TEST_F(TmpCommandSweep, ReportsTheLastOfManyCommands) {
    AddAttack(parent, 12);
    Sweep();
    EXPECT_TRUE(HasDetail("found type 6 rshell.[pid=602]"));
    EXPECT_EQ(tmpProcMap.at(parent).procList.size(), 12U);
}

TEST_F(TmpCommandSweep, WaitsForASecondCommandWhileTheParentLives) {
    AddAttack(parent, 1);
    for (int sweeps = 0; sweeps < 3; ++sweeps) {
        Sweep();
        EXPECT_TRUE(IsCollecting());
    }
    EXPECT_EQ(CountProbes(), 0U);
    EXPECT_TRUE(Fake::TheAgent().log.empty());
    RecordTmpCommand(parent, Command(700, 40 * second));
    Sweep();
    EXPECT_TRUE(IsRshell());
}

TEST_F(TmpCommandSweep, RemovesASingleCommandWithItsParent) {
    AddAttack(parent, 1);
    End(parent);
    Sweep();
    EXPECT_TRUE(tmpProcMap.empty());
}

TEST_F(TmpCommandSweep, SkipsAParentWhileAnyCommandRuns) {
    AddAttack(parent, 11);
    for (const TPROC_INFO& command : Commands(11)) {
        AddCommand(command.pid, parent, "/usr/bin/ls", "ls");
        Sweep();
        EXPECT_TRUE(IsCollecting()) << command.pid;
        End(command.pid);
    }
    EXPECT_EQ(CountProbes(), 0U);
    Sweep();
    EXPECT_TRUE(IsRshell());
}

TEST_F(TmpCommandSweep, SkipsAParentWhileAnotherProcessHasACommandsPid) {
    AddAttack();
    AddCommand(lastPid, 1, "/opt/app/stranger", "stranger");
    Sweep();
    EXPECT_TRUE(IsCollecting());
}

TEST_F(TmpCommandSweep, SkipsAParentWithFastCommandsWhileAnyRuns) {
    AddAttack();
    tmpProcMap[parent].procList[1].timestamp = tmpProcMap[parent].procList[0].timestamp;
    AddCommand(lastPid, parent, "/usr/bin/ls", "ls");
    Sweep();
    EXPECT_TRUE(IsCollecting());
    End(lastPid);
    Sweep();
    EXPECT_TRUE(IsJudged());
}

TEST_F(TmpCommandSweep, DismissesAParentWhoseFirstCommandCameTooSoon) {
    AddAttack();
    tmpProcMap[parent].procList[0].timestamp = 10 * second + 199 * millisecond;
    Sweep();
    EXPECT_TRUE(IsJudged());
    EXPECT_FALSE(IsRshell());
    EXPECT_TRUE(Fake::TheAgent().log.empty());
    EXPECT_EQ(CountProbes(), 0U);
}

TEST_F(TmpCommandSweep, DismissesAParentForASingleEarlyCommand) {
    AddAttack(parent, 1);
    tmpProcMap[parent].procList[0].timestamp = 10 * second;
    Sweep();
    EXPECT_TRUE(IsJudged());
}

TEST_F(TmpCommandSweep, DismissesAScriptThatRunsCommandsInQuickSuccession) {
    AddAttack();
    tmpProcMap[parent].procList[1].timestamp = 20 * second + 3 * millisecond;
    Sweep();
    EXPECT_EQ(Details(), std::vector<std::string>{"cmd process time error.[cmd1=20000000000 cmd2=20003000000]"});
    EXPECT_TRUE(IsJudged());
    EXPECT_FALSE(IsRshell());
    EXPECT_EQ(CountProbes(), 0U);
    RecordTmpCommand(parent, Command(700, 40 * second));
    RecordTmpCommand(parent, Command(701, 41 * second));
    Sweep();
    EXPECT_EQ(tmpProcMap.at(parent).procList.size(), 2U);
    EXPECT_EQ(CountEvents(), 0U);
}

TEST_F(TmpCommandSweep, ReportsAParentOnAHostThatWasSuspended) {
    constexpr unsigned long long day = 86400 * second;
    AddAttack();
    Write(parent, "stat", StatText(parent, 24h + 10s));
    for (TPROC_INFO& command : tmpProcMap[parent].procList) {
        command.suspended = day;
    }
    Sweep();
    EXPECT_TRUE(IsRshell());
}

TEST_F(TmpCommandSweep, LogsAnEmptyList) {
    AddReader(parent);
    tmpProcMap[parent];
    Sweep();
    EXPECT_EQ(Fake::TheAgent().LogTexts(LOG_LEVEL_ERROR), std::vector<std::string>{"The tmp proc list is empty."});
    EXPECT_TRUE(IsCollecting());
}

TEST_F(TmpCommandSweep, PausesAMillisecondPerParent) {
    using std::chrono::nanoseconds;
    for (int pid = 501; pid <= 505; ++pid) {
        tree->Add({.pid = pid, .ppid = 1, .exe = "/opt/app/server"});
    }
    tmpProcMap[499];                               // gone
    tmpProcMap[501].judged = true;                 // ignored
    tmpProcMap[502].isRshell = true;               // reported
    tmpProcMap[503];                               // empty
    tmpProcMap[504].procList = {Command(504, 1)};  // runs
    Sweep();
    EXPECT_EQ(TimeRecorder::Pauses(), std::vector<nanoseconds>(5, 1ms));
}

TEST_F(TmpCommandSweep, DoesNothingWithoutParents) {
    Sweep();
    EXPECT_TRUE(TimeRecorder::Pauses().empty());
    EXPECT_TRUE(Fake::TheAgent().journal.empty());
}

TEST_F(TmpCommandSweep, VisitsParentsInAscendingOrder) {
    AddAttack(502);
    AddAttack(500);
    AddAttack(501);
    Sweep();
    std::vector<std::string> found;
    std::ranges::copy_if(Details(), std::back_inserter(found),
                         [](const std::string& text) { return text.starts_with("found"); });
    EXPECT_EQ(found, (std::vector<std::string>{"found type 6 rshell.[pid=602]", "found type 6 rshell.[pid=603]",
                                               "found type 6 rshell.[pid=604]"}));
}

TEST_F(TmpCommandSweep, RemovesFinishedParentsAtItsEnd) {
    for (const int pid : {500, 501, 502}) {
        tree->Add({.pid = pid, .ppid = 1, .exe = "/opt/app/server"});
    }
    tmpProcMap[499].procList = Commands(2);
    tmpProcMap[500] = {.judged = true, .isRshell = true, .procList = Commands(2)};
    tmpProcMap[501] = {.judged = true, .isRshell = false, .procList = Commands(2)};
    tmpProcMap[502].procList = Commands(1);
    tmpProcMap[503].judged = true;
    size_t atLastPause = 0;
    TimeRecorder::AtEachPause([&atLastPause](size_t) { atLastPause = CopyTmpProcMap().size(); });
    Sweep();
    EXPECT_EQ(atLastPause, 5U) << "removed only at the end";
    EXPECT_EQ(tmpProcMap.size(), 2U);
    EXPECT_TRUE(tmpProcMap.contains(501));
    EXPECT_TRUE(tmpProcMap.contains(502));
}

TEST_F(TmpCommandSweep, RemovesAParentThatEndsDuringItsJudgementInTheNextSweep) {
    AddAttack();
    AtEachProbe([this](size_t) { End(parent); });
    Sweep();
    EXPECT_TRUE(IsJudged());
    EXPECT_FALSE(IsRshell());
    EXPECT_EQ(Details(), std::vector<std::string>{foundNothing});
    Sweep();
    EXPECT_TRUE(tmpProcMap.empty());
}

TEST_F(TmpCommandSweep, OverwritesACommandThatArrivesDuringAJudgement) {
    AddAttack();
    AtEachProbe([](size_t probe) { RecordTmpCommand(parent, Command(700 + static_cast<int>(probe), 40 * second)); });
    Sweep();
    EXPECT_TRUE(IsRshell());
    ASSERT_EQ(tmpProcMap.at(parent).procList.size(), 2U);
    EXPECT_EQ(tmpProcMap.at(parent).procList[1].pid, lastPid);
}

TEST_F(TmpCommandSweep, OverwritesACommandThatArrivesBeforeADismissal) {
    AddAttack();
    tmpProcMap[parent].procList[1].timestamp = 20 * second;
    TimeRecorder::AtEachPause([](size_t) { RecordTmpCommand(parent, Command(700, 40 * second)); });
    Sweep();
    EXPECT_TRUE(IsJudged());
    EXPECT_EQ(tmpProcMap.at(parent).procList.size(), 2U);
}

TEST_F(TmpCommandSweep, KeepsACommandThatArrivesForACollectingParent) {
    AddAttack(parent, 1);
    TimeRecorder::AtEachPause([](size_t) { RecordTmpCommand(parent, Command(700, 40 * second)); });
    Sweep();
    EXPECT_TRUE(IsCollecting());
    EXPECT_EQ(tmpProcMap.at(parent).procList.size(), 2U);
}

TEST_F(TmpCommandSweep, JudgesACopyOfTheCommands) {
    AddAttack();
    TimeRecorder::AtEachPause([](size_t) { RecordTmpCommand(parent, Command(lastPid, 20 * second)); });
    Sweep();
    EXPECT_TRUE(IsRshell()) << "the early command is not in the copy";
}

TEST_F(TmpCommandSweep, DoesNotRestoreAParentErasedMeanwhile) {
    AddAttack();
    AtEachProbe([](size_t) { ClearTmpProcs(); });
    Sweep();
    EXPECT_TRUE(tmpProcMap.empty());
}

TEST_F(TmpCommandSweep, LeavesANewParentToTheNextSweep) {
    AddAttack();
    AddReader(501);
    AtEachProbe([](size_t) { tmpProcMap[501].procList = Commands(2); });
    Sweep();
    EXPECT_TRUE(IsCollecting(501));
}

TEST_F(TmpCommandSweep, ReadsTheSocketTableOncePerParent) {
    AddAttack(500);
    AddAttack(501);
    socketTable.clear();
    // A socket that neither parent has.
    tree->AddFile("net/tcp",
                  "   0: 037133C6:9C41 077100CB:115C 01 00000000:00000000 00:00000000 00000000  0 0 4294967295 1\n");
    Sweep();
    EXPECT_EQ(CountPauses(200us), 2U) << "one pause per read for the only socket of the table";
    EXPECT_TRUE(IsJudged(500) && IsJudged(501));
}

TEST_F(TmpCommandSweep, EndsBetweenTwoParentsAtAStop) {
    tmpProcMap[499].procList = Commands(2);
    AddAttack(500);
    AddAttack(501);
    AtEachProbe([](size_t probe) {
        if (probe == 1) {
            moduleRunning = 0;
        }
    });
    Sweep();
    EXPECT_TRUE(IsJudged(500));
    EXPECT_TRUE(IsCollecting(501));
    EXPECT_FALSE(tmpProcMap.contains(499)) << "a finished parent is removed nevertheless";
}

TEST_F(TmpCommandSweep, DoesNothingAfterAStop) {
    AddAttack();
    moduleRunning = 0;
    Sweep();
    EXPECT_TRUE(IsCollecting());
    EXPECT_TRUE(TimeRecorder::Pauses().empty());
}

// From the exec events to the alarm, as in the agent.
TEST_F(TmpCommandSweep, ReportsCommandsRecordedByTheCallback) {
    const std::string ls = folder.Write("bin/ls", "a program");
    Fake::TheAgent().environment["PATH"] = folder.Path("bin");
    InitTmpCommandPaths({});
    KernelClocks::Set(1000s, 3600s);
    AddReader(parent);
    Write(parent, "stat", StatText(parent, 3600s + 900s));
    for (const int pid : {601, 602}) {
        AddCommand(pid, parent, ls, std::string("ls\0-l\0", 6));
        Exec(pid, 901 * second + static_cast<unsigned long long>(pid) * 500 * millisecond);
        Sweep();
        EXPECT_TRUE(IsCollecting());
        End(pid);
    }
    SocketOf(parent).firstSeen = Now();
    Sweep();
    EXPECT_TRUE(IsRshell());
    ASSERT_EQ(CountEvents(), 1U);
    EXPECT_NE(Fake::TheAgent().events[0].find(R"("pid":602,)"), std::string::npos);
    EXPECT_NE(Fake::TheAgent().events[0].find(R"("cmdline":"() ls -l")"), std::string::npos);
}

}  // namespace
