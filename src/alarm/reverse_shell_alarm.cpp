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
#include "frame/whitelist.h"
#include "inspect/detect_shell_utils.h"

static constexpr char logSource[] = "detect_shell";

static constexpr int mostParentDescriptors = 401;
static constexpr unsigned int sentPauseMicroseconds = 1000;

static bool IsSelfConnection(const SocketInfo& sock) {
    return sock.localIp != 0 && sock.remoteIp == sock.localIp;
}

// A parent that holds very many descriptors is a server at work; one that shows none cannot be judged.
static bool HasPlausibleDescriptors(int pid) {
    const DirectoryStream directory(opendir(("/proc/" + std::to_string(pid) + "/fd").c_str()));
    if (directory == nullptr) {
        return false;
    }
    int count = 0;
    while (const dirent* entry = readdir(directory.get())) {
        if (IsDotEntry(*entry)) {
            continue;
        }
        if (++count > mostParentDescriptors) {
            return false;
        }
    }
    return count > 0;
}

static std::string ScriptOf(const ProcInfo& proc) {
    std::string path = DetectShellUtil::GetScriptFilePath(proc.pid);
    return path.empty() ? DetectShellUtil::GetScriptFilePath(proc.ppid) : path;
}

static std::string InWorkingDirectory(int pid, const std::string& cmdline) {
    return "(" + DetectShellUtil::GetProcCwd(pid) + ") " + cmdline;
}

static void GenRshellAlarm(const ProcInfo& parent, const ProcInfo& proc, const SocketInfo& sock, unsigned long inode) {
    if (sock.localPort == 0 || sock.remotePort == 0 || !HasPlausibleDescriptors(parent.pid)) {
        return;
    }
    if (IsCmdInIgnoreList(proc.cmdline) || IsCmdInIgnoreList(parent.cmdline)) {
        return;
    }
    const std::string script = ScriptOf(proc);
    // A second shell on the same connection is the same attack.
    const std::string inodeText = std::to_string(inode);
    if (IsRepeatedAlarm(inodeText)) {
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
    if (record.remoteIp != 0 && record.remotePort != 0) {
        EventConsumer::Instance().PushMinuteLimitEvent(ReverseShellEventText(record));
    }
    Pause(sentPauseMicroseconds);
}

void AddRshellAlarm(int pid, const SocketInfo& sock, unsigned long inode) {
    if (IsSelfConnection(sock) && sock.type != rawTable) {
        return;
    }
    ProcInfo own;
    ProcInfo parent;
    if (GetProcInfo(pid, own) == 0 || GetProcInfo(own.ppid, parent) == 0) {
        return;
    }
    if (IsRepeatedAlarm(parent.cmdline + "," + std::to_string(own.pid) + "," + std::to_string(sock.remotePort))) {
        return;
    }
    if (ProduceByBusinessFile(own) && sock.type == tcpTable) {
        MODULE_LOG(normalLog, LOG_LEVEL_DETAIL, "proc has busniess cmdline.[proc=%d]", own.pid);
        return;
    }
    GenRshellAlarm(parent, own, sock, inode);
}

void AddRshellAlarmFanotify(int pid, const ProcInfo& proc, const SocketInfo& sock, unsigned long inode) {
    if (IsSelfConnection(sock)) {
        return;
    }
    ProcInfo parent;
    if (GetProcInfo(pid, parent) == 0) {
        return;
    }
    if (IsRepeatedAlarm(std::to_string(proc.pid) + "," + parent.cmdline + "," + std::to_string(sock.remotePort))) {
        return;
    }
    GenRshellAlarm(parent, proc, sock, inode);
}
