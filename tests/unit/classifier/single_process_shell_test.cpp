#include "classifier_fixture.h"

namespace {

class SingleProcessShell : public ClassifierTest {
protected:
    // Runs the stage over these shells and returns those not claimed.
    std::vector<int> Check(const std::vector<int>& pids, long oldestSockTime = 0) {
        ReverseShell detector(shellPaths, {}, oldestSockTime, false, 10000);
        detector.bashPids = pids;
        detector.CheckSingleprocShell(foundPids, foundSocks);
        return detector.bashPids;
    }
};

TEST_F(SingleProcessShell, IsFoundReadingAForeignSocket) {
    const KernelObject socket = AddSocketShell(300, 200);
    EXPECT_TRUE(Check({300}).empty());
    EXPECT_EQ(foundPids, std::vector<int>{300});
    ASSERT_EQ(InodesOf(foundSocks), std::vector<unsigned long>{socket.inode});
    EXPECT_EQ(foundSocks[0].remotePort, 4444);
    EXPECT_EQ(Log(), std::vector<std::string>{"found type 1 rshell.[pid=300]"});
}

TEST_F(SingleProcessShell, IsFoundInSelectOnAForeignSocket) {
    AddShell(300, 200);
    const KernelObject socket = ForeignSocket();
    Wait(300, socket, "do_select");
    EXPECT_TRUE(Check({300}).empty());
    EXPECT_EQ(InodesOf(foundSocks), std::vector<unsigned long>{socket.inode});
}

TEST_F(SingleProcessShell, IsNotFoundWaitingForSomethingElse) {
    AddShell(300, 200);
    Hold(300, 0, ForeignSocket());
    Block(300, "do_wait", 0);
    AddShell(301, 200);
    Hold(301, 5, ForeignSocket());
    WaitOnPipe(301, objects.Pipe());
    EXPECT_EQ(Check({300, 301}), (std::vector<int>{300, 301}));
    EXPECT_TRUE(foundPids.empty());
    EXPECT_TRUE(Log().empty());
}

TEST_F(SingleProcessShell, IsNotFoundOnALoopbackSocket) {
    AddShell(300, 200);
    const KernelObject socket = objects.Socket();
    Know(LoopbackConnection(socket.inode));
    Wait(300, socket);
    EXPECT_EQ(Check({300}), std::vector<int>{300});
    EXPECT_TRUE(foundPids.empty());
}

TEST_F(SingleProcessShell, IsNotFoundOnAnOlderSocket) {
    const KernelObject socket = AddSocketShell(300, 200);
    const long seen = socketTable[socket.inode].firstSeen;
    EXPECT_EQ(Check({300}, seen + 1), std::vector<int>{300});
    EXPECT_TRUE(foundPids.empty());
    EXPECT_TRUE(Check({300}, seen).empty());
    EXPECT_EQ(foundPids, std::vector<int>{300});
}

TEST_F(SingleProcessShell, IsNotFoundOnceItRunsAnotherProgram) {
    AddSocketShell(300, 200);
    std::filesystem::remove(proc->Folder() / "300" / "exe");
    EXPECT_EQ(Check({300}), std::vector<int>{300});
    EXPECT_TRUE(foundPids.empty());
    EXPECT_TRUE(Log().empty());
}

TEST_F(SingleProcessShell, StaysInTheListAfterItsEnd) {
    EXPECT_EQ(Check({300}), std::vector<int>{300});
    EXPECT_TRUE(foundPids.empty());
}

TEST_F(SingleProcessShell, IsFoundTwiceForTwoShellsOnOneSocket) {
    const KernelObject socket = AddSocketShell(300, 200);
    AddShell(301, 200);
    Wait(301, socket);
    EXPECT_TRUE(Check({300, 301}).empty());
    EXPECT_EQ(foundPids, (std::vector<int>{300, 301}));
    EXPECT_EQ(InodesOf(foundSocks), (std::vector<unsigned long>{socket.inode, socket.inode}));
}

TEST_F(SingleProcessShell, DoesNotInheritThePreviousShellsSocket) {
    AddSocketShell(300, 200);
    AddShell(301, 200);
    Hold(301, 0, objects.Socket());
    Block(301, "inet_recvmsg", 7);  // a closed descriptor
    EXPECT_EQ(Check({300, 301}), std::vector<int>{301});
    EXPECT_EQ(foundPids, std::vector<int>{300});
}

TEST_F(SingleProcessShell, PausesForEachShellAndAfterAFinding) {
    AddSocketShell(300, 200);
    AddShell(301, 200);
    Check({300, 301});
    // The sample pauses between the stage's own pauses: for two stack lines and for the match.
    EXPECT_EQ(TimeRecorder::Pauses(), (PauseList{microseconds(500), microseconds(500), microseconds(500),
                                                 microseconds(5000), microseconds(500), microseconds(500)}));
}

TEST_F(SingleProcessShell, StaysInTheListUpToTheStop) {
    AddShell(300, 200);
    AddSocketShell(301, 200);
    AddSocketShell(302, 200);
    AddSocketShell(303, 200);
    AddShell(304, 200);
    // One pause for the first shell; for the second its own, three of the sample, and one after the finding.
    StopAtPause(1 + 1 + 3 + 1);
    EXPECT_EQ(Check({300, 301, 302, 303, 304}), (std::vector<int>{300, 302}));
    EXPECT_EQ(foundPids, std::vector<int>{301});
    EXPECT_EQ(Log(), (std::vector<std::string>{"found type 1 rshell.[pid=301]", stopped}));
}

}  // namespace
