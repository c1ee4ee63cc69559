#include "classifier/detect_reverse_shell.h"
#include "frame/log.h"
#include "frame/pacing.h"
#include "frame/run_state.h"
#include "frame/trace.h"
#include "inspect/kernel_wait.h"

using Trace::Test;

static constexpr char logSource[] = "detect_reverse_shell";

static constexpr unsigned int shellPauseMicroseconds = 500;

void ReverseShell::CheckSingleprocShell(std::vector<int>& foundPids, std::vector<SocketInfo>& foundSocks) {
    std::vector<int> remaining;
    for (const int pid : bashPids) {
        remaining.push_back(pid);
        if (NeedStop()) {
            break;
        }
        Pause(shellPauseMicroseconds);
        unsigned long inode = 0;
        const bool waits = ReadingFromSock(pid, inode) || SelectFromSock(pid, inode);
        if (!Trace::Result(Test::waitsOnSocket, pid, waits, {.inode = inode})) {
            continue;
        }
        SocketInfo sock;
        const bool abnormal = IsAbnormalInodeByFlag(inode, sock, minSockTime, sockTableRefreshed);
        if (!Trace::Result(Test::hasConnection, pid, abnormal, {.inode = inode})) {
            continue;
        }
        // The process may have executed another program since SeparateBashPids.
        if (!IsBashProcess(pid)) {
            continue;
        }
        MODULE_LOG(normalLog, LOG_LEVEL_DETAIL, "found type 1 rshell.[pid=%d]", pid);
        Pause(shellPauseMicroseconds);
        foundPids.push_back(pid);
        foundSocks.push_back(sock);
        remaining.pop_back();
        Trace::Result(Test::isClaimed, pid, true);
    }
    bashPids = remaining;
}
