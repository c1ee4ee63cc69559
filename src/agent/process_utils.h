// What the agent knows of a process. All functions may be called from any thread; a process that has gone is an
// ordinary failure.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace ProcessUtils {

// Selectors of GetProcStatus.
inline constexpr unsigned int PROC_STATUS = 2;

// Main fields of /proc/<pid>/status. The record crosses a binary boundary: its layout is fixed, and the caller clears
// it first.
struct ProcStatus {
    int32_t pid;
    int32_t tgid;
    int32_t ppid;
    int32_t tracerPid;
    uint32_t uids[4];  // real, effective, saved, file system
    uint32_t gids[4];
    char name[64];  // terminated; the kernel escapes "\\" and "\n" in it
    uint8_t reserved[212];
};
static_assert(sizeof(ProcStatus) == 324);
static_assert(offsetof(ProcStatus, ppid) == 2 * sizeof(uint32_t));

// Path of the process's program, as the kernel gives it, with " (deleted)" behind the path of a removed file. False,
// with path emptied, if it cannot be read.
bool GetExePath(int pid, std::string& path);

// The command line with a blank for each zero byte between arguments and none at the end; at most 2 MiB of it. Empty if
// it cannot be read. May hold any byte but zero.
std::string GetProcessCmdline(int pid);

// Fills the record from /proc/<pid>/status. selector is PROC_STATUS. Non-zero on success; on failure the record is left
// as it was.
int GetProcStatus(int pid, unsigned int selector, ProcStatus& status);

}  // namespace ProcessUtils
