#include "classifier_fixture.h"

namespace {

using MultiProcessShell = ClassifierTest;

TEST_F(MultiProcessShell, TakesSnapshotsOfTheOthersThenOfTheShells) {
    AddShell(300, 200);
    AddShell(301, 200);
    AddProcess(302, 200, "/usr/bin/tool", "tool");
    AddProcess(303, 200, "/usr/bin/tool", "tool");
    ReverseShell detector = Detector({303, 302});
    detector.bashPids = {301, 300};
    detector.CheckMultiprocShell(foundPids, foundSocks);
    EXPECT_EQ(PidsOf(detector.procs), (std::vector<int>{303, 302, 301, 300}));
    EXPECT_EQ(detector.procs[3].cmdline, "bash -i");
    EXPECT_EQ(detector.procs[3].ppid, 200);
    EXPECT_EQ(detector.bashPids, (std::vector<int>{301, 300}));
    EXPECT_EQ(detector.pids, (std::vector<int>{303, 302}));
    EXPECT_EQ(Log(),
              (std::vector<std::string>{"get all proc info begin", "get all proc info end.[edgeNum=0 max=10000]"}));
}

TEST_F(MultiProcessShell, FindsNothing) {
    AddSocketShell(300, 200);
    ReverseShell detector = Detector({});
    detector.bashPids = {300};
    detector.CheckMultiprocShell(foundPids, foundSocks);
    EXPECT_TRUE(foundPids.empty());
    EXPECT_TRUE(foundSocks.empty());
}

TEST_F(MultiProcessShell, SkipsAProcessThatIsGone) {
    AddShell(300, 200);
    AddShell(302, 200);
    ReverseShell detector = Detector({});
    detector.bashPids = {300, 301, 302};
    detector.CheckMultiprocShell(foundPids, foundSocks);
    EXPECT_EQ(PidsOf(detector.procs), (std::vector<int>{300, 302}));
    EXPECT_EQ(Log().size(), 2U);
}

TEST_F(MultiProcessShell, LogsALimitWithoutApplyingIt) {
    ReverseShell detector(shellPaths, {}, 0, false, 1);
    for (const int pid : {300, 301, 302}) {
        AddShell(pid, 200);
        detector.bashPids.push_back(pid);
    }
    detector.CheckMultiprocShell(foundPids, foundSocks);
    EXPECT_EQ(detector.procs.size(), 3U);
    EXPECT_EQ(detector.edgeNum, 0U);
    EXPECT_TRUE(HasLogged("get all proc info end.[edgeNum=0 max=1]"));
}

TEST_F(MultiProcessShell, LogsItsEndAfterAStop) {
    AddShell(300, 200);
    AddShell(301, 200);
    ReverseShell detector = Detector({});
    detector.bashPids = {300, 301};
    StopAtPause(1);
    detector.CheckMultiprocShell(foundPids, foundSocks);
    EXPECT_EQ(PidsOf(detector.procs), std::vector<int>{300});
    EXPECT_EQ(Log(), (std::vector<std::string>{"get all proc info begin", stopped,
                                               "get all proc info end.[edgeNum=0 max=10000]"}));
}

}  // namespace
