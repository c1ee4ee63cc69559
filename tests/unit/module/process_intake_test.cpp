#include "module/process_intake.h"

#include <mutex>

#include "alarm/alarm_history.h"
#include "shellfile/shell_baseline.h"
#include "tests/support/instant_scan_fixture.h"

namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;
using std::chrono::seconds;

// Above the kernel's largest pid, so that no process of the host has them.
constexpr int child = 5000003;
constexpr int forker = 5000002;
constexpr int grandparent = 5000001;
constexpr int outsider = 4999999;

class ProcessIntake : public InstantScanTest {
protected:
    ProcessIntake() { intakeMap.clear(); }
    ~ProcessIntake() override { intakeMap.clear(); }

    static proc_event Fork(int parent) {
        proc_event event{};
        event.what = decltype(event.what)::PROC_EVENT_FORK;
        event.event_data.fork.parent_pid = parent;
        event.event_data.fork.parent_tgid = outsider;
        event.event_data.fork.child_pid = child;
        event.event_data.fork.child_tgid = child;
        return event;
    }

    static void Report(int parent) {
        proc_event event = Fork(parent);
        OnProcessEvent(&event);
    }

    static unsigned long Now() { return static_cast<unsigned long>(time(nullptr)); }

    static std::vector<int> NotedPids() {
        std::vector<int> pids;
        for (const auto& [pid, seen] : intakeMap) {
            pids.push_back(pid);
        }
        return pids;
    }

    // Runs the task once, as the agent does.
    static void Tick() { EXPECT_EQ(CheckNetlinkProcsTask(nullptr), nullptr); }

    // True if a pass has run.
    static bool HasJudged() { return HasLogged("separate start"); }

    // A shell that the first stage finds.
    void AddSocketShell(int pid, int ppid) {
        AddShell(pid, ppid);
        Hold(pid, 0, ForeignSocket());
        Block(pid, "inet_recvmsg", 0);
    }

    void AddTool(int pid, int ppid, const std::string& words = "tool") {
        AddProcess(pid, ppid, folder.Write("tool", "no shell"), words);
    }
};

TEST_F(ProcessIntake, NotesTheProcessThatForksAndItsParent) {
    AddTool(forker, grandparent);
    Report(forker);
    EXPECT_EQ(intakeMap, (std::map<int, unsigned long>{{grandparent, Now()}, {forker, Now()}}));
    EXPECT_TRUE(Log().empty());
}

TEST_F(ProcessIntake, RestartsTheQuietTimeOfBoth) {
    AddTool(forker, grandparent);
    intakeMap = {{grandparent, 5}, {forker, Now() + 1000}};
    Report(forker);
    EXPECT_EQ(intakeMap, (std::map<int, unsigned long>{{grandparent, Now()}, {forker, Now()}}));
}

TEST_F(ProcessIntake, IgnoresEventsOfOtherKinds) {
    AddTool(forker, grandparent);
    proc_event event = Fork(forker);
    for (const unsigned int what : {0U, 2U, 3U, 4U, 0x40000000U, 0x80000000U}) {
        event.what = static_cast<decltype(event.what)>(what);
        OnProcessEvent(&event);
    }
    OnProcessEvent(nullptr);
    EXPECT_TRUE(intakeMap.empty());
    EXPECT_TRUE(Log().empty());
    EXPECT_TRUE(TimeRecorder::Pauses().empty());
}

TEST_F(ProcessIntake, DoesNotNoteTheAgentItself) {
    const std::string own = std::to_string(getpid());
    AddTool(getpid(), grandparent);
    Report(getpid());
    EXPECT_TRUE(intakeMap.empty());
    EXPECT_EQ(Log(), std::vector<std::string>{"Match current process.[pid=" + own + "]"});
    EXPECT_TRUE(TimeRecorder::Pauses().empty()) << "its parent is not read";
}

TEST_F(ProcessIntake, DoesNotNoteChildrenOfInitAndOfTheKernelAndEndedProcesses) {
    AddTool(forker, 1);
    AddTool(grandparent, 0);
    Report(forker);
    Report(grandparent);
    Report(child);
    EXPECT_TRUE(intakeMap.empty());
    EXPECT_EQ(Log(), (std::vector<std::string>{"Filter the child process of root.[pid=5000002 ppid=1]",
                                               "Filter the child process of root.[pid=5000001 ppid=0]",
                                               "Filter the child process of root.[pid=5000003 ppid=-1]"}));
}

TEST_F(ProcessIntake, NotesAChildOfTheSecondProcess) {
    AddTool(forker, 2);
    Report(forker);
    EXPECT_EQ(NotedPids(), (std::vector<int>{2, forker}));
}

TEST_F(ProcessIntake, JudgesAProcessThreeSecondsAfterItsLastFork) {
    AddShell(forker, grandparent);
    intakeMap[forker] = Now();
    for (int tick = 0; tick < 3; ++tick) {
        Tick();
        EXPECT_FALSE(HasJudged()) << tick;
        EXPECT_EQ(NotedPids(), std::vector<int>{forker});
        TimeRecorder::Advance(seconds(1));
    }
    Tick();
    EXPECT_TRUE(HasJudged());
    EXPECT_TRUE(intakeMap.empty());
}

TEST_F(ProcessIntake, DoesNotJudgeAProcessThatForksEveryTwoSecondsNorItsParent) {
    AddShell(forker, grandparent);
    AddShell(grandparent, outsider);
    for (int second = 0; second < 20; ++second) {
        if (second % 2 == 0) {
            Report(forker);
        }
        Tick();
        TimeRecorder::Advance(seconds(1));
    }
    EXPECT_FALSE(HasJudged());
    EXPECT_EQ(NotedPids(), (std::vector<int>{grandparent, forker}));
    TimeRecorder::Advance(seconds(3));
    Tick();
    EXPECT_TRUE(HasJudged()) << "after it has stopped forking";
    EXPECT_TRUE(intakeMap.empty());
}

TEST_F(ProcessIntake, KeepsAnEntryFromTheFutureUntilTheClockHasPassedIt) {
    AddShell(forker, grandparent);
    intakeMap[forker] = Now() + 10;
    Tick();
    TimeRecorder::Advance(seconds(12));
    Tick();
    EXPECT_EQ(NotedPids(), std::vector<int>{forker});
    EXPECT_FALSE(HasJudged());
    TimeRecorder::Advance(seconds(1));
    Tick();
    EXPECT_TRUE(HasJudged());
}

TEST_F(ProcessIntake, TakesOnlyEntriesThatHaveBeenQuietForThreeSeconds) {
    AddShell(forker, grandparent);
    intakeMap = {{grandparent, Now() - 2}, {forker, Now() - 3}, {child, Now()}};
    Tick();
    EXPECT_EQ(NotedPids(), (std::vector<int>{grandparent, child}));
}

TEST_F(ProcessIntake, TakesEntriesLeftFromAnEarlierStart) {
    AddShell(forker, grandparent);
    intakeMap[forker] = 1;
    intakeMap[child] = 1;  // has ended meanwhile
    Tick();
    EXPECT_TRUE(intakeMap.empty());
    EXPECT_TRUE(HasJudged());
}

TEST_F(ProcessIntake, DropsAProcessThatExitsEarlySilently) {
    intakeMap[forker] = 1;
    Tick();
    EXPECT_TRUE(intakeMap.empty());
    EXPECT_TRUE(Log().empty());
    EXPECT_TRUE(TimeRecorder::Pauses().empty()) << "neither command line nor whitelist are read";
}

TEST_F(ProcessIntake, DropsAWhitelistedProcess) {
    AddShell(forker, grandparent, "bash /opt/backup.sh");
    intakeMap[forker] = 1;
    ReplaceWhitelist({"bash /opt/"});
    Tick();
    EXPECT_TRUE(intakeMap.empty());
    EXPECT_TRUE(Log().empty());
}

TEST_F(ProcessIntake, JudgesAProcessWithoutACommandLineUnlessTheEmptyPrefixIsWhitelisted) {
    proc->Add({.pid = forker, .ppid = grandparent, .exe = shell, .cmdline = ""});
    intakeMap[forker] = 1;
    Tick();
    EXPECT_TRUE(HasJudged());
    Fake::TheAgent().log.clear();
    intakeMap[forker] = 1;
    ReplaceWhitelist({""});
    Tick();
    EXPECT_FALSE(HasJudged());
}

TEST_F(ProcessIntake, SleepsTenMillisecondsPerCandidateAndHalfAMillisecondPerEntry) {
    AddTool(forker, grandparent, "");
    intakeMap[forker] = 1;
    ReplaceWhitelist({"one", "two"});
    Tick();
    // Reading a command line of one byte takes 1 ms for the block and 0.5 ms for the byte. The last pause is the
    // pass's.
    EXPECT_EQ(TimeRecorder::Pauses(), (PauseList{milliseconds(1), microseconds(500), milliseconds(10),
                                                 microseconds(500), microseconds(500), microseconds(500)}));
}

TEST_F(ProcessIntake, JudgesTheCandidatesInOrderOfTheirPids) {
    AddSocketShell(child, grandparent);
    AddSocketShell(forker, grandparent);
    intakeMap = {{child, 1}, {outsider, 1}, {forker, 1}};
    Tick();
    std::vector<std::string> lines = Log();
    std::erase_if(lines, [](const std::string& line) { return !line.starts_with("found type 1"); });
    EXPECT_EQ(lines,
              (std::vector<std::string>{"found type 1 rshell.[pid=5000002]", "found type 1 rshell.[pid=5000003]"}));
}

// The selection takes ten seconds for a command line of 20,000 bytes. The age counts from its end.
class SocketAge : public ProcessIntake {
protected:
    bool CountsWhenSeen(long secondsIntoTheWeeding) {
        AddSocketShell(forker, grandparent);
        proc->AddFile(forker, "cmdline", std::string(20000, 'a'));
        intakeMap[forker] = 1;
        socketTable.begin()->second.firstSeen = static_cast<long>(time(nullptr)) + secondsIntoTheWeeding;
        Tick();
        return HasLogged("found type 1 rshell.[pid=5000002]");
    }
};

TEST_F(SocketAge, MayBeThreeSecondsAtTheEndOfTheSelection) {
    EXPECT_TRUE(CountsWhenSeen(7));
}

TEST_F(SocketAge, MayNotBeMoreThanThreeSeconds) {
    EXPECT_FALSE(CountsWhenSeen(6));
}

TEST_F(ProcessIntake, ReadsTheSocketTableAgainForAnUnknownSocket) {
    AddShell(forker, grandparent);
    const KernelObject socket = objects.Socket();
    Hold(forker, 0, socket);
    Block(forker, "inet_recvmsg", 0);
    proc->AddFile("net/tcp",
                  "   0: 036433C6:9C41 070200C0:115C 01 00000000:00000000 00:00000000 00000000     0        0 " +
                      std::to_string(socket.inode) + " 1 0000000000000000 20 4 30 10 -1\n");
    intakeMap[forker] = 1;
    Tick();
    EXPECT_TRUE(HasLogged("found type 1 rshell.[pid=5000002]"));
}

TEST_F(ProcessIntake, KeepsItsEntriesIfTheModuleDoesNotRun) {
    AddShell(forker, grandparent);
    intakeMap[forker] = 1;
    moduleRunning = 0;
    Tick();
    EXPECT_EQ(NotedPids(), std::vector<int>{forker});
    EXPECT_EQ(Log(), std::vector<std::string>{"thread was stopped by StopModule run.[run=0]"});
}

TEST_F(ProcessIntake, EndsTheSelectionAtAStop) {
    AddShell(forker, grandparent);
    AddShell(child, grandparent);
    intakeMap = {{forker, 1}, {child, 1}};
    StopAtPause(1);
    Tick();
    EXPECT_EQ(Log(), std::vector<std::string>{"thread was stopped by StopModule run.[run=0]"});
    const auto exemptions = std::ranges::count(TimeRecorder::Pauses(), milliseconds(10));
    EXPECT_EQ(exemptions, 1) << "the second candidate is not examined";
}

// If the lock were held while files are read, an event would wait for the task's scan.
TEST_F(ProcessIntake, HoldsItsLockForMapOperationsOnly) {
    AddShell(forker, grandparent);
    intakeMap[forker] = 1;
    size_t noted = 0;
    TimeRecorder::AtEachPause([&noted](auto...) {
        const std::lock_guard guard(pidMapLock);
        ++noted;
    });
    Tick();
    Report(forker);
    EXPECT_EQ(noted, TimeRecorder::Pauses().size());
    EXPECT_GT(noted, 0U);
}

class ReverseShellCheck : public ProcessIntake {
protected:
    void SetUp() override {
        ProcessIntake::SetUp();
        if (IsSkipped()) {
            return;
        }
        AddTool(grandparent, outsider);
        proc->AddDescriptor(grandparent, 0, "/dev/null");
    }

    static std::vector<int> ReportedPids() {
        std::vector<int> pids;
        for (const std::string& event : Events()) {
            pids.push_back(EventJson::Parse(event)["eventContent"]["pid"].Number());
        }
        return pids;
    }
};

TEST_F(ReverseShellCheck, RaisesAnAlarmForEachFinding) {
    AddSocketShell(child, grandparent);
    AddSocketShell(forker, grandparent);
    CheckReverseShell({forker, child}, 0, false);
    EXPECT_EQ(ReportedPids(), (std::vector<int>{forker, child}));
    for (const std::string& event : Events()) {
        const unsigned long inode = std::stoul(EventJson::Parse(event)["eventContent"]["inode"].Text());
        EXPECT_TRUE(socketTable.contains(inode)) << "the inode is the finding's own";
    }
}

TEST_F(ReverseShellCheck, RaisesNoAlarmWithoutAFinding) {
    AddShell(forker, grandparent);
    CheckReverseShell({forker}, 0, false);
    EXPECT_TRUE(Events().empty());
    CheckReverseShell({}, 0, false);
    EXPECT_TRUE(Events().empty());
}

// The third stage raises its alarm itself and returns no socket. The shell must not be reported a second time.
TEST_F(ReverseShellCheck, RaisesNoSecondAlarmForAShellThatAStageHasReported) {
    const KernelObject pipe = objects.Pipe();
    AddShell(forker, grandparent);
    HoldPipe(forker, 0, pipe, readOnly);
    Block(forker, "pipe_read", 0);
    AddTool(child, grandparent);
    Hold(child, 0, ForeignSocket());
    HoldPipe(child, 1, pipe, writeOnly);
    Block(child, "inet_recvmsg", 0);
    CheckReverseShell({grandparent, forker, child}, 0, false);
    EXPECT_EQ(ReportedPids(), std::vector<int>{forker});
}

TEST_F(ReverseShellCheck, ReportsOnlyTheFirstOfTwoShellsOnOneSocket) {
    AddSocketShell(forker, grandparent);
    AddShell(child, grandparent);
    proc->AddDescriptor(child, 0, std::filesystem::read_symlink(proc->Folder() / std::to_string(forker) / "fd" / "0"));
    Block(child, "inet_recvmsg", 0);
    CheckReverseShell({forker, child}, 0, false);
    EXPECT_TRUE(HasLogged("found type 1 rshell.[pid=5000003]"));
    EXPECT_EQ(ReportedPids(), std::vector<int>{forker});
}

TEST_F(ReverseShellCheck, RaisesAlarmsUpToTheShorterList) {
    AddShell(forker, grandparent);
    AddShell(child, grandparent);
    RaiseAlarms({forker, child}, {});
    RaiseAlarms({}, {ForeignConnection(51)});
    EXPECT_TRUE(Events().empty());
    EXPECT_TRUE(TimeRecorder::Pauses().empty());
    RaiseAlarms({forker, child}, {ForeignConnection(51)});
    EXPECT_EQ(ReportedPids(), std::vector<int>{forker});
    RaiseAlarms({child}, {ForeignConnection(52), ForeignConnection(53)});
    EXPECT_EQ(ReportedPids(), (std::vector<int>{forker, child}));
}

TEST_F(ReverseShellCheck, SleepsAMillisecondBeforeEachAlarm) {
    AddShell(forker, grandparent);
    AddShell(child, grandparent);
    // An alarm for a connection of the host to itself ends at its first step, without a pause.
    RaiseAlarms({forker, child}, {LoopbackConnection(51), LoopbackConnection(52)});
    EXPECT_EQ(TimeRecorder::Pauses(), PauseList(2, milliseconds(1)));

    const size_t mark = TimeRecorder::Pauses().size();
    RaiseAlarms({forker}, {ForeignConnection(51)});
    EXPECT_EQ(PausesSince(mark).at(0), milliseconds(1)) << "before anything else of the alarm";
    EXPECT_EQ(Events().size(), 1U);
}

TEST_F(ReverseShellCheck, PassesTheHostsShellsAndTheLimitOn) {
    AddShell(forker, grandparent);
    CheckReverseShell({forker}, 0, false);
    EXPECT_TRUE(HasLogged("get all proc info end.[edgeNum=0 max=10000]"));
    Fake::TheAgent().log.clear();
    shellPaths.clear();
    CheckReverseShell({forker}, 0, false);
    EXPECT_EQ(Log(), std::vector<std::string>{"separate start"});
}

TEST_F(ReverseShellCheck, PassesTheSocketTimeAndTheFlagOn) {
    AddSocketShell(forker, grandparent);
    const long seen = socketTable.begin()->second.firstSeen;
    CheckReverseShell({forker}, seen + 1, true);
    EXPECT_TRUE(Events().empty());
    CheckReverseShell({forker}, seen, true);
    EXPECT_EQ(Events().size(), 1U);
    socketTable.clear();
    Know(LoopbackConnection(999));
    CheckReverseShell({forker}, seen, true);
    EXPECT_EQ(socketTable.size(), 1U) << "the table was not read again";
    CheckReverseShell({forker}, seen, false);
    EXPECT_TRUE(socketTable.empty()) << "the table was read again";
}

}  // namespace
