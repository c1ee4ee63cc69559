#include "classifier/detect_reverse_shell.h"
#include "classifier/ssh_daemon.h"
#include "frame/log.h"
#include "frame/pacing.h"
#include "frame/run_state.h"

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
    if (!GetProcInfoInternal(pid, own) || IsSshdShell(own.ppid)) {
        return 0;
    }
    ProcInfo parent;
    if (!GetProcInfoInternal(own.ppid, parent) || !own.hasPts || !parent.hasPtmx) {
        return 0;
    }
    const int found = GetProcessSock(parent, sock);
    if (found != 0) {
        MODULE_LOG(normalLog, LOG_LEVEL_DETAIL, "find pty.[shell=%d inode=%u]", pid,
                   static_cast<unsigned int>(sock.inode));
    }
    return found;
}
