#include <libgen.h>
#include <unistd.h>

#include <new>
#include <optional>

#include "agent/bounds_checked.h"
#include "agent/convert.h"
#include "agent/process_utils.h"
#include "frame/file_handle.h"
#include "frame/log.h"
#include "frame/pacing.h"
#include "frame/trace.h"
#include "graph/reverse_shell_detector.h"

using Trace::Test;

static constexpr char logSource[] = "reverse_shell_detector";

static constexpr int firstUserPid = 3;
static constexpr int descriptorBudget = 6;
static constexpr unsigned int processesPerPause = 100;
static constexpr unsigned int scanPauseMicroseconds = 50000;

static constexpr size_t longestLink = 4096;
static constexpr size_t linkBufferSize = longestLink + 1;

// Reads the link at path into link, which has linkBufferSize bytes, and terminates it. Returns its length, 0 on
// failure.
static size_t ReadLink(const char* path, char* link) {
    const ssize_t length = readlink(path, link, longestLink);
    if (length < 1) {
        return 0;
    }
    link[length] = '\0';
    return static_cast<size_t>(length);
}

struct ScannedProcess {
    std::string name;  // base name of the program file
    int ppid;
};

// Nothing if the process has no readable program file and status. The kernel appends " (deleted)" to the name of a
// deleted file, which then does not match any shell.
static std::optional<ScannedProcess> ReadProcess(int pid, char* link) {
    char path[32];
    if (sprintf_s(path, sizeof(path), "/proc/%d/exe", pid) == -1 || ReadLink(path, link) == 0) {
        return std::nullopt;
    }
    ProcessUtils::ProcStatus status;
    memset_s(&status, sizeof(status), 0, sizeof(status));
    if (ProcessUtils::GetProcStatus(pid, ProcessUtils::PROC_STATUS, status) == 0) {
        return std::nullopt;
    }
    const char* base = basename(link);
    if (base == nullptr) {
        return std::nullopt;
    }
    return ScannedProcess{base, status.ppid};
}

void ReverseShellDetector::ScanProc() {
    const DirectoryStream processes(opendir("/proc"));
    if (processes == nullptr) {
        return;
    }
    const std::unique_ptr<char[]> link(new (std::nothrow) char[linkBufferSize]);
    if (link == nullptr) {
        return;
    }
    unsigned int scanned = 0;
    while (const dirent* entry = readdir(processes.get())) {
        int pid = 0;
        TavUtils::Convert::StringToInt(entry->d_name, pid);
        if (pid < firstUserPid) {
            continue;
        }
        const std::optional<ScannedProcess> process = ReadProcess(pid, link.get());
        if (!process) {
            continue;
        }
        FilterBashProcess(process->name, pid, process->ppid);
        ++scanned;
        if (scanned % processesPerPause == 0) {
            Pause(scanPauseMicroseconds);
        }
    }
}

void ReverseShellDetector::FilterBashProcess(const std::string& name, int pid, int ppid) {
    if (!Trace::Result(Test::hasShellName, pid, riskyName.contains(name), {.text = name})) {
        childProcs[ppid].insert(pid);
        return;
    }
    const auto proc = std::make_shared<ProcInfomation>();
    proc->pid = pid;
    proc->ppid = ppid;
    GetProcFdInfo(proc);
    bashProcs.insert(proc);
}

void ReverseShellDetector::GetProcFdInfo(std::shared_ptr<ProcInfomation> proc) {
    const std::unique_ptr<char[]> link(new (std::nothrow) char[linkBufferSize]);
    if (link == nullptr) {
        return;
    }
    char path[64];
    const int directoryLength = sprintf_s(path, sizeof(path), "/proc/%d/fd/", proc->pid);
    if (directoryLength == -1) {
        return;
    }
    const DirectoryStream descriptors(opendir(path));
    if (descriptors == nullptr) {
        for (const char* channel : {startupLog, normalLog}) {
            MODULE_LOG(channel, LOG_LEVEL_DETAIL, "Open [%d]'s fd dir failed ", proc->pid);
        }
        return;
    }
    char* const descriptorName = path + directoryLength;
    const size_t descriptorRoom = sizeof(path) - static_cast<size_t>(directoryLength);
    int budget = descriptorBudget;
    while (budget > 0) {
        const dirent* entry = readdir(descriptors.get());
        if (entry == nullptr) {
            break;
        }
        if (IsDotEntry(*entry)) {
            continue;
        }
        --budget;
        int fd = 0;
        if (!TavUtils::Convert::StringToInt(entry->d_name, fd) ||
            sprintf_s(descriptorName, descriptorRoom, "%d", fd) == -1) {
            continue;
        }
        const size_t length = ReadLink(path, link.get());
        if (length != 0) {
            AddIPCInode(link.get(), static_cast<unsigned int>(length), fd, proc);
        }
    }
}

void ReverseShellDetector::CollectRelatedProc(int ppid) {
    const auto children = childProcs.find(ppid);
    if (children == childProcs.end()) {
        return;
    }
    for (const int pid : children->second) {
        if (relatedPids.contains(pid)) {
            continue;
        }
        const auto proc = std::make_shared<ProcInfomation>();
        proc->pid = pid;
        proc->ppid = ppid;
        GetProcFdInfo(proc);
        pendingProcs.insert(proc);
        relatedPids.insert(pid);
    }
    childProcs.erase(children);
}
