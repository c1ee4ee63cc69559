#include "alarm/reverse_shell_alarm.h"

#include <string>

#include "agent/events.h"
#include "alarm/alarm_history.h"
#include "alarm/attack_source.h"
#include "alarm/command_attribution.h"
#include "alarm/reverse_shell_event.h"
#include "alarm/rshell_alarm_info.h"
#include "frame/file_handle.h"
#include "frame/log.h"
#include "frame/pacing.h"
#include "frame/trace.h"
#include "frame/whitelist.h"
#include "inspect/detect_shell_utils.h"

using Trace::Test;

static constexpr char logSource[] = "detect_shell";

static constexpr int mostParentDescriptors = 401;
static constexpr unsigned int sentPauseMicroseconds = 1000;

static bool IsSelfConnection(const SocketInfo& sock) {
    return sock.localIp != 0 && sock.remoteIp == sock.localIp;
}

// Stops counting at the first descriptor beyond most. 0 if the descriptors cannot be read.
static int CountDescriptors(int pid, int most) {
    const DirectoryStream directory(opendir(("/proc/" + std::to_string(pid) + "/fd").c_str()));
    if (directory == nullptr) {
        return 0;
    }
    int count = 0;
    while (const dirent* entry = readdir(directory.get())) {
        if (!IsDotEntry(*entry) && ++count > most) {
            break;
        }
    }
    return count;
}

// A parent with very many descriptors is a busy server. One without any cannot be judged.
static bool HasPlausibleDescriptors(int pid, int child) {
    const int count = CountDescriptors(pid, mostParentDescriptors);
    return Trace::Result(Test::parentHasPlausibleDescriptors, child, count > 0 && count <= mostParentDescriptors,
                         {.other = pid, .count = count, .limit = mostParentDescriptors});
}

static bool IsWhitelisted(const ProcInfo& proc, const ProcInfo& parent) {
    return Trace::Result(Test::isWhitelisted, proc.pid, IsCmdInIgnoreList(proc.cmdline)) ||
           Trace::Result(Test::parentIsWhitelisted, proc.pid, IsCmdInIgnoreList(parent.cmdline), {.other = parent.pid});
}

static bool HasPorts(const SocketInfo& sock, int pid) {
    return Trace::Result(Test::hasPorts, pid, sock.localPort != 0 && sock.remotePort != 0, {.inode = sock.inode});
}

static bool IsRepeated(const std::string& key, int pid) {
    return Trace::Result(Test::isRepeated, pid, IsRepeatedAlarm(key));
}

static std::string ScriptOf(const ProcInfo& proc) {
    std::string path = DetectShellUtil::GetScriptFilePath(proc.pid);
    return path.empty() ? DetectShellUtil::GetScriptFilePath(proc.ppid) : path;
}

static std::string InWorkingDirectory(int pid, const std::string& cmdline) {
    return "(" + DetectShellUtil::GetProcCwd(pid) + ") " + cmdline;
}

static void GenRshellAlarm(const ProcInfo& parent, const ProcInfo& proc, const SocketInfo& sock, unsigned long inode) {
    if (!HasPorts(sock, proc.pid) || !HasPlausibleDescriptors(parent.pid, proc.pid) || IsWhitelisted(proc, parent)) {
        return;
    }
    const std::string script = ScriptOf(proc);
    // A second shell on the same connection belongs to the same attack.
    const std::string inodeText = std::to_string(inode);
    if (IsRepeated(inodeText, proc.pid)) {
        return;
    }
    RshellAlarmInfo record{
        .pid = proc.pid,
        .path = proc.path,
        .cmdline = proc.cmdline,
        .ppid = parent.pid,
        .parentPath = parent.path,
        .parentCmdline = parent.cmdline,
        .sourcePath = script,
        .inode = inodeText,
        .localIp = static_cast<uint32_t>(sock.localIp),
        .localPort = static_cast<uint16_t>(sock.localPort),
        .remoteIp = static_cast<uint32_t>(sock.remoteIp),
        .remotePort = static_cast<uint16_t>(sock.remotePort),
        .hash = "",
    };
    FindAttackSource(record);
    record.cmdline = InWorkingDirectory(record.pid, record.cmdline);
    record.parentCmdline = InWorkingDirectory(record.ppid, record.parentCmdline);
    const bool hasPeer = record.remoteIp != 0 && record.remotePort != 0;
    if (Trace::Result(Test::hasPeerAddress, proc.pid, hasPeer, {.inode = sock.inode})) {
        EventConsumer::Instance().PushMinuteLimitEvent(ReverseShellEventText(record));
    }
    Pause(sentPauseMicroseconds);
}

void AddRshellAlarm(int pid, const SocketInfo& sock, unsigned long inode) {
    const bool meetsItself = IsSelfConnection(sock) && sock.type != rawTable;
    if (Trace::Result(Test::meetsItself, pid, meetsItself, {.inode = sock.inode})) {
        return;
    }
    ProcInfo own;
    ProcInfo parent;
    if (!Trace::Result(Test::hasParent, pid, GetProcInfo(pid, own) != 0 && GetProcInfo(own.ppid, parent) != 0)) {
        return;
    }
    if (IsRepeated(parent.cmdline + "," + std::to_string(own.pid) + "," + std::to_string(sock.remotePort), pid)) {
        return;
    }
    if (Trace::Result(Test::isBusiness, pid, ProduceByBusinessFile(own) && sock.type == tcpTable)) {
        MODULE_LOG(normalLog, LOG_LEVEL_DETAIL, "proc has busniess cmdline.[proc=%d]", own.pid);
        return;
    }
    GenRshellAlarm(parent, own, sock, inode);
}

void AddRshellAlarmFanotify(int pid, const ProcInfo& proc, const SocketInfo& sock, unsigned long inode) {
    if (Trace::Result(Test::meetsItself, proc.pid, IsSelfConnection(sock), {.inode = sock.inode})) {
        return;
    }
    ProcInfo parent;
    if (!Trace::Result(Test::hasParent, proc.pid, GetProcInfo(pid, parent) != 0)) {
        return;
    }
    if (IsRepeated(std::to_string(proc.pid) + "," + parent.cmdline + "," + std::to_string(sock.remotePort), proc.pid)) {
        return;
    }
    GenRshellAlarm(parent, proc, sock, inode);
}
