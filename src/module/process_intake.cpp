#include "module/process_intake.h"

#include <unistd.h>

#include <algorithm>
#include <ctime>
#include <mutex>

#include "alarm/reverse_shell_alarm.h"
#include "classifier/detect_reverse_shell.h"
#include "frame/log.h"
#include "frame/module_lock.h"
#include "frame/pacing.h"
#include "frame/run_state.h"
#include "frame/settings.h"
#include "frame/trace.h"
#include "frame/whitelist.h"
#include "inspect/detect_shell_utils.h"

using Trace::Test;

static constexpr char logSource[] = "detect_shell";

static constexpr int firstUserParent = 2;
static constexpr long quietSeconds = 3;
static constexpr unsigned long classifierLimit = 10000;
static constexpr unsigned int alarmPauseMicroseconds = 1000;

void OnProcessEvent(proc_event* event) {
    if (event != nullptr && event->what == decltype(event->what)::PROC_EVENT_FORK) {
        CollectNewProcess(event);
    }
}

void CollectNewProcess(const proc_event* event) {
    const int pid = event->event_data.fork.parent_pid;
    if (pid == getpid()) {
        MODULE_LOG(normalLog, LOG_LEVEL_DETAIL, "Match current process.[pid=%d]", pid);
        return;
    }
    const int ppid = DetectShellUtil::GetProcPpid(pid);
    if (ppid < firstUserParent) {
        MODULE_LOG(normalLog, LOG_LEVEL_DETAIL, "Filter the child process of root.[pid=%d ppid=%d]", pid, ppid);
        return;
    }
    const unsigned long now = static_cast<unsigned long>(time(nullptr));
    const std::lock_guard guard(pidMapLock);
    intakeMap[pid] = now;
    intakeMap[ppid] = now;
}

// Removes the pids that have been quiet long enough from the map and returns them in ascending order. An entry with a
// time in the future stays until the clock has passed it.
static std::vector<int> TakeQuietPids(long now) {
    std::vector<int> quiet;
    const std::lock_guard guard(pidMapLock);
    std::erase_if(intakeMap, [&](const auto& entry) {
        const long seen = static_cast<long>(entry.second);
        const bool ripe = now > seen && now - seen >= quietSeconds;
        if (ripe) {
            quiet.push_back(entry.first);
        }
        return ripe;
    });
    return quiet;
}

void* CheckNetlinkProcsTask([[maybe_unused]] void* arg) {
    std::vector<int> candidates;
    if (NeedStop()) {
        return nullptr;
    }
    for (const int pid : TakeQuietPids(static_cast<long>(time(nullptr)))) {
        // Reading a command line takes 0.5 ms per byte. A stop must not wait for all of them.
        if (NeedStop()) {
            return nullptr;
        }
        if (DetectShellUtil::IsProcExist(pid) &&
            !Trace::Result(Test::isWhitelisted, pid, IsCmdInIgnoreList(DetectShellUtil::GetProcCmdline(pid)))) {
            candidates.push_back(pid);
        }
    }
    Trace::Limit(Test::socketIsNew, quietSeconds);
    if (!candidates.empty()) {
        CheckReverseShell(candidates, static_cast<long>(time(nullptr) - quietSeconds), false);
    }
    return nullptr;
}

void CheckReverseShell(std::vector<int> pids, long time, bool flag) {
    ReverseShell detector(shellPaths, pids, time, flag, classifierLimit);
    std::vector<int> foundPids;
    std::vector<SocketInfo> foundSocks;
    detector.GetReverseShell(foundPids, foundSocks);
    RaiseAlarms(foundPids, foundSocks);
}

void RaiseAlarms(const std::vector<int>& foundPids, const std::vector<SocketInfo>& foundSocks) {
    const size_t found = std::min(foundPids.size(), foundSocks.size());
    for (size_t i = 0; i < found; ++i) {
        Pause(alarmPauseMicroseconds);
        AddRshellAlarm(foundPids[i], foundSocks[i], foundSocks[i].inode);
    }
}
