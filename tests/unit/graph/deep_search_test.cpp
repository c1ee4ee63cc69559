#include "graph_fixture.h"
#include "tests/support/event_json.h"

namespace {

class DeepSearch : public GraphTest {
protected:
    // Returns the content of the only event.
    static EventJson Content() {
        EXPECT_EQ(Fake::TheAgent().events.size(), 1U);
        return EventJson::Parse(Fake::TheAgent().events.at(0))["eventContent"];
    }

    static size_t Events() { return Fake::TheAgent().events.size(); }

    ProcPtr shell = MakeProc();
    ProcPtr companion = MakeProc();
};

TEST_F(DeepSearch, ReportsTheShellsOwnForeignSocketBeforeAnyNeighbour) {
    Hold(shell, 0, Pipe(1000));
    Hold(shell, 5, Socket(2000));
    Hold(companion, 1, Pipe(1000));
    Hold(companion, 3, Socket(3000));
    MakeForeign(2000, "192.0.2.20");
    MakeForeign(3000, "192.0.2.30");

    detector.DeepSearchReverseShell(shell);

    EXPECT_EQ(Content()["remoteIp"], "192.0.2.20");
    EXPECT_EQ(detector.ipcInodes.count(1000), 0U) << "the pipe on the lower descriptor is walked";
    EXPECT_EQ(detector.ipcInodes.count(3000), 1U) << "the neighbour is not visited";
}

TEST_F(DeepSearch, EndsAtTheFirstForeignSocket) {
    const ProcPtr other = MakeProc();
    Hold(shell, 0, Socket(2000));
    Hold(shell, 1, Pipe(1000));
    Hold(companion, 0, Pipe(1001));
    Hold(companion, 1, Pipe(1002));
    Hold(companion, 2, Socket(3000));
    Hold(other, 1, Pipe(1001));
    Hold(other, 2, Pipe(1003));
    MakeForeign(2000);
    MakeForeign(3000);
    detector.pendingProcs = {shell, companion, other};

    detector.DeepSearchReverseShell(shell);
    EXPECT_TRUE(detector.ipcInodes.contains(1000)) << "no further descriptor of the same process";
    EXPECT_EQ(detector.pendingProcs, (std::set<ProcPtr>{companion, other}));

    detector.DeepSearchReverseShell(companion);
    EXPECT_TRUE(detector.ipcInodes.contains(1003)) << "no further process";
    EXPECT_EQ(detector.pendingProcs, std::set<ProcPtr>{other});
}

TEST_F(DeepSearch, ReportsTheShellWithItsCompanionsConnection) {
    Hold(shell, 0, Pipe(1000));
    Hold(companion, 1, Pipe(1000));
    Hold(companion, 3, Socket(3000));
    MakeForeign(3000, "192.0.2.30");

    detector.DeepSearchReverseShell(shell);

    EXPECT_EQ(Content()["pid"], shell->pid);
    EXPECT_EQ(Content()["cmdline"], shell->cmdline);
    EXPECT_EQ(Content()["remoteIp"], "192.0.2.30");
}

TEST_F(DeepSearch, FollowsAChainOfTwoPipes) {
    const ProcPtr middle = MakeProc();
    Hold(shell, 1, Pipe(1000));
    Hold(middle, 0, Pipe(1000));
    Hold(middle, 1, Pipe(1001));
    Hold(companion, 0, Pipe(1001));
    Hold(companion, 3, Socket(3000));
    MakeForeign(3000);

    detector.DeepSearchReverseShell(shell);

    EXPECT_EQ(Content()["pid"], shell->pid);
}

TEST_F(DeepSearch, EndsAtAProcessThatIsNotInTheGraph) {
    Hold(shell, 1, Pipe(1000));
    Hold(companion, 0, Pipe(1001));
    Hold(companion, 3, Socket(3000));
    MakeForeign(3000);

    detector.DeepSearchReverseShell(shell);

    EXPECT_EQ(Events(), 0U);
    EXPECT_EQ(detector.ipcInodes.count(1000), 0U);
}

TEST_F(DeepSearch, FollowsASharedLocalSocket) {
    Hold(shell, 0, Socket(1500));
    Hold(companion, 4, Socket(1500));
    Hold(companion, 3, Socket(3000));
    MakeForeign(3000);

    detector.DeepSearchReverseShell(shell);

    EXPECT_EQ(Content()["pid"], shell->pid);
}

TEST_F(DeepSearch, ReportsOneOfTwoForeignConnectionsBehindOnePipe) {
    const ProcPtr other = MakeProc();
    Hold(shell, 0, Pipe(1000));
    Hold(companion, 1, Pipe(1000));
    Hold(companion, 3, Socket(3000));
    Hold(other, 1, Pipe(1000));
    Hold(other, 3, Socket(4000));
    MakeForeign(3000);
    MakeForeign(4000);

    detector.DeepSearchReverseShell(shell);

    EXPECT_EQ(Events(), 1U);
}

TEST_F(DeepSearch, VisitsTheNeighboursOfTheHighestDescriptorFirst) {
    const ProcPtr other = MakeProc();
    Hold(shell, 0, Pipe(1000));
    Hold(shell, 1, Pipe(1001));
    Hold(companion, 1, Pipe(1000));
    Hold(companion, 3, Socket(3000));
    Hold(other, 0, Pipe(1001));
    Hold(other, 3, Socket(4000));
    MakeForeign(3000, "192.0.2.30");
    MakeForeign(4000, "192.0.2.40");

    detector.DeepSearchReverseShell(shell);

    EXPECT_EQ(Content()["remoteIp"], "192.0.2.40");
}

// The work list is a stack, and neighbours are pushed in the order of their set.
TEST_F(DeepSearch, VisitsTheNeighbourWithTheHighestAddressFirst) {
    Hold(shell, 0, Pipe(1000));
    std::set<ProcPtr> neighbours;
    for (unsigned int i = 0; i < 4; ++i) {
        const ProcPtr neighbour = MakeProc();
        neighbours.insert(neighbour);
        Hold(neighbour, 1, Pipe(1000));
        Hold(neighbour, 3, Socket(3000 + i));
        MakeForeign(3000 + i, "192.0.2.3" + std::to_string(i));
    }

    detector.DeepSearchReverseShell(shell);

    const unsigned long long first = (*neighbours.rbegin())->fds[3].inode;
    EXPECT_EQ(Content()["remoteIp"], "192.0.2.3" + std::to_string(first - 3000));
}

TEST_F(DeepSearch, EndsInACycleOfTwoPipes) {
    for (const unsigned long long inode : {1000ULL, 1001ULL}) {
        Hold(shell, inode == 1000 ? 0 : 1, Pipe(inode));
        Hold(companion, inode == 1000 ? 1 : 0, Pipe(inode));
    }
    detector.DeepSearchReverseShell(shell);
    EXPECT_EQ(Events(), 0U);
    EXPECT_TRUE(detector.ipcInodes.empty());
}

TEST_F(DeepSearch, ErasesThePipeOfALoneShellWithoutAnEvent) {
    Hold(shell, 0, Pipe(1000));
    detector.pendingProcs = {shell};
    detector.DeepSearchReverseShell(shell);
    EXPECT_EQ(Events(), 0U);
    EXPECT_TRUE(detector.ipcInodes.empty());
    EXPECT_TRUE(detector.pendingProcs.empty());
    EXPECT_EQ(shell->fds.size(), 1U);
}

TEST_F(DeepSearch, IgnoresAPipeWithTheInodeOfAForeignSocket) {
    Hold(shell, 0, Pipe(3000));
    MakeForeign(3000);
    detector.DeepSearchReverseShell(shell);
    EXPECT_EQ(Events(), 0U);
}

TEST_F(DeepSearch, IgnoresADefaultEntry) {
    Hold(shell, 1, Pipe(1000));
    shell->fds[0];
    detector.foreignSockets.insert({ReverseShellDetector::INVALID_INODE, Connection(1)});
    detector.DeepSearchReverseShell(shell);
    EXPECT_EQ(Events(), 0U);
    EXPECT_TRUE(detector.ipcInodes.empty()) << "the search continues with the next descriptor";
}

TEST_F(DeepSearch, WalksTheInvalidInodeIfAFailedParseStoredIt) {
    shell->fds[0];
    Hold(companion, 3, Socket(3000));
    detector.ipcInodes[ReverseShellDetector::INVALID_INODE].procs = {companion};
    MakeForeign(3000);
    detector.DeepSearchReverseShell(shell);
    EXPECT_EQ(Content()["pid"], shell->pid);
}

TEST_F(DeepSearch, DoesNotReportALaterShellOnAWalkedPipe) {
    const ProcPtr second = MakeProc();
    Hold(shell, 0, Pipe(1000));
    Hold(second, 0, Pipe(1000));
    Hold(companion, 1, Pipe(1000));
    Hold(companion, 3, Socket(3000));
    MakeForeign(3000);

    detector.DeepSearchReverseShell(shell);
    detector.DeepSearchReverseShell(second);

    EXPECT_EQ(Content()["pid"], shell->pid);
}

TEST_F(DeepSearch, ReportsALaterShellThatHoldsTheSocketItself) {
    const ProcPtr second = MakeProc();
    Hold(shell, 0, Socket(3000));
    Hold(second, 0, Socket(3000));
    MakeForeign(3000);

    detector.DeepSearchReverseShell(shell);
    detector.DeepSearchReverseShell(second);

    EXPECT_EQ(Events(), 2U);
}

}  // namespace
