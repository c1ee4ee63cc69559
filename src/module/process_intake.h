// The front end of the instant scan: collects processes that fork, and selects those that have become quiet.
#pragma once

#include <linux/cn_proc.h>

#include <map>
#include <vector>

#include "inspect/socket_table.h"

// By pid, the time (seconds, time(2)) at which the process or a child of it last forked, for processes that have not
// been examined since. Guarded by pidMapLock. Kept when the module stops.
inline std::map<int, unsigned long> intakeMap;

// Notes the process that has forked and its parent. Other events and null are ignored. Called on the thread that the
// process monitor has for this callback. Sleeps while it reads the parent's pid, 0.5 ms per line.
void OnProcessEvent(proc_event* event);

// Handles one fork event. Does not note children of init, processes that have ended, and the agent.
void CollectNewProcess(const proc_event* event);

// Entry of the task "check shell by netlink procs": examines the processes that have been quiet for three seconds. arg
// is not read. Returns null.
void* CheckNetlinkProcsTask(void* arg);

// Runs one pass of the classifier over pids and raises its alarms. Sockets first seen before time are ignored. With
// flag set, the socket table is not read again.
void CheckReverseShell(std::vector<int> pids, long time, bool flag);

// Raises an alarm for each shell with the socket at the same index, up to the shorter of the two. Sleeps 1 ms per
// alarm, besides the cost of the alarm itself.
void RaiseAlarms(const std::vector<int>& foundPids, const std::vector<SocketInfo>& foundSocks);
