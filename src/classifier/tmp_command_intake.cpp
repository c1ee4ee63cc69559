#include "classifier/tmp_command_intake.h"

#include <unistd.h>

#include <mutex>

#include "alarm/command_paths.h"
#include "classifier/tmp_command_list.h"
#include "frame/log.h"
#include "inspect/boot_clock.h"
#include "inspect/detect_shell_utils.h"

static constexpr char logSource[] = "detect_reverse_shell";

static constexpr int firstUserParent = 2;

// The commands that an intruder usually types first.
static constexpr const char* commandWords[] = {
    "passwd", "pwd", "ifconfig", "ls",   "ps",    "time",  "chmod", "cat",
    "touch",  "cd",  "grep",     "find", "chown", "chgrp", "gcc",   "sleep",
};

// A repeated start replaces the set while a callback runs.
static std::mutex pathsLock;
static std::set<std::string> tmpCommandPaths;

static bool IsTmpCommand(const std::string& path) {
    const std::lock_guard lock(pathsLock);
    return tmpCommandPaths.contains(path);
}

static void AddCommandPaths(const std::string& command, std::set<std::string>& paths) {
    paths.merge(CmdPaths(command));
}

bool InitTmpCommandPaths(const std::set<std::string>& shells) {
    std::set<std::string> paths;
    for (const char* command : commandWords) {
        AddCommandPaths(command, paths);
    }
    paths.insert(shells.begin(), shells.end());
    const std::lock_guard lock(pathsLock);
    tmpCommandPaths.swap(paths);
    return !tmpCommandPaths.empty();
}

void OnTmpProcEvent(proc_event* event) {
    if (event == nullptr || event->what != decltype(event->what)::PROC_EVENT_EXEC) {
        return;
    }
    const unsigned long long suspended = SuspendedNanoseconds();
    const int pid = event->event_data.exec.process_pid;
    if (pid == getpid()) {
        MODULE_LOG(normalLog, LOG_LEVEL_DETAIL, "Match current process.[pid=%d]", pid);
        return;
    }
    const std::string path = DetectShellUtil::GetProcExe(pid);
    if (path.empty()) {
        return;
    }
    const std::string cmdline = DetectShellUtil::GetProcCmdline(pid);
    if (!IsTmpCommand(path)) {
        return;
    }
    const int ppid = DetectShellUtil::GetProcPpid(pid);
    if (ppid < firstUserParent) {
        MODULE_LOG(normalLog, LOG_LEVEL_DETAIL, "Filter the child process of root.[pid=%d ppid=%d]", pid, ppid);
        return;
    }
    RecordTmpCommand(ppid, {.pid = pid,
                            .path = path,
                            .cmdline = cmdline.empty() ? path : cmdline,
                            .timestamp = event->timestamp_ns,
                            .suspended = suspended});
}
