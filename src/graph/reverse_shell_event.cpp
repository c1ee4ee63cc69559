#include <list>
#include <utility>

#include "agent/events.h"
#include "agent/json.h"
#include "agent/process_utils.h"
#include "frame/event_text.h"
#include "frame/log.h"
#include "frame/trace.h"
#include "graph/reverse_shell_detector.h"
#include "module/published.h"

using TavUtils::JsonAdaptor::JsonValue;
using Trace::Test;

static constexpr char logSource[] = "reverse_shell_detector";

static constexpr size_t reportedShellsCapacity = 1000;

// Reported shells as (pid, command line), oldest first. Kept across passes and restarts of the module: a shell that
// stays is reported once. Only the thread of the period scan uses it.
static std::list<std::pair<int, std::string>> reportedShells;

// Adds the shell to the list, dropping the oldest entry of a full one. False if it is listed already.
static bool RememberShell(int pid, const std::string& cmdline) {
    for (const auto& [reportedPid, reportedCmdline] : reportedShells) {
        if (reportedPid == pid && reportedCmdline == cmdline) {
            return false;
        }
    }
    if (reportedShells.size() == reportedShellsCapacity) {
        reportedShells.pop_front();
    }
    reportedShells.emplace_back(pid, cmdline);
    return true;
}

void ReverseShellDetector::SendEvent(std::shared_ptr<ProcInfomation> proc,
                                     const TavUtils::NetStat::NETSTAT& conn) const {
    Trace::Result(Test::meetsForeignSocket, proc->pid, true, {.inode = conn.inode});
    // Listed before the event is built: an event dropped by the agent's limit is not offered again.
    if (Trace::Result(Test::isRemembered, proc->pid, !RememberShell(proc->pid, proc->cmdline))) {
        return;
    }
    MODULE_LOG(normalLog, LOG_LEVEL_DETAIL,
               "Checkout reverse shell.[bashPid=%d, localIp=%s, localPort=%d, remoteIp=%s, remotePort=%d]", proc->pid,
               conn.localIp.c_str(), conn.localPort, conn.remoteIp.c_str(), conn.remotePort);

    ProcessUtils::GetExePath(proc->pid, proc->exePath);
    std::string parentPath;
    ProcessUtils::GetExePath(proc->ppid, parentPath);

    JsonValue content(TavUtils::JsonAdaptor::JSON_OBJECT);
    content["pid"] = proc->pid;
    content["path"] = proc->exePath;
    content["ppid"] = proc->ppid;
    content["parentPath"] = parentPath;
    content["cmdline"] = proc->cmdline;
    content["parentCmdline"] = ProcessUtils::GetProcessCmdline(proc->ppid);
    content["localIp"] = conn.localIp;
    content["localPort"] = static_cast<int>(conn.localPort);
    content["remoteIp"] = conn.remoteIp;
    content["remotePort"] = static_cast<int>(conn.remotePort);
    EventConsumer::Instance().PushMinuteLimitEvent(EventText(Published::reverseShellEvent, content));
}
