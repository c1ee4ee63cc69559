#include "classifier/detect_reverse_shell.h"
#include "classifier/ssh_daemon.h"
#include "frame/log.h"
#include "frame/pacing.h"
#include "frame/run_state.h"
#include "frame/trace.h"

using Trace::Test;

static constexpr char logSource[] = "detect_reverse_shell";

static constexpr unsigned int shellPauseMicroseconds = 200;

void ReverseShell::CheckPtyShell(std::vector<int>& foundPids, std::vector<SocketInfo>& foundSocks) {
    std::vector<int> notFound;
    for (const int pid : bashPids) {
        if (NeedStop()) {
            break;
        }
        Pause(shellPauseMicroseconds);
        SocketInfo sock;
        if (CheckPtmxRshell(pid, sock) != 0) {
            Trace::Result(Test::isClaimed, pid, true);
            foundPids.push_back(pid);
            foundSocks.push_back(sock);
        } else {
            notFound.push_back(pid);
        }
    }
    bashPids = notFound;
}

int ReverseShell::CheckPtmxRshell(int pid, SocketInfo& sock) {
    ProcInfo own;
    if (!GetProcInfoInternal(pid, own) ||
        Trace::Result(Test::parentIsSshDaemon, pid, IsSshdShell(own.ppid), {.other = own.ppid})) {
        return 0;
    }
    const Trace::Facts byParent{.other = own.ppid};
    ProcInfo parent;
    if (!Trace::Result(Test::holderIsInPass, pid, GetProcInfoInternal(own.ppid, parent), byParent) ||
        !Trace::Result(Test::hasTerminal, pid, own.hasPts) ||
        !Trace::Result(Test::parentHasMultiplexer, pid, parent.hasPtmx, byParent)) {
        return 0;
    }
    const int found = GetProcessSock(parent, sock);
    if (Trace::Result(Test::parentHasConnection, pid, found != 0, {.other = own.ppid, .inode = sock.inode})) {
        MODULE_LOG(normalLog, LOG_LEVEL_DETAIL, "find pty.[shell=%d inode=%u]", pid,
                   static_cast<unsigned int>(sock.inode));
    }
    return found;
}
