#include "classifier/tmp_command_verdict.h"

#include <algorithm>
#include <ctime>

#include "alarm/command_attribution.h"
#include "alarm/reverse_shell_alarm.h"
#include "classifier/ssh_daemon.h"
#include "frame/log.h"
#include "frame/run_state.h"
#include "frame/trace.h"
#include "frame/whitelist.h"
#include "inspect/detect_shell_utils.h"
#include "inspect/kernel_wait.h"
#include "inspect/socket_table.h"

using Trace::Test;

static constexpr char logSource[] = "detect_reverse_shell";

static constexpr unsigned long long nanosecondsPerMillisecond = 1000000;
static constexpr unsigned long long leastStartDistanceMs = 200;
static constexpr unsigned long long leastGapNanoseconds = 200000000;
static constexpr int socketProbes = 5;
static constexpr timespec probePause{.tv_sec = 0, .tv_nsec = 200000000};
static constexpr long oldestSocketSeconds = 100;

// /proc/<pid>/stat gives the start of a process by CLOCK_BOOTTIME (proc_pid_stat(5)), which includes the time for which
// the host was suspended. The clock of the event omits that time, so it is added here.
static bool StartsAfterParent(int ppid, const TPROC_INFO& first) {
    const unsigned long long command = (first.timestamp + first.suspended) / nanosecondsPerMillisecond;
    const unsigned long long parent = DetectShellUtil::GetProcUpMs(ppid);
    const unsigned long long distance = std::max(command, parent) - parent;
    return Trace::Result(Test::startsLate, ppid, distance >= leastStartDistanceMs,
                         {.count = static_cast<long long>(distance), .limit = leastStartDistanceMs});
}

bool IsTypedByHand(int ppid, const std::vector<TPROC_INFO>& commands) {
    if (!StartsAfterParent(ppid, commands.front())) {
        return false;
    }
    for (size_t i = 1; i < commands.size(); ++i) {
        const unsigned long long earlier = commands[i - 1].timestamp;
        const unsigned long long later = commands[i].timestamp;
        const unsigned long long gap = std::max(earlier, later) - earlier;
        if (!Trace::Result(Test::isTypedByHand, ppid, gap >= leastGapNanoseconds,
                           {.count = static_cast<long long>(gap / nanosecondsPerMillisecond),
                            .limit = leastGapNanoseconds / nanosecondsPerMillisecond})) {
            MODULE_LOG(normalLog, LOG_LEVEL_DETAIL, "cmd process time error.[cmd1=%llu cmd2=%llu]", earlier, later);
            return false;
        }
    }
    return true;
}

// Two positive samples in a row: a single one may catch the parent on its way to another call.
static bool IsReadingSocket(int ppid, unsigned long& inode) {
    bool previous = false;
    for (int probe = 0; probe < socketProbes && !NeedStop(); ++probe) {
        nanosleep(&probePause, nullptr);
        if (!ReadingFromSock(ppid, inode)) {
            previous = false;
        } else if (previous) {
            return true;
        } else {
            previous = true;
        }
    }
    return false;
}

static bool IsExempt(int ppid, const ProcInfo& lastCommand) {
    return Trace::Result(Test::isBusiness, lastCommand.pid, ProduceByBusinessFile(lastCommand)) ||
           Trace::Result(Test::isSshDaemon, ppid, IsSshdShell(ppid)) ||
           Trace::Result(Test::isWhitelisted, ppid, IsCmdInIgnoreList(DetectShellUtil::GetProcCmdline(ppid)));
}

bool RaiseTmpCommandAlarm(int ppid, const TPROC_INFO& lastCommand) {
    ProcInfo proc;
    proc.pid = lastCommand.pid;
    proc.ppid = ppid;
    proc.path = lastCommand.path;
    proc.cmdline = lastCommand.cmdline;
    unsigned long inode = 0;
    if (IsExempt(ppid, proc)) {
        return false;
    }
    const bool waits = IsReadingSocket(ppid, inode);
    if (!Trace::Result(Test::waitsOnSocket, ppid, waits, {.inode = inode})) {
        return false;
    }
    const int written = DetectShellUtil::ParseWriteCharsNum(ppid);
    MODULE_LOG(normalLog, LOG_LEVEL_DETAIL, "ppid write char num.[ppid=%d charNum=%ld]", ppid,
               static_cast<long>(written));
    if (!Trace::Result(Test::hasWritten, ppid, written != 0, {.count = written})) {
        return false;
    }
    SocketInfo sock;
    bool refreshed = false;
    const long since = static_cast<long>(time(nullptr) - oldestSocketSeconds);
    Trace::Limit(Test::socketIsNew, oldestSocketSeconds);
    const bool abnormal = IsAbnormalInodeByFlag(inode, sock, since, refreshed);
    if (!Trace::Result(Test::hasConnection, ppid, abnormal, {.inode = inode})) {
        return false;
    }
    MODULE_LOG(normalLog, LOG_LEVEL_DETAIL, "found type 6 rshell.[pid=%d]", proc.pid);
    AddRshellAlarmFanotify(ppid, proc, sock, inode);
    return true;
}
