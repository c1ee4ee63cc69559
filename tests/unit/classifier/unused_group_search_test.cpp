#include "classifier_fixture.h"

namespace {

class GroupSearch : public ClassifierTest {
protected:
    // Does not read the socket table again, which would remove the sockets of the test.
    ReverseShell DetectorOfKnownSockets() const { return {shellPaths, {}, 0, true, 10000}; }

    // Adds a process with these sockets to the pass and returns its index.
    static unsigned int AddNode(ReverseShell& detector, int pid, const std::set<unsigned long>& sockets = {}) {
        ProcInfo info;
        info.pid = pid;
        info.sockets = sockets;
        detector.AddNode(info);
        return static_cast<unsigned int>(detector.procs.size() - 1);
    }

    static SocketInfo Listener(unsigned long inode, int port) {
        SocketInfo info = ForeignConnection(inode);
        info.state = tcpListen;
        info.remoteIp = 0;
        info.remotePort = 0;
        info.localPort = port;
        return info;
    }
};

TEST_F(GroupSearch, CollectsThePortsOfListeningSockets) {
    Know(Listener(51, 8080));
    Know(ForeignConnection(52));
    Know(Listener(53, 22));
    Know(Listener(54, 8080));
    std::set<unsigned long> ports = {7};
    Detector({}).GetProcListenPort({51, 52, 53, 54}, ports);
    EXPECT_EQ(ports, (std::set<unsigned long>{7, 22, 8080}));
    EXPECT_TRUE(TimeRecorder::Pauses().empty());
}

TEST_F(GroupSearch, FindsAForeignSocketThatWasNotAccepted) {
    SocketInfo accepted = ForeignConnection(52);
    accepted.localPort = 8080;
    Know(Listener(51, 8080));
    Know(accepted);
    Know(ForeignConnection(53));
    ReverseShell detector = DetectorOfKnownSockets();
    const unsigned int without = AddNode(detector, 300);
    const unsigned int with = AddNode(detector, 301, {51, 52, 53});
    SocketInfo sock;
    EXPECT_EQ(detector.GetForeignSock({without, with}, sock), 1);
    EXPECT_EQ(sock.inode, 53U);
    EXPECT_EQ(Log(), (std::vector<std::string>{"Proc and listenPort.[proc=300 listenPort=0]",
                                               "Proc and listenPort.[proc=301 listenPort=1]"}));
    EXPECT_EQ(TimeRecorder::Pauses(), PauseList(2, microseconds(500)));
}

TEST_F(GroupSearch, FindsNoForeignSocketIfAllWereAccepted) {
    SocketInfo accepted = ForeignConnection(52);
    accepted.localPort = 8080;
    Know(Listener(51, 8080));
    Know(accepted);
    ReverseShell detector = DetectorOfKnownSockets();
    const unsigned int server = AddNode(detector, 300, {51, 52});
    SocketInfo sock;
    EXPECT_EQ(detector.GetForeignSock({server}, sock), 0);
    EXPECT_EQ(detector.GetForeignSock({}, sock), 0);
}

TEST_F(GroupSearch, IgnoresTheListeningPortsOfOtherProcesses) {
    SocketInfo connection = ForeignConnection(52);
    connection.localPort = 8080;
    Know(Listener(51, 8080));
    Know(connection);
    ReverseShell detector = DetectorOfKnownSockets();
    const unsigned int listener = AddNode(detector, 300, {51});
    const unsigned int other = AddNode(detector, 301, {52});
    SocketInfo sock;
    EXPECT_EQ(detector.GetForeignSock({listener, other}, sock), 1);
    EXPECT_EQ(sock.inode, 52U);
}

TEST_F(GroupSearch, TakesTheFirstProcessInTheGivenOrder) {
    Know(ForeignConnection(51));
    Know(ForeignConnection(52));
    ReverseShell detector = DetectorOfKnownSockets();
    const unsigned int first = AddNode(detector, 300, {51});
    const unsigned int second = AddNode(detector, 301, {52});
    SocketInfo sock;
    EXPECT_EQ(detector.GetForeignSock({second, first}, sock), 1);
    EXPECT_EQ(sock.inode, 52U);
    EXPECT_EQ(TimeRecorder::Pauses().size(), 1U);
}

TEST_F(GroupSearch, FindsTheLastWaitingShellOfAGroup) {
    ReverseShell detector = Detector({});
    std::vector<unsigned int> group;
    for (const int pid : {300, 301, 302}) {
        AddShell(pid, 200);
        WaitOnPipe(pid, objects.Pipe(), pid == 301 ? "do_select" : "pipe_read");
        group.push_back(AddNode(detector, pid));
    }
    AddProcess(303, 200, folder.Write("tool", "no shell"), "tool");
    WaitOnPipe(303, objects.Pipe());
    group.push_back(AddNode(detector, 303));
    int shellPid = 0;
    EXPECT_EQ(detector.GetBashProcess(group, shellPid), 1);
    EXPECT_EQ(shellPid, 302);
    EXPECT_TRUE(Log().empty());
    EXPECT_EQ(std::ranges::count(TimeRecorder::Pauses(), microseconds(200)), 4);

    EXPECT_EQ(detector.GetBashProcess({group[0], group[1]}, shellPid), 1);
    EXPECT_EQ(shellPid, 301) << "it waits in select";
}

TEST_F(GroupSearch, AcceptsAGroupWithOneProcessThatDoesNotWait) {
    ReverseShell detector = Detector({});
    AddShell(300, 200);
    WaitOnPipe(300, objects.Pipe());
    AddShell(301, 200);
    const unsigned int waiting = AddNode(detector, 300);
    const unsigned int busy = AddNode(detector, 301);
    int shellPid = 0;
    EXPECT_EQ(detector.GetBashProcess({busy, waiting}, shellPid), 1);
    EXPECT_EQ(shellPid, 300);
    EXPECT_EQ(Log(), std::vector<std::string>{"proc nonreading.[proc=301]"});
}

TEST_F(GroupSearch, RejectsAGroupWithTwoProcessesThatDoNotWait) {
    ReverseShell detector = Detector({});
    AddShell(300, 200);
    WaitOnPipe(300, objects.Pipe());
    const unsigned int waiting = AddNode(detector, 300);
    const unsigned int one = AddNode(detector, 301);
    const unsigned int other = AddNode(detector, 302);
    int shellPid = 0;
    EXPECT_EQ(detector.GetBashProcess({one, waiting, other, waiting}, shellPid), 0);
    EXPECT_EQ(shellPid, 300) << "found before the group was rejected";
    EXPECT_EQ(Log(), (std::vector<std::string>{"proc nonreading.[proc=301]", "proc nonreading.[proc=302]",
                                               "has more nonreading proc"}));
    EXPECT_EQ(std::ranges::count(TimeRecorder::Pauses(), microseconds(200)), 2);
}

TEST_F(GroupSearch, AcceptsAGroupWithoutAWaitingShell) {
    ReverseShell detector = Detector({});
    int shellPid = 7;
    EXPECT_EQ(detector.GetBashProcess({}, shellPid), 1);
    EXPECT_EQ(detector.GetBashProcess({AddNode(detector, 300)}, shellPid), 1);
    EXPECT_EQ(shellPid, 7);
}

}  // namespace
