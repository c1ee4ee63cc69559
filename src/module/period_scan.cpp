#include "module/period_scan.h"

#include "frame/log.h"
#include "frame/repeat_task.h"
#include "frame/settings.h"
#include "frame/whitelist.h"
#include "graph/reverse_shell_detector.h"
#include "module/published.h"

static constexpr char logSource[] = "detect_shell";

static TavUtils::RepeatTask periodScanTask;

bool StartPeriodScan() {
    const TaskTiming timing{
        .type = detectInterval >= 1 ? TavUtils::TASK_REPEAT : TavUtils::TASK_ONCE,
        .delayMs = Published::firstPeriodScanMs,
        .periodMs = static_cast<uint64_t>(detectInterval) * 1000,
    };
    if (!StartTask(periodScanTask, timing, CheckShellTask, Published::periodScanTask)) {
        MODULE_LOG(normalLog, LOG_LEVEL_DETAIL, "check shell task start failed.");
        return false;
    }
    return true;
}

void StopPeriodScan() {
    StopTask(periodScanTask);
}

void* CheckShellTask([[maybe_unused]] void* arg) {
    ReverseShellDetector detector;
    detector.DetectRoutine(*CurrentWhitelist());
    return nullptr;
}
