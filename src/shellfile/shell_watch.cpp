#include "shellfile/shell_watch.h"

#include <memory>
#include <utility>
#include <vector>

#include "agent/monitor.h"
#include "agent/process_monitor.h"
#include "shellfile/shell_baseline.h"
#include "shellfile/shell_copy.h"
#include "shellfile/shell_file_callback.h"
#include "shellfile/shell_flags_watch.h"

using TavUtils::Monitor::FileWatchCallback;
using TavUtils::Monitor::FileWatchRule;

static std::vector<FileWatchRule> shellWatchRules;

// Shared by all rules. Kept until the module is unloaded: the monitor may still hold a rule of an earlier start.
static const std::shared_ptr<FileWatchCallback>& ShellWatchCallback() {
    static const auto shellWatchCallback = std::make_shared<FileWatchCallback>(ShellFileCallback);
    return shellWatchCallback;
}

// The shells and their directories. A path without a directory cannot be watched.
static std::set<std::string> WatchPaths() {
    std::set<std::string> paths;
    for (const std::string& path : ShellFiles()) {
        const size_t slash = path.rfind('/');
        if (slash != std::string::npos) {
            paths.insert(path);
            paths.insert(path.substr(0, slash));
        }
    }
    return paths;
}

static FileWatchRule MakeRule(const std::string& path) {
    FileWatchRule rule;
    rule.path = path;
    rule.onAttribute = true;
    rule.onModify = true;
    rule.onDelete = true;
    rule.onMove = true;
    rule.onMovedFrom = true;
    rule.onMovedTo = true;
    rule.onReplace = true;
    rule.callback = ShellWatchCallback();
    return rule;
}

static void AddRules() {
    shellWatchRules.clear();
    for (const std::string& path : WatchPaths()) {
        FileWatchRule rule = MakeRule(path);
        rule.handle = AddMonitor(rule, TavUtils::Monitor::MONITOR_FILE);
        if (rule.handle != 0) {
            shellWatchRules.push_back(std::move(rule));
        }
    }
}

int StartShellEvent(std::set<std::string> shells) {
    InitShellsHashSize(std::move(shells));
    TakeFlagsBaseline();
    AddRules();
    TavUtils::ProcessMonitor::GetInstance().AddProcessEventCallback(ShellExecCallback);
    StartFlagsWatch();
    shellEventStarted.store(1, std::memory_order_relaxed);
    return 1;
}

void StopShellEvent() {
    StopFlagsWatch();
    TavUtils::ProcessMonitor::GetInstance().RemoveProcessEventCallback(ShellExecCallback);
    for (const FileWatchRule& rule : shellWatchRules) {
        RemoveMonitor(rule, TavUtils::Monitor::MONITOR_FILE);
    }
    shellWatchRules.clear();
    // Last, so that reports that arrive during the stop are handled.
    shellEventStarted.store(0, std::memory_order_relaxed);
}
