#include "classifier_fixture.h"

namespace {

// The two searches for a process that feeds the pipe of the shell 300.
class PipeSearch : public ClassifierTest {
protected:
    using Search = int (ReverseShell::*)(int pid, unsigned long pipe, SocketInfo& sock);

    void SetUp() override {
        ClassifierTest::SetUp();
        if (!IsSkipped()) {
            pipe = objects.Pipe();
            AddShell(300, 200);
            WaitOnPipe(300, pipe);
        }
    }

    void AddTool(int pid, int ppid) { AddProcess(pid, ppid, "/usr/bin/tool", "tool"); }

    void AddWriter(int pid, int ppid) {
        AddTool(pid, ppid);
        HoldPipe(pid, 1, pipe, writeOnly);
    }

    // Searches a snapshot of the process and stores the pauses of the search.
    int Find(Search search, int pid) {
        ReverseShell detector = Detector({pid});
        detector.CheckMultiprocShell(foundPids, foundSocks);
        const size_t mark = TimeRecorder::Pauses().size();
        SocketInfo sock;
        const int found = (detector.*search)(300, pipe.inode, sock);
        pauses = PausesSince(mark);
        return found;
    }

    KernelObject pipe;
    PauseList pauses;
};

TEST_F(PipeSearch, ReturnsOneForARelay) {
    AddWriter(400, 200);
    Wait(400, ForeignSocket());
    EXPECT_EQ(Find(&ReverseShell::FindSockByPipe, 400), 1);
}

TEST_F(PipeSearch, ReturnsOneForADescendant) {
    AddWriter(400, 300);
    EXPECT_EQ(Find(&ReverseShell::FindSockByPipeCurl, 400), 1);
}

TEST_F(PipeSearch, ReadsNothingOfTheShellItself) {
    HoldPipe(300, 1, pipe, writeOnly);
    for (const Search search : {&ReverseShell::FindSockByPipe, &ReverseShell::FindSockByPipeCurl}) {
        EXPECT_EQ(Find(search, 300), 0);
        EXPECT_TRUE(pauses.empty());
    }
}

// Each process read costs two pauses of 10 ms.
TEST_F(PipeSearch, ReadsTheAncestorsOfAWriterUpToPidTwo) {
    AddTool(1, 0);
    AddTool(2, 1);
    AddWriter(400, 2);
    EXPECT_EQ(Find(&ReverseShell::FindSockByPipeCurl, 400), 0);
    EXPECT_EQ(std::ranges::count(pauses, microseconds(10000)), 4);
}

}  // namespace
