// Fixture of the instant scan's tests, from intake to event: a started module and a fake /proc, with processes that
// wait on real pipes, sockets and terminals.
#pragma once

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "frame/module_lock.h"
#include "frame/run_state.h"
#include "frame/settings.h"
#include "frame/whitelist.h"
#include "inspect/socket_table.h"
#include "tests/fakes/fake_agent.h"
#include "tests/support/blocked_task.h"
#include "tests/support/event_json.h"
#include "tests/support/kernel_objects.h"
#include "tests/support/proc_tree.h"
#include "tests/support/temporary_directory.h"
#include "tests/support/time_recorder.h"

class InstantScanTest : public testing::Test {
protected:
    using PauseList = std::vector<std::chrono::nanoseconds>;

    // Open flags of a pipe's descriptor, as in fdinfo.
    static constexpr char readOnly[] = "00";
    static constexpr char writeOnly[] = "0100001";
    static constexpr char readAndWrite[] = "02";

    InstantScanTest() {
        Fake::ResetAgent();
        TimeRecorder::Reset();
        OutliveReportedAlarms();
        ReplaceWhitelist({});
        moduleRunning = 1;
        EXPECT_TRUE(socketTableLock.Init());
        EXPECT_TRUE(pidMapLock.Init());
        socketTable.clear();
        sshdInodes.clear();
        shell = folder.Write("bin/bash", "a shell");
        shellPaths = {shell};
    }

    ~InstantScanTest() override {
        latest = time(nullptr);
        TimeRecorder::Reset();
        ReplaceWhitelist({});
        moduleRunning = 0;
        shellPaths.clear();
        sshdInodes.clear();
        socketTable.clear();
        socketTableLock.Destroy();
        pidMapLock.Destroy();
    }

    void SetUp() override {
        if (!MayMount()) {
            GTEST_SKIP() << "needs the right to mount a tree over /proc (root)";
        }
        proc = std::make_unique<ProcTree>();
    }

    void TearDown() override { proc.reset(); }

    // A command line as in /proc, from words separated by blanks.
    static std::string Arguments(std::string words) {
        std::replace(words.begin(), words.end(), ' ', '\0');
        words.push_back('\0');
        return words;
    }

    void AddProcess(int pid, int ppid, const std::string& exe, const std::string& words) {
        proc->Add({.pid = pid, .ppid = ppid, .exe = exe, .cmdline = Arguments(words)});
    }

    void AddShell(int pid, int ppid, const std::string& words = "bash -i") { AddProcess(pid, ppid, shell, words); }

    // The process ends.
    void Remove(int pid) const { std::filesystem::remove_all(proc->Folder() / std::to_string(pid)); }

    void SetWorkingDirectory(int pid, const std::string& directory) const {
        std::filesystem::create_symlink(directory, proc->Folder() / std::to_string(pid) / "cwd");
    }

    void Hold(int pid, int fd, const KernelObject& object) { proc->AddDescriptor(pid, fd, object.path); }

    void HoldPipe(int pid, int fd, const KernelObject& pipe, const std::string& flags) {
        Hold(pid, fd, pipe);
        proc->AddFile(pid, "fdinfo/" + std::to_string(fd), "pos:\t0\nflags:\t" + flags + "\nmnt_id:\t15\n");
    }

    // The process is blocked in this kernel function, in a system call with this first argument.
    void Block(int pid, const std::string& function, int argument) {
        AddStack(*proc, pid, function,
                 "[<0>] wait_woken+0x60/0x70\n[<0>] " + function +
                     "+0x5f/0x110\n[<0>] entry_SYSCALL_64_after_hwframe+0x44/0xae\n");
        AddCall(*proc, pid, function, argument);
    }

    // The socket table's entry of a TCP connection from 198.51.100.3:40001 to 192.0.2.7:4444 that is first seen now.
    static SocketInfo ForeignConnection(unsigned long inode) {
        return {.type = tcpTable,
                .inode = inode,
                .state = tcpEstablished,
                .localIp = inet_addr("198.51.100.3"),
                .remoteIp = inet_addr("192.0.2.7"),
                .localPort = 40001,
                .remotePort = 4444,
                .firstSeen = static_cast<long>(time(nullptr))};
    }

    // A connection within the host, for which no shell is reported.
    static SocketInfo LoopbackConnection(unsigned long inode) {
        SocketInfo info = ForeignConnection(inode);
        info.localIp = info.remoteIp = inet_addr("127.0.0.1");
        return info;
    }

    static SocketInfo RawSocket(unsigned long inode) {
        SocketInfo info = ForeignConnection(inode);
        info.type = rawTable;
        info.state = stateOfOtherTables;
        return info;
    }

    static void Know(const SocketInfo& info) { socketTable[info.inode] = info; }

    // A socket that is a foreign connection in the socket table.
    KernelObject ForeignSocket() {
        KernelObject socket = objects.Socket();
        Know(ForeignConnection(socket.inode));
        return socket;
    }

    // Advances the clock by more than the time for which an alarm is remembered.
    static void ForgetAlarms() { TimeRecorder::Advance(std::chrono::hours(2)); }

    // The module stops during its nth pause from now.
    static void StopAtPause(size_t nth) {
        const size_t target = TimeRecorder::Pauses().size() + nth;
        TimeRecorder::AtEachPause([target](auto...) {
            if (TimeRecorder::Pauses().size() == target) {
                moduleRunning = 0;
            }
        });
    }

    static PauseList PausesSince(size_t mark) {
        const PauseList& all = TimeRecorder::Pauses();
        return {all.begin() + static_cast<std::ptrdiff_t>(mark), all.end()};
    }

    // Texts of the log. Expects each line on the module's channel and at the lowest level.
    static std::vector<std::string> Log() {
        std::vector<std::string> texts;
        for (const Fake::LogLine& line : Fake::TheAgent().log) {
            EXPECT_EQ(line.channel, "NormalLog") << line.text;
            EXPECT_EQ(line.level, LOG_LEVEL_DETAIL) << line.text;
            texts.push_back(line.text);
        }
        return texts;
    }

    static bool HasLogged(const std::string& text) { return std::ranges::count(Log(), text) == 1; }

    static const std::vector<std::string>& Events() { return Fake::TheAgent().events; }

    // Content of the event. Expects exactly one event.
    static EventJson Content() {
        EXPECT_EQ(Events().size(), 1U);
        return Events().size() == 1 ? EventJson::Parse(Events()[0])["eventContent"] : EventJson();
    }

    TemporaryDirectory folder;
    KernelObjects objects;
    std::string shell;
    std::unique_ptr<ProcTree> proc;

private:
    // The time at the end of the previous test.
    inline static time_t latest = 400000000;

    // The history of alarms outlives a test, and inodes are reused. Each test therefore starts after all remembered
    // alarms have expired.
    static void OutliveReportedAlarms() {
        TimeRecorder::Advance(std::chrono::seconds(latest - time(nullptr)));
        ForgetAlarms();
    }
};
