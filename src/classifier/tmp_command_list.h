// The short commands started on this host, by parent.
#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

#include "frame/module_lock.h"

// One process seen at exec.
struct TPROC_INFO {
    int pid;
    std::string path;     // of its program
    std::string cmdline;  // the path if the process has none
    // Time of the exec event in nanoseconds of CLOCK_MONOTONIC (drivers/connector/cn_proc.c).
    unsigned long long timestamp;
    // Nanoseconds for which the host had been suspended when the event was handled. CLOCK_MONOTONIC omits them.
    unsigned long long suspended;
};

// One parent and its commands.
struct TmpProcListInfo {
    bool judged = false;               // no more commands are recorded, and sweeps ignore it until it is removed
    bool isRshell = false;             // reported as a reverse shell; the next sweep removes the entry
    std::vector<TPROC_INFO> procList;  // oldest first
};

using TmpProcMap = std::map<int, TmpProcListInfo>;

// Guards tmpProcMap; never held across a read of /proc or a pause.
inline ModuleLock tmpProcLock;

// By parent pid. Kept from a stop of the module until the next start.
inline TmpProcMap tmpProcMap;

// The functions below take the lock. Any thread, while the watcher runs.

// Records a command of the parent. A process that executes again replaces its record. Ignored if the parent is judged.
void RecordTmpCommand(int ppid, const TPROC_INFO& command);

TmpProcMap CopyTmpProcMap();

// Replaces the parent's entry, if there is one.
void WriteBackTmpProcs(int ppid, const TmpProcListInfo& info);

void EraseTmpProcs(const std::set<int>& ppids);
void ClearTmpProcs();
