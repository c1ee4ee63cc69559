#include <sys/stat.h>

#include "agent/strings.h"
#include "alarm/command_attribution.h"
#include "alarm/reverse_shell_alarm.h"
#include "classifier/detect_reverse_shell.h"
#include "frame/log.h"
#include "frame/pacing.h"
#include "frame/run_state.h"
#include "inspect/kernel_wait.h"

static constexpr char logSource[] = "detect_reverse_shell";

static constexpr unsigned int shellPauseMicroseconds = 500;

// Does this descriptor of the process lead to this inode?
static bool IsProcFdInode(int pid, int fd, unsigned long inode) {
    const std::string path = "/proc/" + std::to_string(pid) + "/fd/" + std::to_string(fd);
    struct stat file {};
    if (stat(path.c_str(), &file) != 0) {
        return false;
    }
    const unsigned long found = static_cast<unsigned long>(file.st_ino);
    MODULE_LOG(normalLog, LOG_LEVEL_DETAIL, "[pid=%d fd=%d inode=%lu]", pid, fd, found);
    return found == inode;
}

// True if the walk from pid up its parents meets ancestor. Each step is a fresh look at /proc.
static bool IsDescendant(int pid, int ancestor) {
    for (int current = pid; current > 1 && !NeedStop();) {
        ProcInfo info;
        if (GetProcInfo(current, info) == 0) {
            return false;
        }
        current = info.ppid;
        if (current == ancestor) {
            return true;
        }
    }
    return false;
}

static bool IsGivenACommand(const std::string& cmdline) {
    const std::vector<std::string> words = TavUtils::StringProcess::StrSplit(cmdline, " ", false);
    return words.size() > 1 && IsExecTmpCommand(words[1]);
}

int ReverseShell::FindSockByPipe(int pid, unsigned long pipe, SocketInfo& sock) {
    for (const ProcInfo& proc : procs) {
        if (NeedStop()) {
            return 0;
        }
        unsigned long sockInode = 0;
        if (proc.pid == pid || !proc.writePipes.contains(pipe) || !ReadingFromSock(proc.pid, sockInode) ||
            !IsProcFdInode(proc.pid, 0, sockInode) || !IsProcFdInode(proc.pid, 1, pipe)) {
            continue;
        }
        if (IsAbnormalInodeByFlag(sockInode, sock, minSockTime, sockTableRefreshed)) {
            MODULE_LOG(normalLog, LOG_LEVEL_DETAIL, "proc reading sock write pipe.[pid=%d pipe=%lu]", proc.pid, pipe);
            return 1;
        }
    }
    return 0;
}

int ReverseShell::FindSockByPipeCurl(int pid, unsigned long pipe, SocketInfo& sock) {
    for (const ProcInfo& proc : procs) {
        if (NeedStop()) {
            return 0;
        }
        if (proc.pid == pid || !proc.writePipes.contains(pipe) || !IsDescendant(proc.pid, pid)) {
            continue;
        }
        // Only a writer without an abnormal socket counts here: one that has such a socket is a client at work for the
        // shell, not its feeder.
        if (GetProcessSock(proc, sock) != 0) {
            continue;
        }
        MODULE_LOG(normalLog, LOG_LEVEL_DETAIL, "Proc read sock and write pipe.[pid=%d socket=%u pipe=%lu]", proc.pid,
                   static_cast<unsigned int>(sock.inode), pipe);
        return 1;
    }
    return 0;
}

void ReverseShell::CheckSpecialShell() {
    std::vector<int> remaining;
    for (const int pid : bashPids) {
        SocketInfo sock;
        unsigned long pipeInode = 0;
        unsigned long unixInode = 0;
        if (NeedStop()) {
            break;
        }
        remaining.push_back(pid);
        ProcInfo own;
        ProcInfo parent;
        if (!GetProcInfoInternal(pid, own) || !GetProcInfoInternal(own.ppid, parent)) {
            continue;
        }
        if (ReadingFromPipe(pid, pipeInode)) {
            if (FindSockByPipe(pid, pipeInode, sock) == 0 && FindSockByPipeCurl(pid, pipeInode, sock) == 0) {
                continue;
            }
            if (sock.type == rawTable) {
                continue;
            }
            MODULE_LOG(normalLog, LOG_LEVEL_DETAIL, "found type 3 rshell pid.[pid=%d]", pid);
        } else if (ReadingFromUnixSock(pid, unixInode)) {
            if (GetProcessSock(parent, sock) == 0 || sock.type != rawTable) {
                continue;
            }
            MODULE_LOG(normalLog, LOG_LEVEL_DETAIL, "found type 4 rshell pid.[pid=%d]", pid);
        } else {
            continue;
        }
        if (!IsBashProcess(pid)) {
            continue;
        }
        remaining.pop_back();
        Pause(shellPauseMicroseconds);
        // A command that the shell was started with is a program's own business; the shell stays claimed all the same.
        if (!IsGivenACommand(own.cmdline)) {
            AddRshellAlarmFanotify(own.ppid, own, sock, sock.inode);
        }
    }
    bashPids = remaining;
}
