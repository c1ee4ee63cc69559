#include <sys/stat.h>

#include "agent/strings.h"
#include "alarm/command_attribution.h"
#include "alarm/reverse_shell_alarm.h"
#include "classifier/detect_reverse_shell.h"
#include "frame/log.h"
#include "frame/pacing.h"
#include "frame/run_state.h"
#include "frame/trace.h"
#include "inspect/kernel_wait.h"

using Trace::Test;

static constexpr char logSource[] = "detect_reverse_shell";

static constexpr unsigned int shellPauseMicroseconds = 500;

// True if this descriptor of the process refers to this inode.
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

// True if ancestor is among the parents of pid. Each step reads /proc again.
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

// True if the relay reads a socket on its descriptor 0 and writes the pipe of the shell pid on its descriptor 1.
static bool JoinsSocketAndPipe(int relay, int pid, unsigned long pipe, unsigned long& socket) {
    const bool waits = ReadingFromSock(relay, socket);
    const Trace::Facts facts{.other = relay, .inode = socket};
    return Trace::Result(Test::relayWaitsOnSocket, pid, waits, facts) &&
           Trace::Result(Test::relayReadsSocket, pid, IsProcFdInode(relay, 0, socket), facts) &&
           Trace::Result(Test::relayWritesPipe, pid, IsProcFdInode(relay, 1, pipe), facts);
}

int ReverseShell::FindSockByPipe(int pid, unsigned long pipe, SocketInfo& sock) {
    for (const ProcInfo& proc : procs) {
        if (NeedStop()) {
            return 0;
        }
        unsigned long sockInode = 0;
        if (proc.pid == pid || !proc.writePipes.contains(pipe) || !JoinsSocketAndPipe(proc.pid, pid, pipe, sockInode)) {
            continue;
        }
        const bool abnormal = IsAbnormalInodeByFlag(sockInode, sock, minSockTime, sockTableRefreshed);
        if (Trace::Result(Test::relayHasConnection, pid, abnormal, {.other = proc.pid, .inode = sockInode})) {
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
        if (proc.pid == pid || !proc.writePipes.contains(pipe) ||
            !Trace::Result(Test::feederIsDescendant, pid, IsDescendant(proc.pid, pid), {.other = proc.pid})) {
            continue;
        }
        // Only a writer without an abnormal socket counts. One with such a socket is a client that the shell runs.
        if (Trace::Result(Test::feederHasConnection, pid, GetProcessSock(proc, sock) != 0, {.other = proc.pid})) {
            continue;
        }
        MODULE_LOG(normalLog, LOG_LEVEL_DETAIL, "Proc read sock and write pipe.[pid=%d socket=%u pipe=%lu]", proc.pid,
                   static_cast<unsigned int>(sock.inode), pipe);
        return 1;
    }
    return 0;
}

bool ReverseShell::IsFedByPipe(int pid, unsigned long pipe, SocketInfo& sock) {
    const Trace::Facts facts{.inode = pipe};
    if (!Trace::Result(Test::isFedByRelay, pid, FindSockByPipe(pid, pipe, sock) != 0, facts) &&
        !Trace::Result(Test::isFedByDescendant, pid, FindSockByPipeCurl(pid, pipe, sock) != 0, facts)) {
        return false;
    }
    return !Trace::Result(Test::feedIsRaw, pid, sock.type == rawTable, {.inode = sock.inode});
}

bool ReverseShell::IsFedByRawSocket(int pid, const ProcInfo& parent, SocketInfo& sock) {
    const bool raw = GetProcessSock(parent, sock) != 0 && sock.type == rawTable;
    return Trace::Result(Test::parentHasRawSocket, pid, raw, {.other = parent.pid, .inode = sock.inode});
}

bool ReverseShell::IsFed(int pid, const ProcInfo& parent, SocketInfo& sock) {
    unsigned long inode = 0;
    const bool waitsOnPipe = ReadingFromPipe(pid, inode);
    if (Trace::Result(Test::waitsOnPipe, pid, waitsOnPipe, {.inode = inode})) {
        if (!IsFedByPipe(pid, inode, sock)) {
            return false;
        }
        MODULE_LOG(normalLog, LOG_LEVEL_DETAIL, "found type 3 rshell pid.[pid=%d]", pid);
        return true;
    }
    const bool waitsOnStream = ReadingFromUnixSock(pid, inode);
    if (!Trace::Result(Test::waitsOnUnixStream, pid, waitsOnStream, {.inode = inode}) ||
        !IsFedByRawSocket(pid, parent, sock)) {
        return false;
    }
    MODULE_LOG(normalLog, LOG_LEVEL_DETAIL, "found type 4 rshell pid.[pid=%d]", pid);
    return true;
}

void ReverseShell::CheckSpecialShell() {
    std::vector<int> remaining;
    for (const int pid : bashPids) {
        if (NeedStop()) {
            break;
        }
        remaining.push_back(pid);
        ProcInfo own;
        ProcInfo parent;
        const bool known = GetProcInfoInternal(pid, own) && GetProcInfoInternal(own.ppid, parent);
        SocketInfo sock;
        if (!Trace::Result(Test::hasParentInPass, pid, known, {.other = own.ppid}) || !IsFed(pid, parent, sock) ||
            !IsBashProcess(pid)) {
            continue;
        }
        remaining.pop_back();
        Trace::Result(Test::isClaimed, pid, true);
        Pause(shellPauseMicroseconds);
        // A shell started with a command works for the program that started it. It stays claimed, without an alarm.
        if (!Trace::Result(Test::isGivenACommand, pid, IsGivenACommand(own.cmdline), {.text = own.cmdline})) {
            AddRshellAlarmFanotify(own.ppid, own, sock, sock.inode);
        }
    }
    bashPids = remaining;
}
