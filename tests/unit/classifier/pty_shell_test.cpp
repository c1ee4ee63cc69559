#include "classifier_fixture.h"

namespace {

class PtyShell : public ClassifierTest {
protected:
    // Adds a relay that holds the multiplexer.
    void AddRelay(int pid, int ppid = 100) {
        AddProcess(pid, ppid, folder.Write("relay", "a relay"), "relay");
        proc->AddDescriptor(pid, 5, PseudoTerminal::Multiplexer());
    }

    void AddTerminalShell(int pid, int ppid) {
        AddShell(pid, ppid);
        proc->AddDescriptor(pid, 0, terminal.Slave());
    }

    // Runs the stage over these shells with snapshots of them and of the others. Returns the shells not claimed.
    std::vector<int> Check(const std::vector<int>& shells, const std::vector<int>& others, long oldestSockTime = 0) {
        ReverseShell detector(shellPaths, others, oldestSockTime, false, 10000);
        detector.bashPids = shells;
        detector.CheckMultiprocShell(foundPids, foundSocks);
        Fake::TheAgent().log.clear();
        detector.CheckPtyShell(foundPids, foundSocks);
        return detector.bashPids;
    }

    PseudoTerminal terminal;
};

TEST_F(PtyShell, IsFoundUnderARelayWithAForeignSocket) {
    AddTerminalShell(300, 200);
    AddRelay(200);
    const KernelObject socket = ForeignSocket();
    Hold(200, 6, socket);
    EXPECT_TRUE(Check({300}, {200}).empty());
    EXPECT_EQ(foundPids, std::vector<int>{300});
    EXPECT_EQ(InodesOf(foundSocks), std::vector<unsigned long>{socket.inode});
    EXPECT_EQ(Log(), std::vector<std::string>{"find pty.[shell=300 inode=" + std::to_string(socket.inode) + "]"});
    EXPECT_TRUE(Events().empty()) << "the caller raises the alarm";
}

TEST_F(PtyShell, IsNotFoundUnderTheSshDaemon) {
    AddTerminalShell(300, 200);
    AddRelay(200);
    Hold(200, 6, ForeignSocket());
    sshdInodes = {InodeOf(folder.Path("relay"))};
    EXPECT_EQ(Check({300}, {200}), std::vector<int>{300});
    EXPECT_TRUE(foundPids.empty());
    EXPECT_EQ(Log(), std::vector<std::string>{"sshd shell"});
}

TEST_F(PtyShell, HasItsParentCheckedForTheSshDaemonBeforeTheParentsSnapshot) {
    AddTerminalShell(300, 200);
    AddRelay(200);
    sshdInodes = {InodeOf(folder.Path("relay"))};
    EXPECT_EQ(Check({300}, {}), std::vector<int>{300});
    EXPECT_EQ(Log(), std::vector<std::string>{"sshd shell"});
}

// The snapshot of the parent is still there, but its program cannot be read any more.
TEST_F(PtyShell, IsNotFoundUnderAParentThatEndedAfterItsSnapshot) {
    AddTerminalShell(300, 200);
    AddRelay(200);
    Hold(200, 6, ForeignSocket());
    ReverseShell detector = Detector({200});
    detector.bashPids = {300};
    detector.CheckMultiprocShell(foundPids, foundSocks);
    Remove(200);
    detector.CheckPtyShell(foundPids, foundSocks);
    EXPECT_TRUE(foundPids.empty());
    EXPECT_EQ(detector.bashPids, std::vector<int>{300});
}

TEST_F(PtyShell, IsNotFoundUnderAParentWithoutTheMultiplexer) {
    AddTerminalShell(300, 200);
    AddProcess(200, 100, folder.Write("relay", "a relay"), "relay");
    proc->AddDescriptor(200, 5, terminal.Slave());
    Hold(200, 6, ForeignSocket());
    EXPECT_EQ(Check({300}, {200}), std::vector<int>{300});
    EXPECT_TRUE(foundPids.empty());
}

TEST_F(PtyShell, IsNotFoundWithoutATerminal) {
    AddShell(300, 200);
    proc->AddDescriptor(300, 0, PseudoTerminal::Multiplexer());
    AddRelay(200);
    Hold(200, 6, ForeignSocket());
    EXPECT_EQ(Check({300}, {200}), std::vector<int>{300});
    EXPECT_TRUE(foundPids.empty());
}

TEST_F(PtyShell, IsNotFoundUnderARelayWithALocalConnection) {
    AddTerminalShell(300, 200);
    AddRelay(200);
    const KernelObject socket = objects.Socket();
    Know(LoopbackConnection(socket.inode));
    Hold(200, 6, socket);
    EXPECT_EQ(Check({300}, {200}), std::vector<int>{300});
    EXPECT_TRUE(foundPids.empty());
    EXPECT_TRUE(Log().empty());
}

TEST_F(PtyShell, IsNotFoundUnderARelayWithoutASocket) {
    AddTerminalShell(300, 200);
    AddRelay(200);
    EXPECT_EQ(Check({300}, {200}), std::vector<int>{300});
}

TEST_F(PtyShell, IsNotFoundUnderAnOlderConnection) {
    AddTerminalShell(300, 200);
    AddRelay(200);
    const KernelObject socket = ForeignSocket();
    Hold(200, 6, socket);
    EXPECT_EQ(Check({300}, {200}, socketTable[socket.inode].firstSeen + 1), std::vector<int>{300});
}

TEST_F(PtyShell, IsNotFoundUnderARelayOutsideThePass) {
    AddTerminalShell(300, 200);
    AddRelay(200);
    Hold(200, 6, ForeignSocket());
    EXPECT_EQ(Check({300}, {}), std::vector<int>{300});
    EXPECT_TRUE(foundPids.empty());
}

TEST_F(PtyShell, IsNotFoundUnderAGrandparentRelay) {
    AddTerminalShell(300, 250);
    AddProcess(250, 200, folder.Write("wrapper", "w"), "wrapper");
    AddRelay(200);
    Hold(200, 6, ForeignSocket());
    EXPECT_EQ(Check({300}, {250, 200}), std::vector<int>{300});
    EXPECT_TRUE(foundPids.empty());
}

TEST_F(PtyShell, StaysInTheListWithoutASnapshot) {
    EXPECT_EQ(Check({300}, {}), std::vector<int>{300});
}

TEST_F(PtyShell, IsRemovedFromTheListAndTheOthersKeepTheirOrder) {
    AddRelay(200);
    Hold(200, 6, ForeignSocket());
    AddShell(302, 200);
    AddTerminalShell(301, 200);
    AddShell(300, 200);
    EXPECT_EQ(Check({302, 301, 300}, {200}), (std::vector<int>{302, 300}));
    EXPECT_EQ(foundPids, std::vector<int>{301});
}

TEST_F(PtyShell, PausesForEachShell) {
    ReverseShell detector = Detector({});
    detector.bashPids = {300, 301};
    detector.CheckPtyShell(foundPids, foundSocks);
    EXPECT_EQ(TimeRecorder::Pauses(), PauseList(2, microseconds(200)));
}

TEST_F(PtyShell, IsDroppedAfterAStop) {
    ReverseShell detector = Detector({});
    detector.bashPids = {300, 301, 302};
    StopAtPause(1);
    detector.CheckPtyShell(foundPids, foundSocks);
    EXPECT_EQ(detector.bashPids, std::vector<int>{300});
    EXPECT_EQ(Log(), std::vector<std::string>{stopped});
}

TEST_F(PtyShell, IsReportedWithTheSocketOfItsOwnParent) {
    std::vector<unsigned long> sockets;
    for (const int relay : {200, 201, 202}) {
        AddRelay(relay);
        AddTerminalShell(relay + 100, relay);
        if (relay != 201) {
            const KernelObject socket = ForeignSocket();
            Hold(relay, 6, socket);
            sockets.push_back(socket.inode);
        }
    }
    EXPECT_EQ(Check({300, 301, 302}, {200, 201, 202}), std::vector<int>{301});
    EXPECT_EQ(foundPids, (std::vector<int>{300, 302}));
    EXPECT_EQ(InodesOf(foundSocks), sockets);
}

}  // namespace
