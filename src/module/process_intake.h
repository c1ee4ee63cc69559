// The front end of the instant scan: which processes were active, and which of them are quiet now.
#pragma once

#include <linux/cn_proc.h>

#include <map>
#include <vector>

#include "inspect/socket_table.h"

// When a process or a child of it last forked (seconds of time(2)), by pid, for those that have not been looked at
// since. Guarded by pidMapLock. Kept when the module stops.
inline std::map<int, unsigned long> intakeMap;

// Notes the process that has forked, and its parent; any other event and null are ignored. Called on a thread of the
// process monitor's that serves nothing else. Costs the pauses of one look at a process's parent.
void OnProcessEvent(proc_event* event);

// One fork event's worth of the above. Children of init, processes that have gone and the agent itself are not noted.
void CollectNewProcess(const proc_event* event);

// Entry of the task "check shell by netlink procs": judges the processes that have been quiet for three seconds. arg is
// not read. Returns null.
void* CheckNetlinkProcsTask(void* arg);

// One pass of the classifier over pids, and its alarms. Sockets first seen before time do not count; flag says that the
// socket table need not be read again.
void CheckReverseShell(std::vector<int> pids, long time, bool flag);

// An alarm for each shell on the socket of the same index; what has no counterpart gives none. Costs 1 ms an alarm, and
// what the alarm itself costs.
void RaiseAlarms(const std::vector<int>& foundPids, const std::vector<SocketInfo>& foundSocks);
