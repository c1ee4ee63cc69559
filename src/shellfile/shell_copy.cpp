#include "shellfile/shell_copy.h"

#include <sys/stat.h>

#include "agent/events.h"
#include "agent/sha256.h"
#include "alarm/alarm_history.h"
#include "frame/log.h"
#include "frame/trace.h"
#include "inspect/detect_shell_utils.h"
#include "shellfile/abnormal_shell_event.h"
#include "shellfile/shell_baseline.h"

using Trace::Test;

static constexpr char logSource[] = "detect_shell_event";

static constexpr unsigned int longestCommand = 512;

// Empty if the program does not have the size of a shell, or cannot be read.
static std::string DigestOfShellSized(const std::string& path, int pid) {
    struct stat info {};
    if (!Trace::Result(Test::hasProgramFile, pid, stat(path.c_str(), &info) == 0, {.text = path}) ||
        !Trace::Result(Test::hasShellSize, pid, IsShellSize(static_cast<unsigned long>(info.st_size)),
                       {.count = info.st_size})) {
        return "";
    }
    char digest[65] = {};
    if (!TavUtils::Sha256::GetFileSha256(path, digest, nullptr)) {
        MODULE_LOG(normalLog, LOG_LEVEL_ERROR, "Failed to get file hash.[path=%s]", path.c_str());
        return "";
    }
    return digest;
}

void ShellExecCallback(proc_event* event) {
    if (event == nullptr) {
        MODULE_LOG(normalLog, LOG_LEVEL_ERROR, "The process event is null.");
        return;
    }
    if (event->what != decltype(event->what)::PROC_EVENT_EXEC) {
        return;
    }
    const int pid = event->event_data.exec.process_pid;
    const std::string path = DetectShellUtil::GetProcExe(pid);
    if (path.empty() || Trace::Result(Test::isShellFile, pid, IsShellFile(path), {.text = path})) {
        return;
    }
    const std::string digest = DigestOfShellSized(path, pid);
    if (digest.empty()) {
        return;
    }
    const std::string shell = ShellWithDigest(digest);
    if (Trace::Result(Test::hasShellContent, pid, !shell.empty(), {.text = shell})) {
        GenCpAlarm(path, DetectShellUtil::GetProcCmdline(pid), shell);
    }
}

void GenCpAlarm(const std::string& copyPath, const std::string& command, const std::string& shellPath) {
    if (!Trace::Result(Test::showsCommandLine, 0, !command.empty()) ||
        Trace::Result(Test::isRepeated, 0, IsRepeatedAlarm(copyPath))) {
        return;
    }
    SHELL_EVENT event;
    event.path = shellPath;
    event.relatedPath = copyPath;
    event.fileOperationType = SHELL_COPY;
    event.command = EventAdapter::TruncateString(command, longestCommand, true);
    MODULE_LOG(normalLog, LOG_LEVEL_DETAIL, "[fileOperationType=%d]", event.fileOperationType);
    AddShellEvent(event);
}
