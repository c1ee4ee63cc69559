#include "classifier_fixture.h"

namespace {

using ClassifierPass = ClassifierTest;

const std::vector<std::string> wholePass = {"separate start",
                                            "single shell start",
                                            "multi shell start",
                                            "get all proc info begin",
                                            "get all proc info end.[edgeNum=0 max=10000]",
                                            "secial shell start",
                                            "pty shell start",
                                            "scan all shell end"};

TEST_F(ClassifierPass, EndsAtOnceWithoutPids) {
    ReverseShell detector = Detector({});
    detector.GetReverseShell(foundPids, foundSocks);
    EXPECT_EQ(Log(), std::vector<std::string>{"separate start"});
    EXPECT_TRUE(foundPids.empty());
    EXPECT_TRUE(foundSocks.empty());
    EXPECT_TRUE(TimeRecorder::Pauses().empty());
}

TEST_F(ClassifierPass, RunsNoStageWithoutAShell) {
    AddProcess(300, 200, folder.Write("tool", "no shell"), "tool");
    Wait(300, ForeignSocket());
    ReverseShell detector = Detector({300});
    detector.GetReverseShell(foundPids, foundSocks);
    EXPECT_EQ(Log(), std::vector<std::string>{"separate start"});
    EXPECT_TRUE(detector.procs.empty());
    EXPECT_EQ(detector.pids, std::vector<int>{300});
    EXPECT_TRUE(foundPids.empty());
}

TEST_F(ClassifierPass, RunsItsStagesInOrder) {
    AddShell(300, 200);
    ReverseShell detector = Detector({300});
    detector.GetReverseShell(foundPids, foundSocks);
    EXPECT_EQ(Log(), wholePass);
    EXPECT_EQ(detector.bashPids, std::vector<int>{300});
    for (const Fake::LogLine& line : Fake::TheAgent().log) {
        EXPECT_EQ(line.source, "detect_reverse_shell") << line.text;
    }
}

TEST_F(ClassifierPass, AppendsToTheCallersFindings) {
    const KernelObject socket = AddSocketShell(300, 200);
    foundPids = {9};
    foundSocks = {ForeignConnection(99)};
    ReverseShell detector = Detector({300});
    detector.GetReverseShell(foundPids, foundSocks);
    EXPECT_EQ(foundPids, (std::vector<int>{9, 300}));
    EXPECT_EQ(InodesOf(foundSocks), (std::vector<unsigned long>{99, socket.inode}));
}

// A shell with two wirings: it waits on its own foreign socket, and the parent that holds its terminal has another.
TEST_F(ClassifierPass, FirstStageClaimsBeforeTheLast) {
    const PseudoTerminal terminal;
    const KernelObject own = AddSocketShell(300, 200);
    proc->AddDescriptor(300, 1, terminal.Slave());
    AddProcess(200, 100, folder.Write("relay", "r"), "relay");
    proc->AddDescriptor(200, 5, PseudoTerminal::Multiplexer());
    Hold(200, 6, ForeignSocket());
    ReverseShell detector = Detector({200, 300});
    detector.GetReverseShell(foundPids, foundSocks);
    EXPECT_EQ(foundPids, std::vector<int>{300});
    EXPECT_EQ(InodesOf(foundSocks), std::vector<unsigned long>{own.inode});
    EXPECT_TRUE(HasLogged("found type 1 rshell.[pid=300]"));
    EXPECT_TRUE(detector.bashPids.empty());
}

// The same with a pipe fed by a relay. The third stage claims the shell and raises the alarm itself.
TEST_F(ClassifierPass, ThirdStageClaimsBeforeTheLast) {
    const PseudoTerminal terminal;
    const KernelObject pipe = objects.Pipe();
    const KernelObject socket = ForeignSocket();
    AddShell(300, 200);
    WaitOnPipe(300, pipe);
    proc->AddDescriptor(300, 1, terminal.Slave());
    AddProcess(200, 100, folder.Write("relay", "r"), "relay");
    Wait(200, socket);
    HoldPipe(200, 1, pipe, writeOnly);
    proc->AddDescriptor(200, 5, PseudoTerminal::Multiplexer());
    ReverseShell detector = Detector({200, 300});
    detector.GetReverseShell(foundPids, foundSocks);
    EXPECT_TRUE(foundPids.empty());
    EXPECT_TRUE(HasLogged("found type 3 rshell pid.[pid=300]"));
    EXPECT_EQ(Content()["pid"], 300);
    EXPECT_TRUE(detector.bashPids.empty());
}

TEST_F(ClassifierPass, LastStageSeesAShellThatTheThirdRejects) {
    const PseudoTerminal terminal;
    AddShell(300, 200);
    WaitOnPipe(300, objects.Pipe());
    proc->AddDescriptor(300, 1, terminal.Slave());
    AddProcess(200, 100, folder.Write("relay", "r"), "relay");
    proc->AddDescriptor(200, 5, PseudoTerminal::Multiplexer());
    const KernelObject socket = ForeignSocket();
    Hold(200, 6, socket);
    ReverseShell detector = Detector({200, 300});
    detector.GetReverseShell(foundPids, foundSocks);
    EXPECT_EQ(foundPids, std::vector<int>{300});
    EXPECT_EQ(InodesOf(foundSocks), std::vector<unsigned long>{socket.inode});
    EXPECT_TRUE(Events().empty()) << "no process of the pass writes the pipe";
}

// A shell claimed by the first stage has no snapshot, so its children cannot be found.
TEST_F(ClassifierPass, FindsNoShellWhoseParentWasClaimed) {
    const PseudoTerminal terminal;
    AddSocketShell(200, 100);
    proc->AddDescriptor(200, 5, PseudoTerminal::Multiplexer());
    const KernelObject pipe = objects.Pipe();
    AddShell(300, 200);
    WaitOnPipe(300, pipe);
    AddProcess(400, 300, folder.Write("feeder", "f"), "feeder");
    HoldPipe(400, 1, pipe, writeOnly);
    AddShell(301, 200);
    proc->AddDescriptor(301, 0, terminal.Slave());
    ReverseShell detector = Detector({200, 300, 301, 400});
    detector.GetReverseShell(foundPids, foundSocks);
    EXPECT_EQ(foundPids, std::vector<int>{200});
    EXPECT_EQ(PidsOf(detector.procs), (std::vector<int>{400, 300, 301}));
    EXPECT_EQ(detector.bashPids, (std::vector<int>{300, 301}));
    EXPECT_FALSE(HasLogged("found type 3 rshell pid.[pid=300]"));
}

// The same wirings under a parent that is not a shell and not among the pids of the pass.
TEST_F(ClassifierPass, FindsOnlyTypeOneUnderAParentOutsideThePass) {
    const PseudoTerminal terminal;
    AddProcess(200, 100, folder.Write("relay", "r"), "relay");
    proc->AddDescriptor(200, 5, PseudoTerminal::Multiplexer());
    Hold(200, 6, ForeignSocket());
    const KernelObject pipe = objects.Pipe();
    AddShell(300, 200);
    WaitOnPipe(300, pipe);
    AddProcess(400, 300, folder.Write("feeder", "f"), "feeder");
    HoldPipe(400, 1, pipe, writeOnly);
    AddShell(301, 200);
    proc->AddDescriptor(301, 0, terminal.Slave());
    AddSocketShell(302, 200);
    ReverseShell detector = Detector({300, 301, 302, 400});
    detector.GetReverseShell(foundPids, foundSocks);
    EXPECT_EQ(foundPids, std::vector<int>{302});
    EXPECT_TRUE(Events().empty());
    EXPECT_EQ(detector.bashPids, (std::vector<int>{300, 301}));

    foundPids.clear();
    ReverseShell withParent = Detector({200, 300, 301, 302, 400});
    withParent.GetReverseShell(foundPids, foundSocks);
    EXPECT_EQ(foundPids, (std::vector<int>{302, 301})) << "found once the parent is in the pass";
    EXPECT_EQ(withParent.bashPids, std::vector<int>{}) << "300 was claimed because of its pipe";
}

TEST_F(ClassifierPass, TakesSnapshotsOfTheOthersAfterEveryShellWasClaimed) {
    AddSocketShell(300, 200);
    AddProcess(200, 100, folder.Write("tool", "t"), "tool");
    ReverseShell detector = Detector({200, 300});
    detector.GetReverseShell(foundPids, foundSocks);
    EXPECT_TRUE(detector.bashPids.empty());
    EXPECT_EQ(PidsOf(detector.procs), std::vector<int>{200});
    EXPECT_TRUE(HasLogged("scan all shell end"));
}

TEST_F(ClassifierPass, StartsEveryStageAfterAStop) {
    AddShell(300, 200);
    AddShell(301, 200);
    ReverseShell detector = Detector({300, 301});
    StopAtPause(1);
    detector.GetReverseShell(foundPids, foundSocks);
    EXPECT_EQ(Log(), (std::vector<std::string>{"separate start", stopped, "single shell start", stopped,
                                               "multi shell start", "get all proc info begin", stopped,
                                               "get all proc info end.[edgeNum=0 max=10000]", "secial shell start",
                                               stopped, "pty shell start", "scan all shell end"}))
        << "after a stop the third stage keeps no shell, so the last one does not test for the stop";
    EXPECT_TRUE(detector.procs.empty());
    EXPECT_TRUE(detector.bashPids.empty());
}

// Counts the reads of the socket table by their pauses: a read pauses per line, much more often than all other steps.
class SocketTableReads : public ClassifierTest {
protected:
    static constexpr int lines = 1000;

    long CountIn(bool refreshed) {
        for (const int pid : {300, 301}) {
            AddShell(pid, 200);
            Wait(pid, objects.Socket());
        }
        std::string table;
        for (int line = 0; line < lines; ++line) {
            table += "no socket\n";
        }
        proc->AddFile("net/tcp", table);
        ReverseShell detector(shellPaths, {300, 301}, 0, refreshed, 10000);
        detector.GetReverseShell(foundPids, foundSocks);
        EXPECT_TRUE(foundPids.empty());
        EXPECT_TRUE(detector.sockTableRefreshed);
        return std::ranges::count(TimeRecorder::Pauses(), microseconds(5000)) / lines;
    }
};

TEST_F(SocketTableReads, AreOnePerPassForUnknownSockets) {
    EXPECT_EQ(CountIn(false), 1);
}

TEST_F(SocketTableReads, AreNoneInAPassWithAFreshTable) {
    EXPECT_EQ(CountIn(true), 0);
}

}  // namespace
