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

TEST_F(ClassifierPass, AppendsToWhatTheCallerHasFoundBefore) {
    const KernelObject socket = AddSocketShell(300, 200);
    foundPids = {9};
    foundSocks = {ForeignConnection(99)};
    ReverseShell detector = Detector({300});
    detector.GetReverseShell(foundPids, foundSocks);
    EXPECT_EQ(foundPids, (std::vector<int>{9, 300}));
    EXPECT_EQ(InodesOf(foundSocks), (std::vector<unsigned long>{99, socket.inode}));
}

// A shell that is wired in two ways: it waits on its own foreign socket, and its terminal is held by a parent with one.
TEST_F(ClassifierPass, LetsTheFirstStageClaimBeforeTheLast) {
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

// The same with a pipe that a relay feeds: the third stage claims it, with an alarm of its own.
TEST_F(ClassifierPass, LetsTheThirdStageClaimBeforeTheLast) {
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

TEST_F(ClassifierPass, HandsAShellThatTheThirdStagePassesOverToTheLast) {
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
    EXPECT_TRUE(Events().empty()) << "the pipe that nobody in the pass writes is no finding";
}

// A shell that the first stage claims has no snapshot, so nothing is found below it.
TEST_F(ClassifierPass, FindsNothingBelowAClaimedShell) {
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

// The same wirings under a parent that is no shell but not among the pass's pids.
TEST_F(ClassifierPass, FindsOnlyTheFirstTypeUnderAParentOutsideThePass) {
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
    EXPECT_EQ(foundPids, (std::vector<int>{302, 301})) << "the parent is what was missing";
    EXPECT_EQ(withParent.bashPids, std::vector<int>{}) << "the third was claimed by its pipe";
}

TEST_F(ClassifierPass, TakesSnapshotsOfTheOthersWhenTheFirstStageClaimedEveryShell) {
    AddSocketShell(300, 200);
    AddProcess(200, 100, folder.Write("tool", "t"), "tool");
    ReverseShell detector = Detector({200, 300});
    detector.GetReverseShell(foundPids, foundSocks);
    EXPECT_TRUE(detector.bashPids.empty());
    EXPECT_EQ(PidsOf(detector.procs), std::vector<int>{200});
    EXPECT_TRUE(HasLogged("scan all shell end"));
}

TEST_F(ClassifierPass, StillStartsEveryStageAfterAStop) {
    AddShell(300, 200);
    AddShell(301, 200);
    ReverseShell detector = Detector({300, 301});
    StopAtPause(1);
    detector.GetReverseShell(foundPids, foundSocks);
    EXPECT_EQ(Log(), (std::vector<std::string>{"separate start", stopped, "single shell start", stopped,
                                               "multi shell start", "get all proc info begin", stopped,
                                               "get all proc info end.[edgeNum=0 max=10000]", "secial shell start",
                                               stopped, "pty shell start", "scan all shell end"}))
        << "the third stage keeps no shell after a stop, so that the last has none to ask about";
    EXPECT_TRUE(detector.procs.empty());
    EXPECT_TRUE(detector.bashPids.empty());
}

// How often the pass read the table of sockets again: a read pauses for each line, far more often than all else does.
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

TEST_F(SocketTableReads, AreOneForAllSocketsThatTheTableDoesNotHave) {
    EXPECT_EQ(CountIn(false), 1);
}

TEST_F(SocketTableReads, AreNoneInAPassThatIsToldThatTheTableIsFresh) {
    EXPECT_EQ(CountIn(true), 0);
}

}  // namespace
