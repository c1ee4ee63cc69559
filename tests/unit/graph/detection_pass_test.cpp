#include <climits>

#include "graph_fixture.h"
#include "tests/support/event_json.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::nanoseconds;

// Each test uses other pids because reported shells are remembered across passes.
class DetectionPass : public ProcGraphTest {
protected:
    static void HaveConnection(unsigned long inode, const std::string& remoteIp = "192.0.2.7") {
        Fake::TheAgent().tcp.push_back(Connection(inode, remoteIp));
    }

    void AddShell(int pid, int ppid, const std::map<int, std::string>& descriptors,
                  const std::string& cmdline = std::string("bash\0-i\0", 8)) {
        proc->Add({.pid = pid, .ppid = ppid, .exe = "/usr/bin/bash", .cmdline = cmdline});
        AddDescriptors(pid, descriptors);
    }

    void AddOther(int pid, int ppid, const std::map<int, std::string>& descriptors) {
        proc->Add({.pid = pid, .ppid = ppid, .exe = "/usr/bin/nc", .cmdline = std::string("nc\0", 3)});
        AddDescriptors(pid, descriptors);
    }

    void AddDescriptors(int pid, const std::map<int, std::string>& descriptors) {
        for (const auto& [fd, link] : descriptors) {
            proc->AddDescriptor(pid, fd, link);
        }
    }

    static std::multiset<int> ReportedPids() {
        std::multiset<int> pids;
        for (const std::string& event : Fake::TheAgent().events) {
            pids.insert(EventJson::Parse(event)["eventContent"]["pid"].Number());
        }
        return pids;
    }

    static std::string PeerOf(int pid) {
        for (const std::string& event : Fake::TheAgent().events) {
            const auto content = EventJson::Parse(event)["eventContent"];
            if (content["pid"] == pid) {
                return content["remoteIp"].Text();
            }
        }
        return "not reported";
    }
};

TEST_F(DetectionPass, EndsBeforeTheProcessScanWithoutAForeignConnection) {
    HaveConnection(5000, "127.0.0.1");
    AddShell(10001, 1, {{0, Socket(5000)}, {1, Socket(5000)}});
    detector.DetectRoutine({});
    EXPECT_TRUE(detector.bashProcs.empty());
    EXPECT_TRUE(TimeRecorder::Pauses().empty());
}

TEST_F(DetectionPass, PausesAfterTheConnectionsAndAfterTheScan) {
    HaveConnection(5000);
    detector.DetectRoutine({});
    EXPECT_EQ(TimeRecorder::Pauses(), (std::vector<nanoseconds>{milliseconds(50), milliseconds(50)}));
}

TEST_F(DetectionPass, ScansProcessesBetweenItsPauses) {
    HaveConnection(5000);
    AddShell(10005, 1, {{0, "/dev/null"}});
    std::vector<size_t> candidates;
    TimeRecorder::AtEachPause([this, &candidates](size_t) { candidates.push_back(detector.bashProcs.size()); });
    detector.DetectRoutine({});
    EXPECT_EQ(candidates, (std::vector<size_t>{0, 1}));
}

TEST_F(DetectionPass, ReportsAShellOnAForeignSocketWithoutASearch) {
    HaveConnection(5000);
    AddShell(10010, 900, {{0, Socket(5000)}, {1, Socket(5000)}});
    AddOther(10011, 900, {{0, Pipe(7000)}});
    detector.DetectRoutine({});
    EXPECT_EQ(ReportedPids(), std::multiset<int>{10010});
    EXPECT_TRUE(detector.childProcs.contains(900)) << "siblings are not added in the direct case";
    EXPECT_TRUE(detector.ipcInodes.contains(5000));
}

TEST_F(DetectionPass, ReportsTheConnectionOfDescriptorZeroInTheDirectCase) {
    HaveConnection(5000, "192.0.2.1");
    HaveConnection(5001, "192.0.2.2");
    AddShell(10015, 1, {{0, Socket(5000)}, {1, Socket(5001)}});
    detector.DetectRoutine({});
    EXPECT_EQ(PeerOf(10015), "192.0.2.1");
}

TEST_F(DetectionPass, SearchesForAForeignSocketOnDescriptorOneAlone) {
    HaveConnection(5001, "192.0.2.2");
    AddShell(10020, 901, {{0, Socket(5000)}, {1, Socket(5001)}});
    AddOther(10021, 901, {{0, Pipe(7000)}});
    detector.DetectRoutine({});
    EXPECT_EQ(PeerOf(10020), "192.0.2.2");
    EXPECT_FALSE(detector.childProcs.contains(901)) << "the search adds the siblings first";
}

// A socket with this number counts as none: it marks a descriptor without pipe or socket.
constexpr char invalidSocket[] = "socket:[18446744073709551615]";

// The search adds the siblings to the graph, the direct case does not.
TEST_F(DetectionPass, SearchesUnlessBothInputAndOutputAreSockets) {
    HaveConnection(5000);
    HaveConnection(ULONG_MAX);
    const std::map<int, std::string> wirings[] = {
        {{0, Socket(5000)}, {1, Pipe(7000)}},    {{0, Pipe(5000)}, {1, Socket(5000)}},
        {{0, Socket(5000)}, {1, "/dev/null"}},   {{0, Socket(5000)}},
        {{0, Socket(5000)}, {1, invalidSocket}}, {{1, Socket(5000)}},
        {{0, invalidSocket}, {1, Socket(5000)}},
    };
    int pid = 10022;
    for (const auto& wiring : wirings) {
        SCOPED_TRACE(pid);
        ReverseShellDetector once;
        AddShell(pid, pid - 1, wiring);
        AddOther(pid + 1, pid - 1, {});
        once.DetectRoutine({});
        EXPECT_FALSE(once.childProcs.contains(pid - 1));
        EXPECT_TRUE(ReportedPids().contains(pid));
        std::filesystem::remove_all(proc->Folder() / std::to_string(pid));
        pid += 1000;
    }
}

// Numbers of pipes and sockets may coincide: a pipe never counts as the socket with its number.
TEST_F(DetectionPass, DoesNotReportAPipeWithTheInodeOfAForeignSocket) {
    HaveConnection(5000);
    AddShell(10028, 915, {{0, Pipe(5000)}, {1, Socket(5001)}});
    detector.DetectRoutine({});
    EXPECT_TRUE(Fake::TheAgent().events.empty());
}

TEST_F(DetectionPass, SkipsAShellOnATerminalWithSocketsOnOtherDescriptors) {
    HaveConnection(5000);
    AddShell(10030, 902, {{0, "/dev/null"}, {1, "/dev/null"}, {2, "/dev/null"}, {3, Socket(5000)}, {4, Pipe(7000)}});
    detector.DetectRoutine({});
    EXPECT_TRUE(Fake::TheAgent().events.empty());
    const ProcPtr shell = *detector.bashProcs.begin();
    EXPECT_TRUE(shell->cmdline.empty()) << "its command line is not read";
    EXPECT_EQ(shell->fds[0].inode, ReverseShellDetector::INVALID_INODE);
}

TEST_F(DetectionPass, SkipsAShellWithoutPipesAndSockets) {
    HaveConnection(5000);
    AddShell(10035, 902, {{0, "/dev/null"}});
    detector.DetectRoutine({});
    EXPECT_TRUE((*detector.bashProcs.begin())->fds.empty());
}

TEST_F(DetectionPass, SearchesFromAShellWithOnlyItsOutputOnAPipe) {
    HaveConnection(5000);
    AddShell(10040, 903, {{0, "/dev/null"}, {1, Pipe(7000)}});
    AddOther(10041, 903, {{0, Pipe(7000)}, {3, Socket(5000)}});
    detector.DetectRoutine({});
    EXPECT_EQ(ReportedPids(), std::multiset<int>{10040});
}

TEST_F(DetectionPass, IgnoresAConnectionOfTheParent) {
    HaveConnection(5000);
    AddOther(10050, 904, {{0, Pipe(7000)}, {3, Socket(5000)}});
    AddShell(10051, 10050, {{0, Pipe(7000)}, {1, Pipe(7000)}});
    detector.DetectRoutine({});
    EXPECT_TRUE(Fake::TheAgent().events.empty());
}

TEST_F(DetectionPass, NeitherReportsNorSearchesFromAWhitelistedShell) {
    HaveConnection(5000);
    AddShell(10060, 905, {{0, Socket(5000)}, {1, Socket(5000)}}, std::string("bash\0/opt/backup.sh\0", 20));
    AddShell(10061, 906, {{0, Pipe(7000)}}, std::string("bash\0/opt/backup.sh\0", 20));
    AddOther(10062, 906, {{1, Pipe(7000)}, {3, Socket(5000)}});
    detector.DetectRoutine({"bash /opt/*"});
    EXPECT_TRUE(Fake::TheAgent().events.empty());
    EXPECT_TRUE(detector.ipcInodes.contains(7000));
}

TEST_F(DetectionPass, MatchesTheWhitelistWithTheWholeCommandLine) {
    HaveConnection(5000);
    AddShell(10065, 907, {{0, Socket(5000)}, {1, Socket(5000)}}, std::string("bash\0-i\0", 8));
    detector.DetectRoutine({"bash", "-i", "bash -i ?"});
    EXPECT_EQ(ReportedPids(), std::multiset<int>{10065});
}

TEST_F(DetectionPass, SearchesThroughAWhitelistedShell) {
    HaveConnection(5000);
    AddShell(10070, 908, {{0, Pipe(7000)}}, std::string("bash\0-i\0", 8));
    AddShell(10071, 909, {{1, Pipe(7000)}, {3, Socket(5000)}}, std::string("bash\0exempt\0", 12));
    detector.DetectRoutine({"bash exempt"});
    EXPECT_EQ(ReportedPids(), std::multiset<int>{10070});
}

TEST_F(DetectionPass, ContinuesAfterAFinding) {
    HaveConnection(5000);
    HaveConnection(5001);
    AddShell(10080, 1, {{0, Socket(5000)}, {1, Socket(5000)}});
    AddShell(10081, 1, {{0, Socket(5001)}, {1, Socket(5001)}});
    detector.DetectRoutine({});
    EXPECT_EQ(ReportedPids(), (std::multiset<int>{10080, 10081}));
}

TEST_F(DetectionPass, ReportsOneOfTwoShellsOnOnePipe) {
    HaveConnection(5000);
    AddShell(10085, 910, {{0, Pipe(7000)}});
    AddShell(10086, 910, {{0, Pipe(7000)}});
    AddOther(10087, 910, {{1, Pipe(7000)}, {3, Socket(5000)}});
    detector.DetectRoutine({});
    EXPECT_EQ(ReportedPids().size(), 1U);
}

TEST_F(DetectionPass, ReportsTwoShellsOfOneParentOnDifferentPipes) {
    HaveConnection(5000);
    AddShell(10088, 914, {{0, Pipe(7000)}});
    AddShell(10089, 914, {{0, Pipe(7001)}});
    AddOther(10092, 914, {{0, Socket(5000)}, {1, Pipe(7000)}, {2, Pipe(7001)}});
    detector.DetectRoutine({});
    EXPECT_EQ(ReportedPids(), (std::multiset<int>{10088, 10089}));
    EXPECT_EQ(detector.relatedPids, std::set<int>{10092});
}

TEST_F(DetectionPass, ReportsAnUnchangedShellOnceInTwoPasses) {
    HaveConnection(5000);
    AddShell(10090, 1, {{0, Socket(5000)}, {1, Socket(5000)}});
    for (int pass = 0; pass < 2; ++pass) {
        ReverseShellDetector once;
        once.DetectRoutine({});
    }
    EXPECT_EQ(ReportedPids(), std::multiset<int>{10090});
}

TEST_F(DetectionPass, KeepsEveryCandidatePendingUntilASearchVisitsIt) {
    HaveConnection(5000);
    AddShell(10100, 911, {{0, "/dev/null"}});
    AddShell(10101, 912, {{0, Pipe(7000)}});
    detector.DetectRoutine({});
    ASSERT_EQ(detector.pendingProcs.size(), 1U);
    EXPECT_EQ((*detector.pendingProcs.begin())->pid, 10100);
}

TEST_F(DetectionPass, ReportsAShellWhoseCommandLineVanishes) {
    HaveConnection(5000);
    AddShell(10110, 913, {{0, Socket(5000)}, {1, Socket(5000)}});
    std::filesystem::remove(proc->Folder() / "10110" / "cmdline");
    detector.DetectRoutine({});
    EXPECT_EQ(ReportedPids(), std::multiset<int>{10110});
}

}  // namespace
