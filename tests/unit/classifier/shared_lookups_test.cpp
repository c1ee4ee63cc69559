#include "classifier_fixture.h"

namespace {

using ProcessSocket = ClassifierTest;

TEST_F(ProcessSocket, IsTheAbnormalOneWithTheLowestInode) {
    Know(LoopbackConnection(51));
    Know(ForeignConnection(53));
    Know(RawSocket(52));
    ProcInfo info;
    info.sockets = {53, 51, 52};
    ReverseShell detector = Detector({});
    SocketInfo sock;
    EXPECT_EQ(detector.GetProcessSock(info, sock), 1);
    EXPECT_EQ(sock.inode, 52U);
    EXPECT_EQ(sock.type, rawTable);
    EXPECT_EQ(TimeRecorder::Pauses(), PauseList(2, microseconds(500))) << "the third is not looked up";
}

TEST_F(ProcessSocket, KeepsTheLastSocketLookedUp) {
    Know(LoopbackConnection(51));
    Know(LoopbackConnection(52));
    ProcInfo info;
    info.sockets = {51, 52};
    ReverseShell detector = Detector({});
    SocketInfo sock;
    EXPECT_EQ(detector.GetProcessSock(info, sock), 0);
    EXPECT_EQ(sock.inode, 52U);
    EXPECT_EQ(TimeRecorder::Pauses().size(), 2U);
}

TEST_F(ProcessSocket, KeepsTheLastSocketThatTheTableHas) {
    Know(LoopbackConnection(51));
    ProcInfo info;
    info.sockets = {51, 52};
    ReverseShell detector(shellPaths, {}, 0, true, 10000);
    SocketInfo sock;
    EXPECT_EQ(detector.GetProcessSock(info, sock), 0);
    EXPECT_EQ(sock.inode, 51U);
}

TEST_F(ProcessSocket, LeavesTheRecordUnchangedWithoutSockets) {
    ReverseShell detector = Detector({});
    SocketInfo sock{.type = 5, .inode = 77};
    EXPECT_EQ(detector.GetProcessSock({}, sock), 0);
    EXPECT_EQ(sock.type, 5);
    EXPECT_EQ(sock.inode, 77U);
    EXPECT_TRUE(TimeRecorder::Pauses().empty());
}

TEST_F(ProcessSocket, IgnoresSocketsOlderThanThePassesLimit) {
    SocketInfo known = ForeignConnection(51);
    Know(known);
    ProcInfo info;
    info.sockets = {51};
    SocketInfo sock;
    ReverseShell later(shellPaths, {}, known.firstSeen + 1, false, 10000);
    EXPECT_EQ(later.GetProcessSock(info, sock), 0);
    ReverseShell now(shellPaths, {}, known.firstSeen, false, 10000);
    EXPECT_EQ(now.GetProcessSock(info, sock), 1);
}

using Snapshots = ClassifierTest;

TEST_F(Snapshots, AreCopiedCompletely) {
    ProcInfo info;
    info.pid = 300;
    info.ppid = 200;
    info.path = shell;
    info.cmdline = "bash -i";
    info.readPipes = {1};
    info.writePipes = {2};
    info.sockets = {3};
    info.hasPtmx = true;
    info.hasPts = true;
    ReverseShell detector = Detector({});
    detector.AddNode(info);
    ProcInfo out;
    ASSERT_TRUE(detector.GetProcInfoInternal(300, out));
    EXPECT_EQ(out.pid, 300);
    EXPECT_EQ(out.ppid, 200);
    EXPECT_EQ(out.path, shell);
    EXPECT_EQ(out.cmdline, "bash -i");
    EXPECT_EQ(out.readPipes, std::set<unsigned long>{1});
    EXPECT_EQ(out.writePipes, std::set<unsigned long>{2});
    EXPECT_EQ(out.sockets, std::set<unsigned long>{3});
    EXPECT_TRUE(out.hasPtmx);
    EXPECT_TRUE(out.hasPts);
}

TEST_F(Snapshots, PauseForEachRecordUpToTheResult) {
    ReverseShell detector = Detector({});
    for (const int pid : {300, 301, 302}) {
        ProcInfo info;
        info.pid = pid;
        detector.AddNode(info);
    }
    ProcInfo out;
    EXPECT_TRUE(detector.GetProcInfoInternal(302, out));
    EXPECT_EQ(TimeRecorder::Pauses(), PauseList(3, microseconds(500)));
    EXPECT_TRUE(detector.GetProcInfoInternal(300, out));
    EXPECT_EQ(TimeRecorder::Pauses().size(), 4U);
}

TEST_F(Snapshots, LeaveTheRecordUnchangedIfThereIsNone) {
    ReverseShell detector = Detector({});
    ProcInfo out;
    out.pid = 7;
    EXPECT_FALSE(detector.GetProcInfoInternal(300, out));
    EXPECT_TRUE(TimeRecorder::Pauses().empty());
    detector.AddNode({});
    EXPECT_FALSE(detector.GetProcInfoInternal(300, out));
    EXPECT_EQ(out.pid, 7);
}

}  // namespace
