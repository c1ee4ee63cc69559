#include "module/detect_shell.h"

#include <type_traits>

#include "agent/status.h"
#include "classifier/tmp_command_watcher.h"
#include "frame/log.h"
#include "frame/module_lock.h"
#include "frame/run_state.h"
#include "frame/settings.h"
#include "module/configuration.h"
#include "module/host_shells.h"
#include "module/instant_scan.h"
#include "module/period_scan.h"
#include "module/published.h"
#include "shellfile/shell_baseline.h"
#include "shellfile/shell_watch.h"

static constexpr char logSource[] = "detect_shell";

static_assert(std::is_same_v<decltype(&InitModule), Published::InitEntry>);
static_assert(std::is_same_v<decltype(&StartModule), Published::StartEntry>);
static_assert(std::is_same_v<decltype(&StopModule), Published::StopEntry>);
static_assert(std::is_same_v<decltype(&DeinitModule), Published::DeinitEntry>);

static constexpr char codeNone[] = "";

static void ReportBothStopped() {
    Plugs::StatusCollect::ReportDetectStatus(Published::shellFileFunction, false, codeNone);
    Plugs::StatusCollect::ReportDetectStatus(Published::reverseShellFunction, false, codeNone);
}

// The common end of the failure paths of a reverse-shell start.
static void AbandonReverseShell() {
    StopDetectTmpRshell();
    // After everything that takes it has ended.
    socketTableLock.Destroy();
    moduleRunning.store(0, std::memory_order_relaxed);
    Plugs::StatusCollect::ReportDetectStatus(Published::reverseShellFunction, false, codeNone);
}

static bool StartReverseShell() {
    if (!socketTableLock.Init()) {
        Plugs::StatusCollect::ReportDetectStatus(Published::reverseShellFunction, false, codeNone);
        return false;
    }
    // The two scans work without the watcher, so its failure does not fail the start.
    StartDetectTmpRshell(shellPaths);
    if (!StartInstantScan()) {
        MODULE_LOG(normalLog, LOG_LEVEL_ERROR, "start instant scan failed");
        AbandonReverseShell();
        return false;
    }
    if (!StartPeriodScan()) {
        MODULE_LOG(normalLog, LOG_LEVEL_ERROR, "start period scan failed");
        StopInstantScan();
        AbandonReverseShell();
        return false;
    }
    Plugs::StatusCollect::ReportDetectStatus(Published::reverseShellFunction, true, Published::inOrderCode);
    return true;
}

int InitModule(void) {
    if (!LearnHostShells()) {
        return 0;
    }
    ReportBothStopped();
    InitShellsHashSize(shellPaths);
    MODULE_LOG(normalLog, LOG_LEVEL_LIFECYCLE, "Shell detection module init success.");
    return 1;
}

int StartModule(const char* config) {
    if (!ReadConfiguration(config)) {
        ReportBothStopped();
        return 0;
    }
    stopBegun.store(false, std::memory_order_relaxed);
    if (abnormalShellEnabled) {
        // The function counts as running even if a watch was refused, because its other listeners work.
        StartShellEvent(shellPaths);
        Plugs::StatusCollect::ReportDetectStatus(Published::shellFileFunction, true, Published::inOrderCode);
    }
    if (reverseShellEnabled && !StartReverseShell()) {
        return 0;
    }
    // Set last. The first runs of the tasks are at least a second away.
    moduleRunning.store(1, std::memory_order_relaxed);
    MODULE_LOG(normalLog, LOG_LEVEL_LIFECYCLE, "Shell detection module start success.");
    return 1;
}

void StopModule(const char* code) {
    // Cleared first, so that running loops end while the calls below wait for them.
    moduleRunning.store(0, std::memory_order_relaxed);
    stopBegun.store(true, std::memory_order_relaxed);
    if (abnormalShellEnabled) {
        StopShellEvent();
        Plugs::StatusCollect::ReportDetectStatus(Published::shellFileFunction, false, code);
    }
    if (reverseShellEnabled) {
        StopInstantScan();
        StopDetectTmpRshell();
        StopPeriodScan();
        socketTableLock.Destroy();
        Plugs::StatusCollect::ReportDetectStatus(Published::reverseShellFunction, false, code);
    }
    MODULE_LOG(normalLog, LOG_LEVEL_LIFECYCLE, "Shell detection module stop success.");
}

void DeinitModule(void) {
    MODULE_LOG(normalLog, LOG_LEVEL_LIFECYCLE, "Shell detection module deinit success.");
}
