// Fixture of the classifier's tests: passes over staged processes.
#pragma once

#include <set>
#include <vector>

#include "classifier/detect_reverse_shell.h"
#include "shellfile/shell_baseline.h"
#include "tests/support/instant_scan_fixture.h"

using std::chrono::microseconds;

class ClassifierTest : public InstantScanTest {
protected:
    // Logged by each loop that ends because of a stop.
    static constexpr char stopped[] = "thread was stopped by StopModule run.[run=0]";

    ~ClassifierTest() override { InitShellsHashSize({}); }

    ReverseShell Detector(const std::vector<int>& pids) const { return {shellPaths, pids, 0, false, 10000}; }

    void Wait(int pid, const KernelObject& socket, const std::string& function = "inet_recvmsg") {
        Hold(pid, 0, socket);
        Block(pid, function, function == "do_select" ? 1 : 0);
    }

    void WaitOnPipe(int pid, const KernelObject& pipe, const std::string& function = "pipe_read") {
        HoldPipe(pid, 0, pipe, readOnly);
        Block(pid, function, function == "do_select" ? 1 : 0);
    }

    // Adds a shell that waits on its own foreign connection.
    KernelObject AddSocketShell(int pid, int ppid) {
        AddShell(pid, ppid);
        KernelObject socket = ForeignSocket();
        Wait(pid, socket);
        return socket;
    }

    static std::vector<int> PidsOf(const std::vector<ProcInfo>& procs) {
        std::vector<int> pids;
        for (const ProcInfo& info : procs) {
            pids.push_back(info.pid);
        }
        return pids;
    }

    static std::vector<unsigned long> InodesOf(const std::vector<SocketInfo>& socks) {
        std::vector<unsigned long> inodes;
        for (const SocketInfo& sock : socks) {
            inodes.push_back(sock.inode);
        }
        return inodes;
    }

    std::vector<int> foundPids;
    std::vector<SocketInfo> foundSocks;
};
