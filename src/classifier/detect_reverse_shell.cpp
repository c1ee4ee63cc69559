#include "classifier/detect_reverse_shell.h"

#include <sys/stat.h>

#include "agent/files.h"
#include "frame/log.h"
#include "frame/pacing.h"
#include "frame/run_state.h"
#include "frame/trace.h"
#include "shellfile/shell_baseline.h"

using Trace::Test;

static constexpr char logSource[] = "detect_reverse_shell";

static constexpr unsigned int stepPauseMicroseconds = 500;

ReverseShell::ReverseShell(const std::set<std::string>& shellPaths, const std::vector<int>& activePids,
                           long oldestSockTime, bool refreshed, unsigned long limit)
    : shells(shellPaths),
      pids(activePids),
      sockTableRefreshed(refreshed),
      minSockTime(oldestSockTime),
      edgeNum(0),
      max(limit) {
    GetShellsInodes();
}

void ReverseShell::GetShellsInodes() {
    for (const std::string& path : shells) {
        struct stat info {};
        if (stat(path.c_str(), &info) == 0) {
            shellInodes.insert(static_cast<unsigned long>(info.st_ino));
        }
    }
}

bool ReverseShell::IsBashProcess(int pid) const {
    const std::string path = TavUtils::FileAttribute::GetRealPath("/proc/" + std::to_string(pid) + "/exe");
    return Trace::Result(Test::isShell, pid, IsShellProgram(path), {.text = path});
}

bool ReverseShell::IsShellProgram(const std::string& path) const {
    if (shells.contains(path)) {
        return true;
    }
    struct stat info {};
    if (stat(path.c_str(), &info) != 0) {
        return false;
    }
    // A hard link of a shell shares its inode; a copy shares its content.
    return shellInodes.contains(static_cast<unsigned long>(info.st_ino)) || IsShellByHash(path);
}

void ReverseShell::SeparateBashPids() {
    bashPids.clear();
    std::vector<int> others;
    for (const int pid : pids) {
        if (NeedStop()) {
            break;
        }
        Pause(stepPauseMicroseconds);
        (IsBashProcess(pid) ? bashPids : others).push_back(pid);
    }
    pids = others;
}

void ReverseShell::GetReverseShell(std::vector<int>& foundPids, std::vector<SocketInfo>& foundSocks) {
    MODULE_LOG(normalLog, LOG_LEVEL_DETAIL, "separate start");
    SeparateBashPids();
    if (bashPids.empty()) {
        return;
    }
    MODULE_LOG(normalLog, LOG_LEVEL_DETAIL, "single shell start");
    CheckSingleprocShell(foundPids, foundSocks);
    MODULE_LOG(normalLog, LOG_LEVEL_DETAIL, "multi shell start");
    CheckMultiprocShell(foundPids, foundSocks);
    MODULE_LOG(normalLog, LOG_LEVEL_DETAIL, "secial shell start");
    CheckSpecialShell();
    MODULE_LOG(normalLog, LOG_LEVEL_DETAIL, "pty shell start");
    CheckPtyShell(foundPids, foundSocks);
    MODULE_LOG(normalLog, LOG_LEVEL_DETAIL, "scan all shell end");
}

int ReverseShell::GetProcessSock(const ProcInfo& proc, SocketInfo& sock) {
    for (const unsigned long inode : proc.sockets) {
        Pause(stepPauseMicroseconds);
        if (IsAbnormalInodeByFlag(inode, sock, minSockTime, sockTableRefreshed)) {
            return 1;
        }
    }
    return 0;
}

bool ReverseShell::GetProcInfoInternal(int pid, ProcInfo& out) const {
    for (const ProcInfo& proc : procs) {
        Pause(stepPauseMicroseconds);
        if (proc.pid == pid) {
            out = proc;
            return true;
        }
    }
    return false;
}
