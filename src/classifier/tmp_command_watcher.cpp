#include "classifier/tmp_command_watcher.h"

#include <algorithm>

#include "agent/process_monitor.h"
#include "classifier/tmp_command_intake.h"
#include "classifier/tmp_command_list.h"
#include "classifier/tmp_command_verdict.h"
#include "frame/log.h"
#include "frame/pacing.h"
#include "frame/repeat_task.h"
#include "frame/run_state.h"
#include "frame/trace.h"
#include "inspect/detect_shell_utils.h"
#include "module/published.h"

using Trace::Test;

static constexpr char logSource[] = "detect_reverse_shell";

static constexpr size_t fewestCommands = 2;
static constexpr unsigned int parentPauseMicroseconds = 1000;

static TavUtils::RepeatTask tmpShellTask;

bool StartDetectTmpRshell(const std::set<std::string>& shells) {
    if (!InitTmpCommandPaths(shells) || !tmpProcLock.Init()) {
        return false;
    }
    ClearTmpProcs();
    TavUtils::ProcessMonitor::GetInstance().AddProcessEventCallback(OnTmpProcEvent);
    const TaskTiming timing{
        .type = TavUtils::TASK_REPEAT,
        .delayMs = Published::firstShortCommandSweepMs,
        .periodMs = Published::shortCommandSweepIntervalMs,
    };
    return StartTask(tmpShellTask, timing, CheckTmpShellTask, Published::shortCommandTask);
}

void StopDetectTmpRshell() {
    StopTask(tmpShellTask);
    TavUtils::ProcessMonitor::GetInstance().RemoveProcessEventCallback(OnTmpProcEvent);
    tmpProcLock.Destroy();
}

static bool IsAnyAlive(const std::vector<TPROC_INFO>& commands) {
    return std::any_of(commands.begin(), commands.end(),
                       [](const TPROC_INFO& command) { return DetectShellUtil::IsProcExist(command.pid); });
}

static void Conclude(int ppid, TmpProcListInfo& info, bool isRshell) {
    info.judged = true;
    info.isRshell = isRshell;
    WriteBackTmpProcs(ppid, info);
}

static void Judge(int ppid, TmpProcListInfo& info) {
    if (info.procList.empty()) {
        MODULE_LOG(normalLog, LOG_LEVEL_ERROR, "The tmp proc list is empty.");
        return;
    }
    if (IsAnyAlive(info.procList)) {
        return;
    }
    if (!IsTypedByHand(ppid, info.procList)) {
        Conclude(ppid, info, false);
        return;
    }
    const Trace::Facts number{.count = static_cast<long long>(info.procList.size()), .limit = fewestCommands};
    if (!Trace::Result(Test::hasEnoughCommands, ppid, info.procList.size() >= fewestCommands, number)) {
        return;
    }
    const bool isRshell = RaiseTmpCommandAlarm(ppid, info.procList.back());
    MODULE_LOG(normalLog, LOG_LEVEL_DETAIL, isRshell ? "proc is reverse shell" : "proc has no shell character");
    Conclude(ppid, info, isRshell);
}

void* CheckTmpShellTask([[maybe_unused]] void* arg) {
    // Works on a copy: the callback must not wait for a judgement.
    TmpProcMap snapshot = CopyTmpProcMap();
    std::set<int> finished;
    for (auto& [ppid, info] : snapshot) {
        if (NeedStop()) {
            break;
        }
        Pause(parentPauseMicroseconds);
        if (!DetectShellUtil::IsProcExist(ppid) || info.isRshell) {
            finished.insert(ppid);
        } else if (!info.judged) {
            Judge(ppid, info);
        }
    }
    EraseTmpProcs(finished);
    return nullptr;
}
