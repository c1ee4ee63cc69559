// Unused: no stage of the pass calls these members. They search a group of processes for a shell and its connection.
#include "classifier/detect_reverse_shell.h"
#include "frame/log.h"
#include "frame/pacing.h"
#include "inspect/kernel_wait.h"

static constexpr char logSource[] = "detect_reverse_shell";

static constexpr unsigned int processPauseMicroseconds = 500;
static constexpr unsigned int groupPauseMicroseconds = 200;

void ReverseShell::GetProcListenPort(const std::set<unsigned long>& sockets, std::set<unsigned long>& ports) {
    for (const unsigned long inode : sockets) {
        SocketInfo info;
        if (IsListenInodeByFlag(inode, info, sockTableRefreshed)) {
            ports.insert(static_cast<unsigned long>(info.localPort));
        }
    }
}

int ReverseShell::GetForeignSock(const std::vector<unsigned int>& indexes, SocketInfo& sock) {
    for (const unsigned int index : indexes) {
        const ProcInfo& proc = procs[index];
        std::set<unsigned long> ports;
        GetProcListenPort(proc.sockets, ports);
        MODULE_LOG(normalLog, LOG_LEVEL_DETAIL, "Proc and listenPort.[proc=%d listenPort=%zu]", proc.pid, ports.size());
        Pause(processPauseMicroseconds);
        for (const unsigned long inode : proc.sockets) {
            if (IsAbnormalInodeByFlag(inode, sock, minSockTime, sockTableRefreshed) &&
                !ports.contains(static_cast<unsigned long>(sock.localPort))) {
                return 1;
            }
        }
    }
    return 0;
}

int ReverseShell::GetBashProcess(const std::vector<unsigned int>& indexes, int& shellPid) const {
    bool seenNonReading = false;
    for (const unsigned int index : indexes) {
        const ProcInfo& proc = procs[index];
        if (ReadingFromPipe(proc.pid) || SelectFromPipe(proc.pid)) {
            if (IsBashProcess(proc.pid)) {
                shellPid = proc.pid;
            }
        } else {
            MODULE_LOG(normalLog, LOG_LEVEL_DETAIL, "proc nonreading.[proc=%d]", proc.pid);
            if (seenNonReading) {
                MODULE_LOG(normalLog, LOG_LEVEL_DETAIL, "has more nonreading proc");
                return 0;
            }
            seenNonReading = true;
        }
        Pause(groupPauseMicroseconds);
    }
    return 1;
}
