// The short commands that processes of this host have started, by parent.
#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

#include "frame/module_lock.h"

// One process seen at exec.
struct TPROC_INFO {
    int pid = 0;
    std::string path;     // of its program
    std::string cmdline;  // the path where that is empty
    // Of the exec event: nanoseconds of CLOCK_MONOTONIC (drivers/connector/cn_proc.c).
    unsigned long long timestamp = 0;
    // Nanoseconds that the host had slept when the event was handled, which that clock leaves out.
    unsigned long long suspended = 0;
};

// What is known of one parent.
struct TmpProcListInfo {
    bool judged = false;    // no more commands are recorded, and the sweep leaves it alone until it is removed
    bool isRshell = false;  // the judgement; the next sweep removes the entry
    std::vector<TPROC_INFO> procList;  // oldest first
};

using TmpProcMap = std::map<int, TmpProcListInfo>;

// Guards tmpProcMap; never held across a read of /proc or a pause.
inline ModuleLock tmpProcLock;

// By parent pid. Kept when the module stops, until the next start.
inline TmpProcMap tmpProcMap;

// The operations below take the lock. Any thread, while the watcher runs.

// Notes a command of the parent. One that executes again replaces itself; a judged parent takes no more.
void RecordTmpCommand(int ppid, const TPROC_INFO& command);

TmpProcMap CopyTmpProcMap();

// Puts info in place of what is known of the parent, if anything is.
void WriteBackTmpProcs(int ppid, const TmpProcListInfo& info);

void EraseTmpProcs(const std::set<int>& ppids);
void ClearTmpProcs();
