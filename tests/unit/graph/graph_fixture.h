// Fixture of the detector's tests: a fresh scripted agent, recorded time, and builders for records.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "graph/reverse_shell_detector.h"
#include "tests/fakes/fake_agent.h"
#include "tests/support/proc_tree.h"
#include "tests/support/time_recorder.h"

using ProcPtr = std::shared_ptr<ReverseShellDetector::ProcInfomation>;

class GraphTest : public testing::Test {
protected:
    void SetUp() override {
        Fake::ResetAgent();
        TimeRecorder::Reset();
    }

    void TearDown() override {
        for (const Fake::LogLine& line : Fake::TheAgent().log) {
            EXPECT_EQ(line.source, "reverse_shell_detector") << line.text;
            EXPECT_EQ(line.level, LOG_LEVEL_DETAIL) << line.text;
            EXPECT_TRUE(line.channel == "NormalLog" || line.text.starts_with("Open [")) << line.text;
        }
    }

    // Makes a process with a new pid. The module remembers the pids that other tests reported.
    static ProcPtr MakeProc(int ppid = 1) {
        static int nextPid = 3000000;
        auto proc = std::make_shared<ReverseShellDetector::ProcInfomation>();
        proc->pid = nextPid++;
        proc->ppid = ppid;
        proc->cmdline = "bash";
        return proc;
    }

    static TavUtils::NetStat::NETSTAT Connection(unsigned long inode, const std::string& remoteIp = "192.0.2.7") {
        return {.localIp = "198.51.100.3",
                .remoteIp = remoteIp,
                .localPort = 40001,
                .remotePort = 4444,
                .state = 1,
                .inode = inode};
    }

    static std::string Socket(unsigned long long inode) { return "socket:[" + std::to_string(inode) + "]"; }
    static std::string Pipe(unsigned long long inode) { return "pipe:[" + std::to_string(inode) + "]"; }

    void Hold(const ProcPtr& proc, int fd, const std::string& link) {
        detector.AddIPCInode(link.c_str(), static_cast<unsigned int>(link.size()), fd, proc);
    }

    void MakeForeign(unsigned long inode, const std::string& remoteIp = "192.0.2.7") {
        detector.foreignSockets.insert({inode, Connection(inode, remoteIp)});
    }

    ReverseShellDetector detector;
};

// The same with a built tree over /proc.
class ProcGraphTest : public GraphTest {
protected:
    void SetUp() override {
        GraphTest::SetUp();
        if (!MayMount()) {
            GTEST_SKIP() << "needs the right to mount a tree over /proc (root)";
        }
        proc = std::make_unique<ProcTree>();
    }

    std::unique_ptr<ProcTree> proc;
};
