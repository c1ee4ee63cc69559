// Fixture of the tests of the short-command watcher: a fresh scripted agent, recorded time and a tree over /proc, with
// a parent that waits for a peer and the exec events of its commands.
#pragma once

#include <gtest/gtest.h>
#include <linux/cn_proc.h>
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "classifier/tmp_command_intake.h"
#include "classifier/tmp_command_list.h"
#include "classifier/tmp_command_verdict.h"
#include "classifier/tmp_command_watcher.h"
#include "frame/module_lock.h"
#include "frame/run_state.h"
#include "frame/settings.h"
#include "frame/whitelist.h"
#include "inspect/socket_table.h"
#include "tests/fakes/fake_agent.h"
#include "tests/support/blocked_task.h"
#include "tests/support/kernel_clocks.h"
#include "tests/support/proc_tree.h"
#include "tests/support/time_recorder.h"

class TmpCommandTest : public testing::Test {
protected:
    static constexpr int parent = 500;  // the process judged; started 10 seconds after the boot
    static constexpr int lastPid = 602;
    static constexpr unsigned long long second = 1000000000;
    static constexpr unsigned long long millisecond = 1000000;
    static constexpr char reading[] = "tcp_recvmsg";
    static constexpr char elsewhere[] = "do_poll";

    // The module's units that log during a sweep.
    inline static const std::set<std::string> logSources = {"detect_reverse_shell", "detect_shell",
                                                            "detect_shell_utils"};

    void SetUp() override {
        if (!MayMount()) {
            GTEST_SKIP() << "needs the right to mount a tree over /proc (root)";
        }
        BeginAfresh();
        ReplaceWhitelist({});
        shellPaths.clear();
        sshdInodes.clear();
        socketTable.clear();
        moduleRunning = 1;
        tree = std::make_unique<ProcTree>();
        tmpProcLock.Init();
        socketTableLock.Init();
        ClearTmpProcs();
    }

    void TearDown() override {
        for (const Fake::LogLine& line : Fake::TheAgent().log) {
            EXPECT_TRUE(logSources.contains(line.source)) << line.source << ": " << line.text;
            EXPECT_EQ(line.channel, "NormalLog") << line.text;
        }
        StopDetectTmpRshell();
        moduleRunning = 0;
        KernelClocks::Reset();
        TimeRecorder::Reset();
    }

    // Clears recorded calls and pauses and moves the clock on by two hours: the module remembers alarms for one. The
    // tests of the instant scan in the same program use other times, and inodes are reused.
    static void BeginAfresh() {
        static constexpr std::chrono::hours afterTheInstantScan(200000);
        static int times = 0;
        Fake::ResetAgent();
        TimeRecorder::Reset();
        TimeRecorder::Advance(afterTheInstantScan + std::chrono::hours(2 * ++times));
    }

    static long Now() { return static_cast<long>(time(nullptr)); }

    // The text of /proc/<pid>/stat with the start at a time since boot (proc_pid_stat(5), field 22).
    static std::string StatText(int pid, std::chrono::milliseconds start) {
        const long long ticks = static_cast<long long>(start.count()) * sysconf(_SC_CLK_TCK) / 1000;
        return std::to_string(pid) + " (server) S 1 5 5 0 -1 4194560 1 2 3 4 5 6 7 8 20 0 1 0 " +
               std::to_string(ticks) + " 9 10\n";
    }

    unsigned long Inode(const std::string& file) const {
        struct stat info {};
        if (stat(folder.Path(file).c_str(), &info) != 0) {
            throw std::runtime_error("no " + file);
        }
        return static_cast<unsigned long>(info.st_ino);
    }

    // Adds a process that reads a TCP connection, first seen now, on its descriptor 3 and has written something.
    void AddReader(int pid) {
        const std::string name = "socket" + std::to_string(pid);
        if (mknod(folder.Path(name).c_str(), S_IFSOCK | 0600, 0) != 0) {
            throw std::runtime_error("no socket");
        }
        tree->Add({.pid = pid, .ppid = 1, .exe = "/opt/app/server", .cmdline = std::string("server\0--go\0", 12)});
        tree->AddFile(pid, "stat", StatText(pid, std::chrono::seconds(10)));
        tree->AddFile(pid, "io", "rchar: 17\nwchar: 4\n");
        Block(pid, reading);
        tree->AddDescriptor(pid, 3, folder.Path(name));
        const unsigned long inode = Inode(name);
        socketTable[inode] = {.type = tcpTable,
                              .inode = inode,
                              .state = tcpEstablished,
                              .localIp = 0x037133C6,   // 198.51.113.3 in the kernel's order
                              .remoteIp = 0x077100CB,  // 203.0.113.7
                              .localPort = 40001,
                              .remotePort = 4444,
                              .firstSeen = Now()};
    }

    SocketInfo& SocketOf(int pid) { return socketTable.at(Inode("socket" + std::to_string(pid))); }

    // Blocks the process in this kernel function, on its descriptor 3.
    void Block(int pid, const std::string& function) {
        AddStack(*tree, pid, function, "[<0>] " + function + "+0x5f/0x1d0\n");
        AddCall(*tree, pid, function, 3);
    }

    void Write(int pid, const std::string& file, const std::string& text) { tree->AddFile(pid, file, text); }

    void End(int pid) { std::filesystem::remove_all(tree->Folder() / std::to_string(pid)); }

    // A command that has ended. timestamp is in nanoseconds since boot.
    static TPROC_INFO Command(int pid, unsigned long long timestamp) {
        return {.pid = pid, .path = "/usr/bin/ls", .cmdline = "ls -l", .timestamp = timestamp, .suspended = 0};
    }

    // Commands from second 20 on, one per half second, with ascending pids up to last.
    static std::vector<TPROC_INFO> Commands(int count, int last = lastPid) {
        std::vector<TPROC_INFO> commands;
        for (int i = 0; i < count; ++i) {
            commands.push_back(
                Command(last - count + 1 + i, 20 * second + static_cast<unsigned long long>(i) * 500 * millisecond));
        }
        return commands;
    }

    // Adds a running process. Exec sends the event of its exec.
    void AddCommand(int pid, int ppid, const std::string& exe, const std::string& cmdline) {
        End(pid);
        tree->Add({.pid = pid, .ppid = ppid, .exe = exe, .cmdline = cmdline});
    }

    static proc_event ExecEvent(int pid, unsigned long long timestamp) {
        proc_event event{};
        event.what = decltype(event.what)::PROC_EVENT_EXEC;
        event.timestamp_ns = timestamp;
        event.event_data.exec.process_pid = pid;
        event.event_data.exec.process_tgid = pid;
        return event;
    }

    static void Exec(int pid, unsigned long long timestamp) {
        proc_event event = ExecEvent(pid, timestamp);
        OnTmpProcEvent(&event);
    }

    static void Sweep() { EXPECT_EQ(CheckTmpShellTask(nullptr), nullptr); }

    static size_t CountPauses(std::chrono::nanoseconds length) {
        return static_cast<size_t>(std::ranges::count(TimeRecorder::Pauses(), length));
    }

    static size_t CountProbes() { return CountPauses(std::chrono::milliseconds(200)); }

    // Calls hook at the start of each probe's pause with the number of the probe, from 0.
    static void AtEachProbe(std::function<void(size_t)> hook) {
        TimeRecorder::AtEachPause([hook = std::move(hook)](size_t) {
            if (TimeRecorder::Pauses().back() == std::chrono::milliseconds(200)) {
                hook(CountProbes() - 1);
            }
        });
    }

    static std::vector<std::string> Details() { return Fake::TheAgent().LogTexts(LOG_LEVEL_DETAIL); }

    static bool HasDetail(const std::string& text) { return std::ranges::count(Details(), text) == 1; }

    TemporaryDirectory folder;
    std::unique_ptr<ProcTree> tree;
};
