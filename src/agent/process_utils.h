// Properties of a process. That the process has ended is an ordinary failure. Any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace ProcessUtils {

// Selectors of GetProcStatus.
inline constexpr unsigned int PROC_STATUS = 2;

// Main fields of /proc/<pid>/status. The record crosses a binary boundary, so its layout is fixed. The caller clears it
// first.
struct ProcStatus {
    int32_t pid;
    int32_t tgid;
    int32_t ppid;
    int32_t tracerPid;
    uint32_t uids[4];  // real, effective, saved, file system
    uint32_t gids[4];
    char name[64];  // NUL-terminated; the kernel escapes "\\" and "\n" in it
    uint8_t reserved[212];
};
static_assert(sizeof(ProcStatus) == 324);
static_assert(offsetof(ProcStatus, ppid) == 2 * sizeof(uint32_t));

// Stores the path of the process's program, with the " (deleted)" that the kernel appends for a removed file. Returns
// false and empties path if it cannot be read.
bool GetExePath(int pid, std::string& path);

// Returns the command line, at most its first 2 MiB. Each zero byte between arguments becomes a blank; those at the end
// are dropped. May contain any byte but zero. Empty if it cannot be read.
std::string GetProcessCmdline(int pid);

// Fills the record from /proc/<pid>/status. selector is PROC_STATUS. Returns non-zero on success; on failure the record
// is unchanged.
int GetProcStatus(int pid, unsigned int selector, ProcStatus& status);

}  // namespace ProcessUtils
