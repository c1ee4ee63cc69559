#include "classifier_fixture.h"

namespace {

// A shell 300 under 200 that waits on a pipe or a Unix stream. Each test adds the other processes.
class SpecialShell : public ClassifierTest {
protected:
    static constexpr char foundByPipe[] = "found type 3 rshell pid.[pid=300]";
    static constexpr char foundByStream[] = "found type 4 rshell pid.[pid=300]";

    void SetUp() override {
        ClassifierTest::SetUp();
        if (IsSkipped()) {
            return;
        }
        tool = folder.Write("tool", "no shell");
        AddProcess(200, 100, tool, "tool");
        proc->AddDescriptor(200, 0, "/dev/null");
    }

    void AddPipeShell(const std::string& words = "bash -i") {
        AddShell(300, 200, words);
        pipe = objects.Pipe();
        WaitOnPipe(300, pipe);
    }

    void AddStreamShell() {
        AddShell(300, 200);
        stream = objects.Socket();
        Wait(300, stream, "unix_stream_recvmsg");
    }

    // Adds a relay that waits on socket and writes the shell's pipe.
    void AddRelay(int pid, const KernelObject& socket) {
        AddProcess(pid, 200, tool, "relay");
        Wait(pid, socket);
        HoldPipe(pid, 1, pipe, writeOnly);
    }

    void AddWriter(int pid, int ppid) {
        AddProcess(pid, ppid, tool, "writer");
        HoldPipe(pid, 1, pipe, writeOnly);
    }

    KernelObject SocketOf(SocketInfo info) {
        const KernelObject socket = objects.Socket();
        info.inode = socket.inode;
        Know(info);
        return socket;
    }

    // Runs the stage with snapshots of the shell and of the others. Returns the shells not claimed.
    std::vector<int> Check(const std::vector<int>& others, long oldestSockTime = 0) {
        ReverseShell detector(shellPaths, others, oldestSockTime, false, 10000);
        detector.bashPids = {300};
        detector.CheckMultiprocShell(foundPids, foundSocks);
        Fake::TheAgent().log.clear();
        detector.CheckSpecialShell();
        return detector.bashPids;
    }

    static std::string FdLine(int pid, int fd, const KernelObject& object) {
        return "[pid=" + std::to_string(pid) + " fd=" + std::to_string(fd) + " inode=" + std::to_string(object.inode) +
               "]";
    }

    // socket is the inode in the record after the search.
    std::string FeederLine(int pid, unsigned long socket) const {
        return "Proc read sock and write pipe.[pid=" + std::to_string(pid) + " socket=" + std::to_string(socket) +
               " pipe=" + std::to_string(pipe.inode) + "]";
    }

    const std::vector<int> claimed{};
    const std::vector<int> left{300};
    std::string tool;
    KernelObject pipe;
    KernelObject stream;
};

TEST_F(SpecialShell, IsFoundOnThePipeOfARelay) {
    AddPipeShell();
    const KernelObject socket = ForeignSocket();
    AddRelay(400, socket);
    EXPECT_EQ(Check({200, 400}), claimed);
    EXPECT_EQ(Log(),
              (std::vector<std::string>{
                  FdLine(400, 0, socket), FdLine(400, 1, pipe),
                  "proc reading sock write pipe.[pid=400 pipe=" + std::to_string(pipe.inode) + "]", foundByPipe}));
    const auto content = Content();
    EXPECT_EQ(content["pid"], 300);
    EXPECT_EQ(content["ppid"], 200);
    EXPECT_EQ(content["inode"], std::to_string(socket.inode));
    EXPECT_TRUE(foundPids.empty()) << "the stage raises the alarm itself";
}

TEST_F(SpecialShell, IsNotFoundOnAPipeWithoutAWriter) {
    AddPipeShell();
    AddProcess(400, 300, tool, "reader");
    HoldPipe(400, 1, pipe, readOnly);
    Hold(400, 3, ForeignSocket());
    EXPECT_EQ(Check({200, 400}), left);
    EXPECT_TRUE(Log().empty());
}

TEST_F(SpecialShell, IsNotFoundOnAPipeThatOnlyItWrites) {
    AddPipeShell();
    HoldPipe(300, 1, pipe, writeOnly);
    EXPECT_EQ(Check({200}), left);
    EXPECT_TRUE(Log().empty());
}

TEST_F(SpecialShell, IsNotFoundBehindARelayThatOnlyReadsItsPipe) {
    AddPipeShell();
    AddProcess(400, 200, tool, "reader");
    Wait(400, ForeignSocket());
    HoldPipe(400, 1, pipe, readOnly);
    EXPECT_EQ(Check({200, 400}), left);
    EXPECT_TRUE(Log().empty());
}

TEST_F(SpecialShell, IsNotFoundIfADescendantOnlyReadsItsPipe) {
    AddPipeShell();
    AddProcess(400, 300, tool, "reader");
    HoldPipe(400, 0, pipe, readOnly);
    EXPECT_EQ(Check({200, 400}), left);
    EXPECT_TRUE(Log().empty());
}

TEST_F(SpecialShell, IsNotFoundIfTheRelayIsOutsideThePass) {
    AddPipeShell();
    AddRelay(400, ForeignSocket());
    EXPECT_EQ(Check({200}), left);
}

TEST_F(SpecialShell, IsNotFoundOnAPipeIfItsParentIsOutsideThePass) {
    AddPipeShell();
    AddRelay(400, ForeignSocket());
    EXPECT_EQ(Check({400}), left);
    EXPECT_TRUE(Log().empty());
}

TEST_F(SpecialShell, IsNotFoundBehindAWriterThatNeitherReadsASocketNorDescends) {
    AddPipeShell();
    AddWriter(400, 200);
    Hold(400, 0, ForeignSocket());
    EXPECT_EQ(Check({200, 400}), left);
    EXPECT_TRUE(Log().empty());
}

// Descriptor 0 of the relay is not the socket that it reads. The second search is tried nevertheless.
TEST_F(SpecialShell, IsNotFoundBehindARelayThatReadsAnotherSocketThanItsInput) {
    AddPipeShell();
    const KernelObject input = ForeignSocket();
    AddWriter(400, 200);
    Hold(400, 0, input);
    Hold(400, 7, ForeignSocket());
    Block(400, "inet_recvmsg", 7);
    AddWriter(401, 300);
    EXPECT_EQ(Check({200, 400}), left);
    EXPECT_EQ(Log(), std::vector<std::string>{FdLine(400, 0, input)});
    EXPECT_EQ(Check({200, 400, 401}), claimed);
    EXPECT_TRUE(HasLogged(FeederLine(401, 0)));
}

TEST_F(SpecialShell, IsNotFoundBehindARelayWhoseOutputIsAnotherPipe) {
    AddPipeShell();
    const KernelObject socket = ForeignSocket();
    const KernelObject other = objects.Pipe();
    AddProcess(400, 200, tool, "relay");
    Wait(400, socket);
    HoldPipe(400, 1, other, writeOnly);
    HoldPipe(400, 5, pipe, writeOnly);
    EXPECT_EQ(Check({200, 400}), left);
    EXPECT_EQ(Log(), (std::vector<std::string>{FdLine(400, 0, socket), FdLine(400, 1, other)}));
}

TEST_F(SpecialShell, IsNotFoundBehindARelayWithoutAnOutput) {
    AddPipeShell();
    const KernelObject socket = ForeignSocket();
    AddProcess(400, 200, tool, "relay");
    Wait(400, socket);
    HoldPipe(400, 5, pipe, writeOnly);
    EXPECT_EQ(Check({200, 400}), left);
    EXPECT_EQ(Log(), std::vector<std::string>{FdLine(400, 0, socket)})
        << "no line for a descriptor that cannot be read";
}

TEST_F(SpecialShell, IsNotFoundBehindARelayOnLoopback) {
    AddPipeShell();
    AddRelay(400, SocketOf(LoopbackConnection(0)));
    EXPECT_EQ(Check({200, 400}), left);
    EXPECT_FALSE(HasLogged(foundByPipe));
}

TEST_F(SpecialShell, IsNotFoundBehindARelayWithAnOlderSocket) {
    AddPipeShell();
    const KernelObject socket = ForeignSocket();
    AddRelay(400, socket);
    EXPECT_EQ(Check({200, 400}, socketTable[socket.inode].firstSeen + 1), left);
}

TEST_F(SpecialShell, IsNotFoundBehindARelayWithARawSocket) {
    AddPipeShell();
    AddRelay(400, SocketOf(RawSocket(0)));
    EXPECT_EQ(Check({200, 400}), left) << "the next stage sees it";
    EXPECT_FALSE(HasLogged(foundByPipe));
    EXPECT_TRUE(Events().empty());
}

TEST_F(SpecialShell, IsReportedWithTheFirstRelayInTheOrderOfSnapshots) {
    AddPipeShell();
    const KernelObject first = ForeignSocket();
    const KernelObject second = ForeignSocket();
    AddRelay(401, first);
    AddRelay(400, second);
    EXPECT_EQ(Check({200, 401, 400}), claimed);
    EXPECT_EQ(Content()["inode"], std::to_string(first.inode));
}

TEST_F(SpecialShell, IsFoundBehindAForeignRelayAfterOneOnLoopback) {
    AddPipeShell();
    AddRelay(400, SocketOf(LoopbackConnection(0)));
    const KernelObject foreign = ForeignSocket();
    AddRelay(401, foreign);
    EXPECT_EQ(Check({200, 400, 401}), claimed);
    EXPECT_EQ(Content()["inode"], std::to_string(foreign.inode));
}

TEST_F(SpecialShell, IsFoundIfADescendantWithoutSocketsWritesItsPipe) {
    AddPipeShell();
    AddWriter(400, 300);
    EXPECT_EQ(Check({200, 400}), claimed);
    EXPECT_EQ(Log(), (std::vector<std::string>{FeederLine(400, 0), foundByPipe}));
    EXPECT_TRUE(Events().empty()) << "there is no connection to report";
}

TEST_F(SpecialShell, IsNotFoundIfTheDescendantHasAForeignSocket) {
    AddPipeShell();
    AddWriter(400, 300);
    Hold(400, 3, ForeignSocket());
    EXPECT_EQ(Check({200, 400}), left);
    EXPECT_TRUE(Log().empty());
}

TEST_F(SpecialShell, IsFoundBehindADescendantAfterOneWithAForeignSocket) {
    AddPipeShell();
    AddWriter(400, 300);
    Hold(400, 3, ForeignSocket());
    AddWriter(401, 300);
    EXPECT_EQ(Check({200, 400, 401}), claimed);
    EXPECT_TRUE(HasLogged(foundByPipe));
}

// The alarm reports the last socket looked up, even one that is not abnormal.
TEST_F(SpecialShell, IsReportedWithTheLastSocketOfTheFeeder) {
    AddPipeShell();
    AddWriter(400, 300);
    SocketInfo served = ForeignConnection(0);
    served.localPort = 22;
    const KernelObject socket = SocketOf(served);
    Hold(400, 3, socket);
    EXPECT_EQ(Check({200, 400}), claimed);
    EXPECT_TRUE(HasLogged(FeederLine(400, socket.inode)));
    const auto content = Content();
    EXPECT_EQ(content["inode"], std::to_string(socket.inode));
    EXPECT_EQ(content["localPort"], 22);
}

// The socket of a rejected relay stays in the record if the descendant has no socket.
TEST_F(SpecialShell, IsReportedWithTheSocketOfARejectedRelay) {
    AddPipeShell();
    SocketInfo served = ForeignConnection(0);
    served.localPort = 22;
    const KernelObject socket = SocketOf(served);
    AddRelay(400, socket);
    AddWriter(401, 300);
    EXPECT_EQ(Check({200, 400, 401}), claimed);
    EXPECT_TRUE(HasLogged(FeederLine(401, socket.inode)));
    EXPECT_EQ(Content()["inode"], std::to_string(socket.inode));
}

TEST_F(SpecialShell, IsNotFoundIfARejectedRelayHasARawSocket) {
    AddPipeShell();
    SocketInfo old = RawSocket(0);
    old.firstSeen = 0;
    AddRelay(400, SocketOf(old));
    AddWriter(401, 300);
    EXPECT_EQ(Check({200, 400, 401}, 1), left);
    EXPECT_FALSE(HasLogged(foundByPipe));
}

TEST_F(SpecialShell, DoesNotInheritThePreviousShellsSocket) {
    AddPipeShell();
    AddRelay(400, ForeignSocket());
    AddShell(301, 200);
    pipe = objects.Pipe();
    WaitOnPipe(301, pipe);
    AddWriter(401, 301);
    ReverseShell detector = Detector({200, 400, 401});
    detector.bashPids = {300, 301};
    detector.CheckMultiprocShell(foundPids, foundSocks);
    detector.CheckSpecialShell();
    EXPECT_EQ(detector.bashPids, claimed);
    EXPECT_TRUE(HasLogged(FeederLine(401, 0)));
    EXPECT_EQ(Content()["pid"], 300);
}

TEST_F(SpecialShell, IsFoundBehindADescendantOfSeveralGenerations) {
    AddPipeShell();
    AddProcess(400, 300, tool, "a");
    AddProcess(401, 400, tool, "b");
    AddWriter(402, 401);
    EXPECT_EQ(Check({200, 402}), claimed) << "the ancestors between need no snapshot";
}

TEST_F(SpecialShell, IsNotFoundBehindAWriterThatIsNoDescendant) {
    AddPipeShell();
    AddProcess(1, 0, tool, "init");
    AddProcess(100, 1, tool, "session");
    AddWriter(400, 100);
    AddWriter(401, 1);
    EXPECT_EQ(Check({200, 400, 401}), left);
}

TEST_F(SpecialShell, IsNotFoundBehindAWriterWithAMissingAncestor) {
    AddPipeShell();
    AddWriter(400, 350);  // 350 does not exist
    EXPECT_EQ(Check({200, 400}), left);
}

// The walk reads the processes again instead of using their snapshots.
TEST_F(SpecialShell, IsNotFoundBehindAWriterThatEndedAfterItsSnapshot) {
    AddPipeShell();
    AddWriter(400, 300);
    ReverseShell detector = Detector({200, 400});
    detector.bashPids = {300};
    detector.CheckMultiprocShell(foundPids, foundSocks);
    Remove(400);
    detector.CheckSpecialShell();
    EXPECT_EQ(detector.bashPids, left);
}

TEST_F(SpecialShell, ReadsNothingForSnapshotsThatDoNotWriteThePipe) {
    AddPipeShell();
    AddProcess(400, 300, tool, "bystander");
    Wait(400, ForeignSocket());
    ReverseShell detector = Detector({200, 400});
    detector.bashPids = {300};
    detector.CheckMultiprocShell(foundPids, foundSocks);
    const size_t mark = TimeRecorder::Pauses().size();
    SocketInfo sock;
    EXPECT_EQ(detector.FindSockByPipe(300, pipe.inode, sock), 0);
    EXPECT_EQ(detector.FindSockByPipeCurl(300, pipe.inode, sock), 0);
    EXPECT_EQ(TimeRecorder::Pauses().size(), mark);
}

TEST_F(SpecialShell, IsFoundOnAStreamIfItsParentHoldsARawSocket) {
    AddStreamShell();
    const KernelObject raw = SocketOf(RawSocket(0));
    Hold(200, 4, raw);
    EXPECT_EQ(Check({200}), claimed);
    EXPECT_EQ(Log(), std::vector<std::string>{foundByStream});
    EXPECT_EQ(Content()["inode"], std::to_string(raw.inode));
    EXPECT_EQ(Content()["remotePort"], 4444);
}

TEST_F(SpecialShell, IsNotFoundOnAStreamIfItsParentIsOutsideThePass) {
    AddStreamShell();
    Hold(200, 4, SocketOf(RawSocket(0)));
    EXPECT_EQ(Check({}), left);
    EXPECT_TRUE(Log().empty());
}

TEST_F(SpecialShell, IsClaimedWithoutAnAlarmIfTheRawSocketHasNoPort) {
    AddStreamShell();
    SocketInfo raw = RawSocket(0);
    raw.remotePort = 0;
    Hold(200, 4, SocketOf(raw));
    EXPECT_EQ(Check({200}), claimed);
    EXPECT_TRUE(HasLogged(foundByStream));
    EXPECT_TRUE(Events().empty());
}

TEST_F(SpecialShell, IsNotFoundOnAStreamIfItsParentHoldsNoRawSocket) {
    AddStreamShell();
    EXPECT_EQ(Check({200}), left) << "no socket";
    Hold(200, 4, ForeignSocket());
    EXPECT_EQ(Check({200}), left) << "a TCP connection";
    EXPECT_TRUE(Log().empty());
}

// The search of the parent's sockets ends with the first abnormal one.
TEST_F(SpecialShell, IsNotFoundOnAStreamIfAnotherSocketPrecedesTheRawOne) {
    AddStreamShell();
    const KernelObject first = objects.Socket();
    const KernelObject second = objects.Socket();
    Hold(200, 4, first);
    Hold(200, 5, second);
    Know(ForeignConnection(std::min(first.inode, second.inode)));
    Know(RawSocket(std::max(first.inode, second.inode)));
    EXPECT_EQ(Check({200}), left);
    EXPECT_TRUE(Log().empty());
    Know(RawSocket(std::min(first.inode, second.inode)));
    EXPECT_EQ(Check({200}), claimed);
}

// A second sample would find the shell reading the stream. It must not be taken.
TEST_F(SpecialShell, IsNotCheckedForAStreamIfItReadsAPipe) {
    AddPipeShell();
    Hold(200, 4, SocketOf(RawSocket(0)));
    const KernelObject later = objects.Socket();
    Hold(300, 9, later);
    proc->AddFile(300, "stack", "[<0>] pipe_read+0x1/0x2\n[<0>] unix_stream_recvmsg+0x1/0x2\n");
    ReverseShell detector = Detector({200});
    detector.bashPids = {300};
    ProcInfo own;
    own.pid = 300;
    own.ppid = 200;
    ProcInfo parent;
    ASSERT_EQ(GetProcInfo(200, parent), 1);
    detector.AddNode(own);
    detector.AddNode(parent);
    int matches = 0;
    TimeRecorder::AtEachPause([this, &matches](auto...) {
        // A sample pauses for 5 ms after a match, before it reads the descriptor. From here on it is the stream.
        if (TimeRecorder::Pauses().back() == microseconds(5000) && ++matches == 2) {
            proc->AddFile(300, "syscall", "0 0x9 0x0 0x0 0x0 0x0 0x0 0x0 0x0\n");
        }
    });
    detector.CheckSpecialShell();
    EXPECT_EQ(detector.bashPids, left);
    EXPECT_FALSE(HasLogged(foundByStream));
}

TEST_F(SpecialShell, IsNotFoundWaitingForNeitherPipeNorStream) {
    AddShell(300, 200);
    Wait(300, ForeignSocket());
    Hold(200, 4, SocketOf(RawSocket(0)));
    EXPECT_EQ(Check({200}), left);
    EXPECT_TRUE(Log().empty());
}

TEST_F(SpecialShell, IsLoggedButNotClaimedOnceItRunsAnotherProgram) {
    AddPipeShell();
    AddRelay(400, ForeignSocket());
    ReverseShell detector = Detector({200, 400});
    detector.bashPids = {300};
    detector.CheckMultiprocShell(foundPids, foundSocks);
    std::filesystem::remove(proc->Folder() / "300" / "exe");
    detector.CheckSpecialShell();
    EXPECT_TRUE(HasLogged(foundByPipe));
    EXPECT_EQ(detector.bashPids, left);
    EXPECT_TRUE(Events().empty());
}

TEST_F(SpecialShell, IsClaimedWithoutAnAlarmIfStartedWithACommand) {
    struct Case {
        const char* words;
        size_t events;
    };
    for (const Case& row : {Case{"bash -c id", 0}, Case{"bash  -x script", 0}, Case{"bash -c", 0}, Case{"bash -i", 1},
                            Case{"bash", 1}, Case{"bash -i -c", 1}, Case{"bash -cx", 1}}) {
        ForgetAlarms();
        std::filesystem::remove_all(proc->Folder() / "300");
        std::filesystem::remove_all(proc->Folder() / "400");
        Fake::TheAgent().events.clear();
        AddPipeShell(row.words);
        AddRelay(400, ForeignSocket());
        EXPECT_EQ(Check({200, 400}), claimed) << row.words;
        EXPECT_TRUE(HasLogged(foundByPipe)) << row.words;
        EXPECT_EQ(Events().size(), row.events) << row.words;
    }
}

// With a claim there is exactly one more pause than without.
TEST_F(SpecialShell, PausesAfterAClaim) {
    AddPipeShell("bash -c id");
    AddWriter(400, 300);
    const auto pausesOf = [this](bool isShell) {
        ReverseShell detector = Detector({200, 400});
        detector.bashPids = {300};
        detector.CheckMultiprocShell(foundPids, foundSocks);
        if (!isShell) {
            detector.shells.clear();
            detector.shellInodes.clear();
        }
        const size_t mark = TimeRecorder::Pauses().size();
        detector.CheckSpecialShell();
        EXPECT_EQ(detector.bashPids.empty(), isShell);
        PauseList pauses = PausesSince(mark);
        std::erase(pauses, microseconds(400));  // per 200 descriptors since the program started
        return pauses;
    };
    PauseList expected = pausesOf(false);
    expected.push_back(microseconds(500));
    EXPECT_EQ(pausesOf(true), expected);
}

TEST_F(SpecialShell, PausesForEachSnapshotSearched) {
    AddShell(300, 200);
    ReverseShell detector = Detector({});
    detector.bashPids = {300, 301};
    for (const int pid : {200, 299, 300}) {
        ProcInfo info;
        info.pid = pid;
        info.ppid = pid == 300 ? 200 : 100;
        detector.AddNode(info);
    }
    detector.CheckSpecialShell();
    EXPECT_EQ(TimeRecorder::Pauses(), PauseList(3 + 1 + 3, microseconds(500)))
        << "three for the shell, one for its parent, three for the shell without a snapshot";
    EXPECT_EQ(detector.bashPids, (std::vector<int>{300, 301}));
}

TEST_F(SpecialShell, IsDroppedAfterAStop) {
    ReverseShell detector = Detector({});
    detector.AddNode({});
    detector.bashPids = {300, 301, 302};
    StopAtPause(2);
    detector.CheckSpecialShell();
    EXPECT_EQ(detector.bashPids, (std::vector<int>{300, 301}));
    EXPECT_EQ(Log(), std::vector<std::string>{stopped});
}

TEST_F(SpecialShell, SearchesNothingAfterAStop) {
    AddPipeShell();
    AddRelay(400, ForeignSocket());
    AddWriter(401, 300);
    ReverseShell detector = Detector({200, 400, 401});
    detector.CheckMultiprocShell(foundPids, foundSocks);
    Fake::TheAgent().log.clear();
    moduleRunning = 0;
    SocketInfo sock;
    EXPECT_EQ(detector.FindSockByPipe(300, pipe.inode, sock), 0);
    EXPECT_EQ(detector.FindSockByPipeCurl(300, pipe.inode, sock), 0);
    EXPECT_EQ(Log(), (std::vector<std::string>{stopped, stopped}));
    EXPECT_EQ(sock.inode, 0U);
}

// Without the test for a stop, a cycle of ancestors would block the thread for ever.
TEST_F(SpecialShell, EndsTheWalkUpTheAncestorsAtAStop) {
    AddPipeShell();
    AddWriter(400, 401);
    AddProcess(401, 400, tool, "writer");
    ReverseShell detector = Detector({200, 400});
    detector.bashPids = {300};
    detector.CheckMultiprocShell(foundPids, foundSocks);
    StopAtPause(2000);
    detector.CheckSpecialShell();
    EXPECT_EQ(detector.bashPids, left);
    EXPECT_EQ(moduleRunning, 0);
}

}  // namespace
