#include <unistd.h>

#include <climits>
#include <optional>
#include <string>

#include "agent/convert.h"
#include "agent/files.h"
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

// Returns the target of a link, which the kernel limits to PATH_MAX bytes; empty on failure.
static std::string ReadLink(const std::string& path) {
    char target[PATH_MAX];
    const ssize_t length = readlink(path.c_str(), target, sizeof(target));
    return length > 0 ? std::string(target, static_cast<size_t>(length)) : std::string();
}

struct ScannedProcess {
    std::string name;  // base name of the program file
    int ppid;
};

// Nothing if the process has no readable program file and status. The kernel appends " (deleted)" to the name of a
// deleted file, which then does not match any shell.
static std::optional<ScannedProcess> ReadProcess(int pid) {
    const std::string program = ReadLink("/proc/" + std::to_string(pid) + "/exe");
    ProcessUtils::ProcStatus status{};
    if (program.empty() || ProcessUtils::GetProcStatus(pid, ProcessUtils::PROC_STATUS, status) == 0) {
        return std::nullopt;
    }
    return ScannedProcess{TavUtils::FileAttribute::GetBasename(program), status.ppid};
}

void ReverseShellDetector::ScanProc() {
    const DirectoryStream processes(opendir("/proc"));
    if (processes == nullptr) {
        return;
    }
    unsigned int scanned = 0;
    while (const dirent* entry = readdir(processes.get())) {
        int pid = 0;
        TavUtils::Convert::StringToInt(entry->d_name, pid);
        if (pid < firstUserPid) {
            continue;
        }
        const std::optional<ScannedProcess> process = ReadProcess(pid);
        if (!process) {
            continue;
        }
        FilterBashProcess(process->name, pid, process->ppid);
        if (++scanned % processesPerPause == 0) {
            Pause(scanPauseMicroseconds);
        }
    }
}

void ReverseShellDetector::FilterBashProcess(const std::string& name, int pid, int ppid) {
    if (!Trace::Result(Test::hasShellName, pid, riskyName.contains(name), {.text = name})) {
        childProcs[ppid].insert(pid);
        return;
    }
    bashProcs.insert(AddProcess(pid, ppid));
}

std::shared_ptr<ReverseShellDetector::ProcInfomation> ReverseShellDetector::AddProcess(int pid, int ppid) {
    auto proc = std::make_shared<ProcInfomation>(
        ProcInfomation{.pid = pid, .ppid = ppid, .exePath = {}, .cmdline = {}, .fds = {}});
    GetProcFdInfo(proc);
    return proc;
}

void ReverseShellDetector::GetProcFdInfo(std::shared_ptr<ProcInfomation> proc) {
    std::string path = "/proc/" + std::to_string(proc->pid) + "/fd/";
    const size_t directoryLength = path.size();
    const DirectoryStream descriptors(opendir(path.c_str()));
    if (descriptors == nullptr) {
        for (const char* channel : {startupLog, normalLog}) {
            MODULE_LOG(channel, LOG_LEVEL_DETAIL, "Open [%d]'s fd dir failed ", proc->pid);
        }
        return;
    }
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
        if (TavUtils::Convert::StringToInt(entry->d_name, fd)) {
            path.replace(directoryLength, std::string::npos, std::to_string(fd));
            const std::string link = ReadLink(path);
            AddIPCInode(link.c_str(), static_cast<unsigned int>(link.size()), fd, proc);
        }
    }
}

void ReverseShellDetector::CollectRelatedProc(int ppid) {
    const auto children = childProcs.find(ppid);
    if (children == childProcs.end()) {
        return;
    }
    for (const int pid : children->second) {
        if (relatedPids.insert(pid).second) {
            pendingProcs.insert(AddProcess(pid, ppid));
        }
    }
    childProcs.erase(children);
}
