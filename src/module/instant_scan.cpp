#include "module/instant_scan.h"

#include "agent/process_monitor.h"
#include "frame/log.h"
#include "frame/module_lock.h"
#include "frame/repeat_task.h"
#include "module/process_intake.h"
#include "module/published.h"

static constexpr char logSource[] = "detect_shell";

static TavUtils::RepeatTask instantScanTask;
static bool callbackAdded = false;

bool StartInstantScan() {
    if (!pidMapLock.Init()) {
        MODULE_LOG(normalLog, LOG_LEVEL_ERROR, "init pidMapLock failed!\n");
        return false;
    }
    const TaskTiming timing{
        .type = TavUtils::TASK_REPEAT,
        .delayMs = Published::firstInstantScanMs,
        .periodMs = Published::instantScanIntervalMs,
    };
    if (!StartTask(instantScanTask, timing, CheckNetlinkProcsTask, Published::instantScanTask)) {
        MODULE_LOG(normalLog, LOG_LEVEL_DETAIL, "check shell task start failed.");
        // The callback of an earlier start may take the lock at any time, so the lock stays until that is removed.
        if (!callbackAdded) {
            pidMapLock.Destroy();
        }
        return false;
    }
    TavUtils::ProcessMonitor::GetInstance().AddProcessEventCallback(OnProcessEvent);
    callbackAdded = true;
    return true;
}

void StopInstantScan() {
    StopTask(instantScanTask);
    TavUtils::ProcessMonitor::GetInstance().RemoveProcessEventCallback(OnProcessEvent);
    callbackAdded = false;
    pidMapLock.Destroy();
}
